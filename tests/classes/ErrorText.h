// Errors as tests compare them.
#pragma once

#include <ormutil/Error.h>

#include <cstdio>
#include <string>

// The layers from the top down: "code text; code text".
inline std::string Layers(const orm::Error& error) {
  std::string text;
  for (unsigned i = 0; i < error.GetLayerCount(); ++i) {
    char code[16];
    std::snprintf(code, sizeof code, "%08x ", error.GetCode(i));
    text += (i ? "; " : "") + std::string(code) + error.GetMessage(i).GetBegin();
  }
  return text;
}

// What `action` throws, or "nothing".
template <class Action>
std::string Thrown(Action action) {
  try {
    action();
  } catch (const orm::Error& error) {
    return Layers(error);
  }
  return "nothing";
}
