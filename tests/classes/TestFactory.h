// A class factory in the test itself.
#pragma once

#include <ormutil/ClassFactory.h>

#include <functional>
#include <utility>

// An object with the face IID_BaseFace only.
class PlainObject : public orm::FaceObject<orm::BaseFace> {};

class TestFactory : public orm::FaceObject<orm::ClassFactory> {
 public:
  static orm::FacePtr<TestFactory> Make(std::vector<orm::ClassDescription> classes) {
    auto factory = orm::FacePtr<TestFactory>::Adopt(new TestFactory());
    factory->classes = std::move(classes);
    return factory;
  }

  void CreateInstance(const orm::String& classId, orm::FacePtr<orm::BaseFace>& object) override {
    ++created;
    if (onCreate) onCreate(classId, object);
  }
  void EnumClasses(std::vector<orm::ClassDescription>& listed) override {
    ++enumerated;
    listed = classes;
  }

  std::vector<orm::ClassDescription> classes;
  int created = 0;
  int enumerated = 0;
  std::function<void(const orm::String&, orm::FacePtr<orm::BaseFace>&)> onCreate =
      [](const orm::String&, orm::FacePtr<orm::BaseFace>& object) {
        object = orm::FacePtr<orm::BaseFace>::Adopt(new PlainObject());
      };
};
