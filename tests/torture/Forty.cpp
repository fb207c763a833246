// A component library of forty classes, so that a version of a library needs more room than the one before.
#include "classes/fixtures/Fixture.h"

void LibEnumClasses(std::vector<orm::ClassDescription>& classes) {
  for (int i = 0; i < 40; ++i) {
    orm::String id;
    id.Format("CID_Forty%02d", i);
    classes.push_back({id, {}, NumberedObject::DescribeFaces()});
  }
}
void LibCreateInstance(const orm::String&, orm::FacePtr<orm::BaseFace>& object) {
  FixtureClasses::Create(NumberedObject::CLASS_ID, object);
}
bool LibCanUnload(bool) {
  return orm::CanUnloadComponent();
}
