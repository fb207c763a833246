// The face model and its smart pointer.
#include <gtest/gtest.h>
#include <ormutil/Error.h>
#include <ormutil/FacePtr.h>

#include <functional>

using namespace orm;

namespace {

struct Shape : BaseFace {
  static constexpr const char* FACE_ID = "IID_Shape";
  virtual int GetCorners() = 0;
};
struct Named : BaseFace {
  static constexpr const char* FACE_ID = "IID_Named";
  virtual const char* GetName() = 0;
};
struct Colored : Shape {
  static constexpr const char* FACE_ID = "IID_Colored";
  using ParentFace = Shape;
  virtual int GetColor() = 0;
};
struct Striped : Colored {
  static constexpr const char* FACE_ID = "IID_Striped";
  using ParentFace = Colored;
};
struct Absent : BaseFace {
  static constexpr const char* FACE_ID = "IID_Absent";
};

class Square : public FaceObject<Shape, Named> {
 public:
  explicit Square(int& rLive) : mrLive(rLive) { ++mrLive; }
  int GetCorners() override { return 4; }
  const char* GetName() override { return "square"; }
  LONG Count() {
    const auto count = static_cast<LONG>(AddRef()) - 1;
    Release();
    return count;
  }

 private:
  ~Square() override { --mrLive; }
  int& mrLive;
};

class Faces : public testing::Test {
 protected:
  int mLive = 0;
  Square* mObject = new Square(mLive);
  FacePtr<Shape> mShape = FacePtr<Shape>::Adopt(mObject);
};

std::vector<std::string> assertions;

}  // namespace

TEST_F(Faces, AnswerTheirIdsAndNoOthers) {
  struct {
    const char* id;
    bool known;
  } cases[] = {{"IID_BaseFace", true}, {"IID_Shape", true}, {"IID_Named", true},
               {"IID_Absent", false},  {"", false},         {"IID_Shpae", false},
               {"iid_shape", false}};
  for (const auto& [id, known] : cases) {
    BaseFace* face = mShape->QueryFace(id);
    EXPECT_EQ(face != nullptr, known) << id;
    EXPECT_EQ(mObject->Count(), known ? 2 : 1) << id;
    if (face) {
      EXPECT_FALSE(face->Release());
    }
  }
  EXPECT_EQ(GetSimpleStringHash("IID_BaseFace"), 0x041F000Cu);
}

TEST_F(Faces, ConvertByAsking) {
  FacePtr<Named> named(mShape);
  ASSERT_TRUE(named);
  EXPECT_STREQ(named->GetName(), "square");
  EXPECT_EQ(mObject->Count(), 2);
  EXPECT_TRUE(FacePtr<Absent>(mShape) == 0);
  EXPECT_TRUE(FacePtr<Absent>(FacePtr<BaseFace>()) == nullptr);
  EXPECT_EQ(FacePtr<Shape>(FacePtr<BaseFace>(named))->GetCorners(), 4);
}

TEST(Face, AnObjectAnswersTheParentsOfItsFaces) {
  struct Flag final : FaceObject<Named, Striped> {
    const char* GetName() override { return "flag"; }
    int GetCorners() override { return 4; }
    int GetColor() override { return 7; }
  };
  const auto flag = FacePtr<Named>::Adopt(new Flag);
  const FacePtr<Striped> striped(flag);
  const FacePtr<Colored> colored(flag);
  const FacePtr<Shape> shape(flag);
  ASSERT_TRUE(striped && colored && shape);
  EXPECT_EQ(colored->GetColor(), 7);
  EXPECT_EQ(shape->GetCorners(), 4);
  EXPECT_EQ(shape.Get(), striped.Get());
  EXPECT_TRUE(FacePtr<Absent>(shape) == 0);
}

TEST_F(Faces, CountsFollowThePointers) {
  FacePtr<Shape> copy(mShape);
  EXPECT_EQ(mObject->Count(), 2);
  copy = copy.Get();
  copy = mShape;
  FacePtr<Shape> null(0), other = nullptr;
  EXPECT_TRUE(null == 0 && other == nullptr);
  null = mShape;
  other = mShape;
  EXPECT_EQ(mObject->Count(), 4);
  null = 0;
  other = nullptr;
  EXPECT_EQ(mObject->Count(), 2);
  FacePtr<Shape> moved(std::move(copy));
  EXPECT_EQ(mObject->Count(), 2);
  EXPECT_TRUE(copy == 0);
  EXPECT_EQ(moved.AddRef(), mObject);
  EXPECT_EQ(mObject->Count(), 3);
  EXPECT_FALSE(mObject->Release());
  auto pass = [](FacePtr<Shape> face) { return face; };
  moved = pass(std::move(moved));
  EXPECT_EQ(mObject->Count(), 2);
  moved.Release();
  EXPECT_EQ(mLive, 1);
  EXPECT_TRUE(mShape.Detach()->Release());
  EXPECT_EQ(mLive, 0);
}

// Notes each reference that is taken and dropped.
class Noting final : public FaceObject<Shape> {
 public:
  Noting(char name, std::string& rNotes) : mName(name), mrNotes(rNotes) {}
  DWORD AddRef() override {
    (mrNotes += '+') += mName;
    return FaceObject::AddRef();
  }
  bool Release() override {
    (mrNotes += '-') += mName;
    return FaceObject::Release();
  }
  int GetCorners() override { return 0; }

 private:
  const char mName;
  std::string& mrNotes;
};

TEST(Face, TheNewReferenceIsTakenBeforeTheOldOneIsDropped) {
  std::string notes;
  auto a = FacePtr<Shape>::Adopt(new Noting('a', notes));
  auto b = FacePtr<Shape>::Adopt(new Noting('b', notes));
  FacePtr<Shape> p = a;
  FacePtr<Shape>& same = p;
  const struct {
    const char* what;
    std::function<void()> assign;
    const char* notes;
  } steps[] = {
      {"a raw pointer", [&] { p = b.Get(); }, "+b-a"},
      {"its own raw pointer", [&] { p = p.Get(); }, "+b-b"},
      {"another pointer", [&] { p = a; }, "+a-b"},
      {"itself", [&] { p = same; }, "+a-a"},
      {"itself, moved", [&] { p = std::move(same); }, ""},
      {"a temporary", [&] { p = FacePtr<Shape>(b); }, "+b-a"},
      {"the answer to a question", [&] { p = FacePtr<BaseFace>(a); }, "+a+a-b-a"},
      {"a question that has no answer", [&] { p = FacePtr<Named>(a); }, "-a"},
      {"the literal 0", [&] { p = 0; }, ""},
  };
  for (const auto& [what, assign, expected] : steps) {
    notes.clear();
    assign();
    EXPECT_EQ(notes, expected) << what;
  }
}

// An object whose end assigns to the very pointer that let it go.
TEST(Face, APointerIsNewBeforeTheOldObjectEnds) {
  struct Last final : FaceObject<Shape> {
    explicit Last(FacePtr<Shape>& rPointer) : mrPointer(rPointer) {}
    ~Last() override { mrPointer.Release(); }
    int GetCorners() override { return 0; }
    FacePtr<Shape>& mrPointer;
  };
  std::string notes;
  FacePtr<Shape> p;
  p = FacePtr<Shape>::Adopt(new Last(p));
  p = FacePtr<Shape>::Adopt(new Noting('n', notes));
  EXPECT_TRUE(p == 0);
  EXPECT_EQ(notes, "-n");
  p = FacePtr<Shape>::Adopt(new Last(p));
  p.Release();
  EXPECT_TRUE(p == 0);
}

TEST_F(Faces, MisuseIsAsserted) {
  assertions.clear();
  TraceSetSink([](void*, const char* line) { assertions.push_back(line); }, nullptr, 'i');
  FacePtr<Shape> null;
  (void)null.operator->();
  (void)(null == 1);
  TraceSetSink(nullptr, nullptr, 0);
  ASSERT_EQ(assertions.size(), 2u);
  EXPECT_NE(assertions[0].find("src/include/FacePtr(217):assert fail:mpFace != 0"), std::string::npos);
  EXPECT_NE(assertions[1].find("src/include/FacePtr(292):assert fail:zero == 0"), std::string::npos);
}

TEST_F(Faces, TheErrorOfAMissingFace) {
  try {
    ThrowFaceNotSupportedError("IID_ClassInfo");
  } catch (const Error& error) {
    EXPECT_EQ(error.GetLayerCount(), 1u);
    EXPECT_EQ(error.GetCode(0), 0xE7230002u);
    EXPECT_STREQ(error.GetMessage(0).GetBegin(), "The interface 'IID_ClassInfo' is not supported.");
  }
}
