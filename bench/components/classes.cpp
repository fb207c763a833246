// A component library of as many classes as ORM_BENCH_CLASSES says, named after its file, so that copies of
// it are different libraries.
#include <dlfcn.h>
#include <ormutil/Component.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

class Object final : public orm::ComponentObject<orm::BaseFace> {};

std::string GetOwnName() {
  Dl_info info;
  if (!dladdr(reinterpret_cast<void*>(&LibCanUnload), &info)) return "bench";
  std::string name = info.dli_fname;
  name = name.substr(name.rfind('/') + 1);
  return name.substr(0, name.find('.'));
}

}  // namespace

void LibEnumClasses(std::vector<orm::ClassDescription>& classes) {
  const char* count = std::getenv("ORM_BENCH_CLASSES");
  const std::string name = GetOwnName();
  for (int i = 0, end = count ? std::atoi(count) : 1; i < end; ++i) {
    orm::String id;
    id.Format("CID_%s_%05d", name.c_str(), i);
    classes.push_back({id, {}, Object::DescribeFaces()});
  }
}
void LibCreateInstance(const orm::String&, orm::FacePtr<orm::BaseFace>& object) {
  object = orm::FacePtr<orm::BaseFace>::Adopt(new Object());
}
bool LibCanUnload(bool) {
  return orm::CanUnloadComponent();
}
