// The resource compiler as a program of its own, for use during the build.
#include "RcMain.h"

int main(int argc, char** argv) {
  return orm::rc::RcMain(argc, argv);
}
