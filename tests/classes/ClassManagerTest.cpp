// The registry of classes, fed by factories in this process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ormutil/ClassManager.h>
#include <ormutil/CreateInstance.h>

#include <thread>

#include "ErrorText.h"
#include "TestClock.h"
#include "TestFactory.h"
#include "support/ModuleTrace.h"

namespace {

using orm::BaseFace;
using orm::Binary;
using orm::ClassFactory;
using orm::FacePtr;
using orm::GetClassMgr;
using orm::String;
using testing::ElementsAre;

DWORD Register(const FacePtr<TestFactory>& factory) {
  return GetClassMgr()->Register(FacePtr<ClassFactory>(factory));
}

std::vector<std::string> Texts(const std::vector<String>& strings) {
  std::vector<std::string> texts;
  for (const String& string : strings) texts.push_back(string.GetBegin());
  return texts;
}

std::vector<std::string> Classes() {
  std::vector<String> ids = {"left over"};
  GetClassMgr()->EnumClasses(ids);
  return Texts(ids);
}
std::vector<std::string> ClassesWith(const String& face) {
  std::vector<String> ids = {"left over"};
  GetClassMgr()->EnumClasses(face, ids);
  return Texts(ids);
}
std::vector<std::string> ClassesWithAll(const std::vector<String>& faces) {
  std::vector<String> ids = {"left over"};
  GetClassMgr()->EnumClasses(faces, ids);
  return Texts(ids);
}

TEST(ClassManager, HasThePathInfoClassFromTheStart) {
  EXPECT_THAT(Classes(), ElementsAre("CID_ClassManagerPathInfo"));
  const FacePtr<orm::ClassManagerPathInfo> info("CID_ClassManagerPathInfo", "");
  const FacePtr<orm::ClassManagerPathInfo> again("CID_ClassManagerPathInfo", "");
  EXPECT_EQ(info, again) << "one object, which is its own instance";
  const FacePtr<ClassFactory> factory = info;
  EXPECT_TRUE(factory);
  EXPECT_EQ(FacePtr<BaseFace>(info).Get(), static_cast<BaseFace*>(factory.Get()));
  std::vector<String> paths = {"left over"};
  info->GetPaths(paths, false);
  EXPECT_TRUE(paths.empty());

  std::vector<String> faces;
  GetClassMgr()->GetClassInfo("CID_ClassManagerPathInfo")->EnumFaces(faces);
  EXPECT_THAT(Texts(faces), ElementsAre("IID_BaseFace", "IID_ClassManagerPathInfo"));
  EXPECT_EQ(Register(TestFactory::Make({{"CID_A", {}, {}}})), 2u) << "it took cookie 1";
  GetClassMgr()->Unregister(1);
  EXPECT_THAT(Classes(), ElementsAre("CID_A"));
}

TEST(ClassManager, EnumeratesByFacesInTheOrderOfIds) {
  Register(TestFactory::Make(
      {{"CID_ba", {}, {{"IID_X", {}}, {"IID_Y", {}}}}, {"CID_ab", {}, {{"IID_X", {}}}}, {"CID_c", {}, {}}}));
  GetClassMgr()->Unregister(1);
  EXPECT_THAT(Classes(), ElementsAre("CID_c", "CID_ab", "CID_ba"));
  EXPECT_THAT(ClassesWith("IID_X"), ElementsAre("CID_ab", "CID_ba"));
  EXPECT_THAT(ClassesWith("IID_Y"), ElementsAre("CID_ba"));
  EXPECT_THAT(ClassesWith("iid_y"), ElementsAre());
  EXPECT_THAT(ClassesWithAll({"IID_Y", "IID_X"}), ElementsAre("CID_ba"));
  EXPECT_THAT(ClassesWithAll({}), ElementsAre("CID_c", "CID_ab", "CID_ba"));
}

TEST(ClassManager, TheLatestFactoryMakesTheObjects) {
  const auto first = TestFactory::Make({{"CID_A", Binary("1", 1), {}}});
  const auto second = TestFactory::Make({{"CID_A", Binary("2", 1), {}}});
  const DWORD firstCookie = Register(first), secondCookie = Register(second);
  const auto info = GetClassMgr()->GetClassInfo("CID_A");
  GetClassMgr()->CreateInstance("CID_A", "IID_BaseFace");
  EXPECT_EQ(second->created, 1);
  EXPECT_EQ(info->GetClassData(), Binary("2", 1));
  GetClassMgr()->Unregister(secondCookie);
  GetClassMgr()->CreateInstance("CID_A", "IID_BaseFace");
  EXPECT_EQ(first->created, 1);
  EXPECT_EQ(info->GetClassData(), Binary("1", 1));
  GetClassMgr()->Unregister(firstCookie);
  EXPECT_FALSE(GetClassMgr()->IsClassRegistered("CID_A"));
}

TEST(ClassManager, AFactoryRegisteredTwiceIsListedOnceAndUnregisteredTwice) {
  const auto factory = TestFactory::Make({{"CID_A", {}, {}}});
  const DWORD cookie = Register(factory);
  EXPECT_EQ(Register(factory), cookie);
  EXPECT_EQ(factory->enumerated, 1);
  GetClassMgr()->Unregister(cookie);
  EXPECT_TRUE(GetClassMgr()->IsClassRegistered("CID_A"));
  GetClassMgr()->Unregister(cookie);
  EXPECT_FALSE(GetClassMgr()->IsClassRegistered("CID_A"));
  GetClassMgr()->Unregister(cookie);
  GetClassMgr()->Unregister(0);
  GetClassMgr()->Unregister(0xFFFFFFFF);
  EXPECT_NE(Register(factory), cookie) << "a cookie is not used again";
}

TEST(ClassManager, TheStampMovesWithTheSetOfClasses) {
  const auto factory = TestFactory::Make({{"CID_A", {}, {}}, {"CID_B", {}, {}}});
  const DWORD before = GetClassMgr()->GetRegistrationStamp();
  EXPECT_NE(before, 0u);
  const DWORD cookie = Register(factory);
  EXPECT_EQ(GetClassMgr()->GetRegistrationStamp(), before + 1) << "one step for one source";
  Register(factory);
  GetClassMgr()->CreateInstance("CID_A", "IID_BaseFace");
  EXPECT_EQ(GetClassMgr()->GetRegistrationStamp(), before + 1);
  GetClassMgr()->Unregister(cookie);
  EXPECT_EQ(GetClassMgr()->GetRegistrationStamp(), before + 1);
  GetClassMgr()->Unregister(cookie);
  EXPECT_EQ(GetClassMgr()->GetRegistrationStamp(), before + 2);
}

TEST(ClassManager, ReportsWhatCannotBeMade) {
  const auto factory = TestFactory::Make({{"CID_A", {}, {}}});
  Register(factory);
  const auto create = [](const char* classId, const char* faceId) {
    return Thrown([=] { GetClassMgr()->CreateInstance(classId, faceId); });
  };
  const std::string context = " Cannot create instance of class 'CID_A' with interface 'IID_X'.; ";
  EXPECT_EQ(create("CID_A", "IID_X"),
            "e7230002" + context + "e7230002 The interface 'IID_X' is not supported.");
  factory->onCreate = [](const String&, FacePtr<BaseFace>&) {};
  EXPECT_EQ(create("CID_A", "IID_X"), "e7230001" + context + "e7230001 The class is not registered.");
  factory->onCreate = [](const String&, FacePtr<BaseFace>&) { throw orm::Error(77, "It is broken."); };
  EXPECT_EQ(create("CID_A", "IID_X"), "0000004d" + context + "0000004d It is broken.");
  factory->onCreate = [](const String&, FacePtr<BaseFace>&) { throw std::runtime_error("It is broken."); };
  EXPECT_EQ(create("CID_A", "IID_X"), "e7210001" + context + "e7210001 It is broken.");
  EXPECT_EQ(create("CID_%1", "IID_%2"),
            "e7230001 Cannot create instance of class 'CID_%1' with interface 'IID_%2'.; "
            "e7230001 The class is not registered.");
  EXPECT_EQ(Thrown([] { GetClassMgr()->GetClassInfo("CID_B"); }),
            "e7230001 Cannot get information about class 'CID_B'.; e7230001 The class is not registered.");
  EXPECT_EQ(Thrown([] { Register(TestFactory::Make({})); }),
            "e7230003 Cannot register class factory.; e7230003 The factory doesn't export any class.");
}

TEST(ClassManager, ClassInfoOutlivesItsClass) {
  const DWORD cookie =
      Register(TestFactory::Make({{"CID_A", Binary("data", 4), {{"IID_X", Binary("x", 1)}, {"IID_Y", {}}}}}));
  const auto info = GetClassMgr()->GetClassInfo("CID_A");
  EXPECT_EQ(info->GetClassId(), "CID_A");
  EXPECT_EQ(info->GetFaceData("IID_X"), Binary("x", 1));
  EXPECT_TRUE(info->GetFaceData("IID_Z").IsEmpty());
  EXPECT_TRUE(info->IsFaceSupported("IID_Y"));
  EXPECT_TRUE(info->AreFacesSupported({"IID_Y", "IID_X"}));
  EXPECT_FALSE(info->AreFacesSupported({"IID_Y", "IID_Z"}));
  EXPECT_TRUE(info->GetLibraryPath().IsEmpty());

  GetClassMgr()->Unregister(cookie);
  std::vector<String> faces = {"left over"};
  info->EnumFaces(faces);
  EXPECT_TRUE(faces.empty());
  EXPECT_TRUE(info->GetClassId().IsEmpty());
  EXPECT_FALSE(info->IsFaceSupported("IID_X"));
  EXPECT_FALSE(info->AreFacesSupported({}));
  EXPECT_TRUE(info->GetClassData().IsEmpty());
  EXPECT_THAT(Classes(), ElementsAre("CID_ClassManagerPathInfo"));
  EXPECT_NE(Thrown([] { GetClassMgr()->GetClassInfo("CID_A"); }), "nothing");

  Register(TestFactory::Make({{"CID_A", Binary("new", 3), {}}}));
  EXPECT_EQ(info->GetClassData(), Binary("new", 3)) << "the same entry serves the class again";
}

TEST(ClassManager, CreatesWithoutItsLock) {
  const auto outer = TestFactory::Make({{"CID_Outer", {}, {}}});
  const auto inner = TestFactory::Make({{"CID_Inner", {}, {}}});
  Register(inner);
  const DWORD cookie = Register(outer);
  outer->onCreate = [&](const String&, FacePtr<BaseFace>& object) {
    // Another thread must be able to use the manager meanwhile, and the factory may go.
    std::thread([&] {
      object = GetClassMgr()->CreateInstance("CID_Inner", "IID_BaseFace");
      GetClassMgr()->Unregister(cookie);
    }).join();
  };
  EXPECT_TRUE(GetClassMgr()->CreateInstance("CID_Outer", "IID_BaseFace"));
  EXPECT_FALSE(GetClassMgr()->IsClassRegistered("CID_Outer"));
}

// A factory, or an object that one made, may wait at its end for a thread that calls the manager.
struct AtEnd {
  ~AtEnd() {
    std::thread([] { GetClassMgr()->IsClassRegistered("CID_A"); }).join();
  }
};

TEST(ClassManager, LetsGoOfFactoriesAndRefusedObjectsWithoutItsLock) {
  struct Object : PlainObject {
    AtEnd end;
  };
  struct Factory : TestFactory {
    AtEnd end;
  };
  const auto make = [] {
    auto factory = FacePtr<Factory>::Adopt(new Factory());
    factory->classes = {{"CID_A", {}, {}}};
    factory->onCreate = [](const String&, FacePtr<BaseFace>& object) {
      object = FacePtr<BaseFace>::Adopt(new Object());
    };
    return factory;
  };
  GetClassMgr()->Unregister(Register(make()));
  EXPECT_FALSE(GetClassMgr()->IsClassRegistered("CID_A"));

  auto factory = make();
  const DWORD cookie = Register(factory);
  const auto refused = [] { return Thrown([] { GetClassMgr()->CreateInstance("CID_A", "IID_X"); }); };
  EXPECT_EQ(refused().substr(0, 8), "e7230002");
  factory->onCreate = [](const String&, FacePtr<BaseFace>& object) {
    object = FacePtr<BaseFace>::Adopt(new Object());
    throw orm::Error(77, "It is broken.");
  };
  EXPECT_EQ(refused().substr(0, 8), "0000004d");
  factory->onCreate = [cookie](const String&, FacePtr<BaseFace>&) { GetClassMgr()->Unregister(cookie); };
  factory.Release();  // the creation holds the last reference
  EXPECT_EQ(refused().substr(0, 8), "e7230001");
}

TEST(ClassManager, ServesManyThreads) {
  const auto shared = TestFactory::Make({{"CID_Shared", {}, {}}});
  shared->onCreate = [](const String&, FacePtr<BaseFace>& object) {
    object = FacePtr<BaseFace>::Adopt(new PlainObject());
  };
  class Counting : public orm::FaceObject<ClassFactory> {
    void CreateInstance(const String&, FacePtr<BaseFace>& object) override {
      object = FacePtr<BaseFace>::Adopt(new PlainObject());
    }
    void EnumClasses(std::vector<orm::ClassDescription>& classes) override {
      classes.push_back({"CID_Shared", {}, {{"IID_BaseFace", {}}}});
    }
  };
  GetClassMgr()->Register(FacePtr<ClassFactory>::Adopt(new Counting()));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 300; ++i) {
        const DWORD cookie = GetClassMgr()->Register(FacePtr<ClassFactory>::Adopt(new Counting()));
        EXPECT_TRUE(GetClassMgr()->CreateInstance("CID_Shared", "IID_BaseFace"));
        const auto info = GetClassMgr()->GetClassInfo("CID_Shared");
        EXPECT_THAT(ClassesWith("IID_BaseFace"), testing::Contains("CID_Shared"));
        GetClassMgr()->Unregister(cookie);
        EXPECT_EQ(info->GetClassId(), "CID_Shared");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(ClassManager, RegistersNoFactoryThatIsNotThere) {
  test::ModuleTrace trace("assert", 'e');
  EXPECT_EQ(Thrown([] { GetClassMgr()->Register(FacePtr<ClassFactory>()); }),
            "e7230003 Cannot register class factory.; e7230003 The factory doesn't export any class.");
  EXPECT_THAT(trace.Take(), ElementsAre("src/shared/ClassManager(2132):assert fail:rpFactory != 0"));
}

// Component libraries call by slot; an added, removed or moved operation breaks them.
template <class Result, class Object, class... Arguments>
Result CallSlot(int slot, Object* object, Arguments... arguments) {
  void** slots = *reinterpret_cast<void***>(object);
  return reinterpret_cast<Result (*)(Object*, Arguments...)>(slots[slot - 1])(object, arguments...);
}

TEST(ClassManager, HasTheAgreedSlots) {
  using Text = const String&;
  using Out = std::vector<String>&;
  using In = const std::vector<String>&;
  const auto factory = FacePtr<ClassFactory>(TestFactory::Make({{"CID_A", {}, {{"IID_BaseFace", {}}}}}));
  auto* const manager = GetClassMgr();
  const auto cookie = CallSlot<DWORD, orm::ClassManager, const FacePtr<ClassFactory>&>(8, manager, factory);
  EXPECT_TRUE(
      (CallSlot<FacePtr<BaseFace>, orm::ClassManager, Text, Text>(1, manager, "CID_A", "IID_BaseFace")));
  EXPECT_EQ((CallSlot<FacePtr<orm::ClassInfo>, orm::ClassManager, Text>(2, manager, "CID_A")->GetClassId()),
            "CID_A");
  EXPECT_TRUE((CallSlot<bool, orm::ClassManager, Text>(3, manager, "CID_A")));
  std::vector<String> ids;
  CallSlot<void, orm::ClassManager, In, Out>(4, manager, {"IID_BaseFace", "IID_X"}, ids);
  EXPECT_THAT(Texts(ids), ElementsAre());
  CallSlot<void, orm::ClassManager, Text, Out>(5, manager, "IID_ClassManagerPathInfo", ids);
  EXPECT_THAT(Texts(ids), ElementsAre("CID_ClassManagerPathInfo"));
  CallSlot<void, orm::ClassManager, Out>(6, manager, ids);
  EXPECT_EQ(ids.size(), 2u);
  EXPECT_THAT(Thrown([&] { CallSlot<DWORD, orm::ClassManager, Text>(7, manager, "a|b"); }),
              testing::HasSubstr("Cannot register library(ies) 'a|b'."));
  const DWORD stamp = manager->GetRegistrationStamp();
  CallSlot<void, orm::ClassManager, DWORD>(9, manager, cookie);
  EXPECT_EQ((CallSlot<DWORD, orm::ClassManager>(10, manager)), stamp + 1);
  CallSlot<void, orm::ClassManager, bool>(11, manager, false);
}

TEST(ClassManager, ItsInfosHaveTheAgreedSlotsAndFaces) {
  using Text = const String&;
  Register(TestFactory::Make({{"CID_A", Binary("a", 1), {{"IID_X", Binary("xx", 2)}}}}));
  const auto holder = GetClassMgr()->GetClassInfo("CID_A");
  orm::ClassInfo* const info = holder.Get();
  EXPECT_EQ((CallSlot<String, orm::ClassInfo>(4, info)), "CID_A");
  std::vector<String> faces;
  CallSlot<void, orm::ClassInfo, std::vector<String>&>(5, info, faces);
  EXPECT_THAT(Texts(faces), ElementsAre("IID_X"));
  EXPECT_TRUE((CallSlot<bool, orm::ClassInfo, Text>(6, info, "IID_X")));
  EXPECT_TRUE((CallSlot<bool, orm::ClassInfo, const std::vector<String>&>(7, info, {"IID_X"})));
  EXPECT_EQ((CallSlot<Binary, orm::ClassInfo>(8, info)), Binary("a", 1));
  EXPECT_EQ((CallSlot<Binary, orm::ClassInfo, Text>(9, info, "IID_X")), Binary("xx", 2));
  EXPECT_TRUE((CallSlot<String, orm::ClassInfo>(10, info)).IsEmpty());

  const FacePtr<BaseFace> base = holder;
  EXPECT_EQ(base.Get(), static_cast<BaseFace*>(info));
  EXPECT_EQ(FacePtr<orm::ClassInfo>(base), holder);
  for (const char* other : {"IID_X", "IID_ClassFactory", ""}) EXPECT_FALSE(info->QueryFace(other)) << other;
}

TEST(ZRServer, NamesItsBinding) {
  EXPECT_EQ(orm::ZRServer::GetBinding(), "ormserver");
}

}  // namespace
