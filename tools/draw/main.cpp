// orm draw as a program of its own.
#include "DrawMain.h"

int main(int argc, char** argv) {
  return orm::draw::DrawMain(argc, argv);
}
