// A component library: shapes.dll.
#include <ormutil/Component.h>

#include "Shape.h"

namespace {

class Square final : public orm::ComponentObject<Shape> {
 public:
  static constexpr const char* CLASS_ID = "CID_Square";
  double GetArea() override { return 4; }
};

using Classes = orm::ComponentClasses<Square>;

}  // namespace

void LibEnumClasses(std::vector<orm::ClassDescription>& classes) {
  Classes::Enum(classes);
}
void LibCreateInstance(const orm::String& classId, orm::FacePtr<orm::BaseFace>& object) {
  Classes::Create(classId, object);
}
bool LibCanUnload(bool) {
  return orm::CanUnloadComponent();
}
