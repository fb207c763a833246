// What the component and its clients agree on: the face.
#pragma once

#include <ormutil/FacePtr.h>

struct Shape : orm::BaseFace {
  static constexpr const char* FACE_ID = "IID_Shape";
  virtual double GetArea() = 0;
};
