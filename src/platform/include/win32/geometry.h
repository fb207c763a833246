// Points, sizes and rectangles, in pixels; x grows to the right, y downwards. A rectangle's right and bottom
// edges lie just outside it.
#pragma once

#include "win32/types.h"

struct POINT {
  LONG x;
  LONG y;
};

struct SIZE {
  LONG cx;
  LONG cy;
};

struct RECT {
  LONG left;
  LONG top;
  LONG right;
  LONG bottom;
};
