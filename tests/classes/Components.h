// Shorthands of the tests of component libraries.
#pragma once

#include <gtest/gtest.h>
#include <ormutil/ClassManager.h>

#include <string>
#include <vector>

#include "ErrorText.h"
#include "TestClock.h"
#include "TestFolder.h"
#include "fixtures/Fixture.h"

using orm::GetClassMgr;
using orm::String;

inline bool IsRegistered(const char* classId) {
  return GetClassMgr()->IsClassRegistered(classId);
}
inline std::string LibraryOf(const char* classId) {
  const std::string path = GetClassMgr()->GetClassInfo(classId)->GetLibraryPath().GetBegin();
  return path.substr(path.rfind('\\') + 1);
}
inline int NumberOf(const char* classId) {
  return orm::FacePtr<Numbered>(classId, "")->GetNumber();
}
inline std::string RegisterError(const String& path) {
  return Thrown([&] { GetClassMgr()->Register(path); });
}
inline std::vector<std::string> GetPaths(bool withMasks) {
  std::vector<String> paths;
  orm::FacePtr<orm::ClassManagerPathInfo>("CID_ClassManagerPathInfo", "")->GetPaths(paths, withMasks);
  std::vector<std::string> texts;
  for (const String& path : paths) texts.push_back(path.GetBegin());
  return texts;
}
