// Where every test program starts.
#include <gmock/gmock.h>

int main(int argumentCount, char** arguments) {
  testing::InitGoogleMock(&argumentCount, arguments);
  return RUN_ALL_TESTS();
}
