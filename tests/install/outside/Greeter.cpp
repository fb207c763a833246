// A component library of an outside project.
#include "Greeter.h"

#include <ormutil/Component.h>

namespace {

class PoliteGreeter final : public orm::ComponentObject<Greeter> {
 public:
  static constexpr const char* CLASS_ID = "CID_PoliteGreeter";
  orm::String Greet(const orm::String& whom) override { return "Hello, " + whom + "."; }
};
using Classes = orm::ComponentClasses<PoliteGreeter>;

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
