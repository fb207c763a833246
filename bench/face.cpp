// Face queries beside the language's own casts.
#include <ormutil/FacePtr.h>

#include "harness/Rooms.h"

namespace {

using namespace orm;

template <int N>
struct Face : BaseFace {
  static constexpr const char* IDS[] = {"IID_Bench::First", "IID_Bench::Second", "IID_Bench::Third",
                                        "IID_Bench::Fourth"};
  static constexpr const char* FACE_ID = IDS[N];
  virtual int Get() = 0;
};

class Object final : public FaceObject<Face<0>, Face<1>, Face<2>, Face<3>> {
  int Get() override { return 1; }
};

// The peer: the same shape without faces.
template <int N>
struct Base {
  virtual ~Base() = default;
  virtual int Get() = 0;
};
struct Derived final : Base<0>, Base<1>, Base<2>, Base<3> {
  int Get() override { return 1; }
};

}  // namespace

void AddFaceRows(bench::Table& table) {
  static const FacePtr<BaseFace> object(FacePtr<Face<0>>::Adopt(new Object));
  static Derived derived;
  static Base<0>* base = &derived;
  table.Add(bench::Row{.name = "face query across an object's faces",
                       .peer = "dynamic_cast across bases",
                       .goal = 1.5,
                       .ours =
                           [](size_t n) {
                             while (n--) {
                               BaseFace* face = object.Get()->QueryFace(Face<3>::FACE_ID);
                               bench::Keep(face);
                               face->Release();
                             }
                           },
                       .theirs =
                           [](size_t n) {
                             while (n--) {
                               bench::Keep(base);
                               bench::Keep(dynamic_cast<Base<3>*>(base));
                             }
                           },
                       .note = "ours includes the reference that the query adds and its release"});
}
