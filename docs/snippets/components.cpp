// Finds the component by its class id and uses it through its face.
#include <ormutil/ClassManager.h>
#include <ormutil/Error.h>

#include <cassert>

#include "Shape.h"

using namespace orm;

int main(int, char** argv) {
  ClassManager* manager = GetClassMgr();
  const DWORD cookie = manager->Register(argv[1]);  // a folder, a library or a pattern: z:/home/me/parts
  {
    const FacePtr<Shape> square("CID_Square", "");  // loads the library now, not before
    assert(square->GetArea() == 4);
    std::vector<String> shapes;
    manager->EnumClasses(Shape::FACE_ID, shapes);
    assert(shapes.size() == 1);
  }
  manager->Unregister(cookie);  // no object is left, so the library leaves the process
  try {
    const FacePtr<Shape> square("CID_Square", "");
    assert(false);
  } catch (const Error& error) {
    assert(error.GetCode() == 0xE7230001);
  }
}
