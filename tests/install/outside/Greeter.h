// The face that component and client agree on.
#pragma once

#include <ormutil/FacePtr.h>

struct Greeter : orm::BaseFace {
  static constexpr const char* FACE_ID = "IID_Greeter";
  virtual orm::String Greet(const orm::String& whom) = 0;
};
