#include "Scenarios.h"

#include <ormutil/ClassManager.h>
#include <ormutil/Error.h>
#include <ormutil/Event.h>
#include <ormutil/MemoryProperties.h>
#include <ormutil/Path.h>
#include <ormutil/PersistentProperties.h>
#include <ormutil/Trace.h>
#include <ormutil/UtcTime.h>
#include <ormutil/Value.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "classes/fixtures/Fixture.h"
#include "thread/TestRunnable.h"

namespace {

using orm::FacePtr;
using orm::GetClassMgr;

constinit orm::TraceArea area{"scenario"};

void UseClasses() {
  std::string path = "z:" + std::string(ORM_FIXTURES) + "/alpha.dll";
  std::replace(path.begin(), path.end(), '/', '\\');
  struct Registration {
    explicit Registration(const char* name) : cookie(GetClassMgr()->Register(name)) {}
    // What a failure leaves registered is found registered the next time.
    ~Registration() {
      try {
        GetClassMgr()->Unregister(cookie);
        GetClassMgr()->UnloadLibraries(true);
      } catch (const std::bad_alloc&) {
      } catch (const orm::Error&) {
      }
    }
    const DWORD cookie;
  };
  const Registration registration(path.c_str());
  Check(FacePtr<Numbered>("CID_Alpha", "")->GetNumber() == 1, "the object's number");
}

void UseBag() {
  orm::PersistentProperties bag;
  bag.Open("Scenario\\Bag", true);
  const std::string text(5000, 't');
  bag.SetNumber("number", 7);
  bag.SetString("text", text.c_str());
  Check(bag.GetNumber("number") == 7 && bag.GetString("text") == text.c_str(), "the values");
  bag.Delete("number");
}

void WriteLine() {
  orm::TraceWrite(area, orm::TRACE_ERROR, false, "Scenarios.cpp", 1, "a line");
}

// A thread that says what it waits for, is interrupted there and has data of its own.
void RunThread() {
  struct Interrupter : orm::FaceObject<orm::Thread::Interrupter> {
    void OnInterrupt(const FacePtr<orm::Thread>&) override {}
  };
  bool isInterrupted = false;
  orm::Event ready(orm::Event::MANUAL);
  orm::Error error;
  const auto runnable = test::TestRunnable::Make([&] {
    try {
      const auto interrupter = FacePtr<Interrupter>::Adopt(new Interrupter);
      orm::Thread::SetData("scenario", FacePtr<orm::BaseFace>(interrupter.Get()));
      const auto cookie =
          orm::Thread::RegisterInterrupter(FacePtr<orm::Thread::Interrupter>(interrupter.Get()));
      error = test::Caught([&] {
        ready.Set();
        orm::Thread::Sleep(INFINITE);
      });
      isInterrupted = test::IsInterruption(error);
    } catch (const std::bad_alloc&) {
      error = orm::Error(ERROR_NOT_ENOUGH_MEMORY, "");
    }
    ready.Set();
  });
  {
    // Whatever fails here, the thread is not left asleep.
    struct End {
      ~End() {
        runnable.Interrupt();
        if (thread) WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
      }
      test::TestRunnable& runnable;
      const HANDLE thread;
    };
    runnable->CreateThread(false, false);
    const End end{*runnable, runnable->DuplicateThread()};
    runnable->Start(true);
    ready.Wait(INFINITE);
  }
  if (!isInterrupted) throw orm::Error(error);
}

// A thread whose beginning fails: its creator gets the error.
void RunFailingThread() {
  const orm::Error failure = test::MakeError(1234, "the beginning");
  const auto runnable = test::TestRunnable::Make([] {}, [&failure] { throw orm::Error(failure); });
  const orm::Error error = test::Caught([&] { runnable->CreateThread(true, true); });
  test::Caught([&] { runnable->Wait(); });
  if (!error.HasCode(1234)) throw orm::Error(error);
}

void UseMessages() {
  const DWORD self = GetCurrentThreadId();
  MSG message{};
  SetLastError(ERROR_SUCCESS);
  PeekMessageA(&message, nullptr, 0, 0, PM_NOREMOVE);
  Check(GetLastError() == ERROR_SUCCESS, "the queue");
  Check(PostThreadMessageA(self, WM_APP, 1, 2), "the message");
  const UINT_PTR timer = SetTimer(nullptr, 0, 1, nullptr);
  Check(GetMessageA(&message, nullptr, WM_APP, WM_APP) && message.lParam == 2, "the message's arrival");
  Check(timer != 0, "the timer");
  Check(GetMessageA(&message, nullptr, WM_TIMER, WM_TIMER) && message.wParam == timer, "the timer's message");
  KillTimer(nullptr, timer);
  orm::Event event(orm::Event::AUTOMATIC, true);
  bool hasMessage = false;
  Check(event.MessageWait(hasMessage, INFINITE, QS_ALLINPUT), "the event");
}

void ExportBag() {
  orm::MemoryProperties bag, copy;
  for (unsigned i = 0; i < 20; ++i) {
    orm::String name;
    name.Format("name%u", i);
    bag.SetString(name, name);
  }
  copy.Import(bag.Export());
  Check(copy.EnumProperties().size() == 20, "the copy");
}

// Each kind of thing that an archive holds, there and back.
void UseArchive() {
  const orm::String text(std::string(700, 't').c_str());
  orm::Error error(5, "the cause");
  error.AddLayer(6, text, true);
  error.SetSuggestion("try again");
  const orm::UtcTime time = orm::UtcTime::FromStringGeneralizedTime("20261125130000.5+0100");

  orm::Binary stream;
  orm::Archive archive(stream, orm::Archive::MODE_WRITE);
  archive << 7u << text << error << orm::Value(text) << orm::Value(error.Export()) << orm::Value(time);

  unsigned number = 0;
  orm::String readText;
  orm::Error readError;
  orm::Value values[3];
  archive.SetStream(stream, orm::Archive::MODE_READ);
  archive >> number >> readText >> readError >> values[0] >> values[1] >> values[2];
  Check(number == 7 && readText == text && values[0].GetString() == text, "the text");
  Check(orm::Error::Import(values[1].GetBinary()).Format() == readError.Format(), "the error");
  Check(values[2].GetTime().ToStringUTC() == time.ToStringUTC() && archive.IsEof(), "the time");
}

struct Handle {
  explicit Handle(HANDLE opened) : value(opened) { Check(opened != nullptr, "a named object"); }
  ~Handle() { CloseHandle(value); }
  const HANDLE value;
};

void UseNames() {
  const Handle mutex(CreateMutexA(nullptr, FALSE, "scenario/mutex"));
  Check(WaitForSingleObject(mutex.value, INFINITE) == WAIT_OBJECT_0, "the wait");
  ReleaseMutex(mutex.value);
  const Handle section(
      CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 65536, "scenario/section"));
  void* view = MapViewOfFile(section.value, FILE_MAP_ALL_ACCESS, 0, 0, 0);
  Check(view != nullptr, "the view");
  std::memset(view, 1, 65536);
  UnmapViewOfFile(view);
}

void UseFile() {
  const char* name = "C:\\Windows\\Temp\\scenario.txt";
  HANDLE file = CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  Check(file != INVALID_HANDLE_VALUE, "the file");
  DWORD written = 0;
  const bool isWhole = WriteFile(file, "text", 4, &written, nullptr);
  const DWORD error = GetLastError();
  CloseHandle(file);
  SetLastError(error);
  Check(isWhole && written == 4, "the write");
  // In another case, so that the folders on the way are listed.
  WIN32_FIND_DATAA found;
  const HANDLE search = FindFirstFileA("C:\\WINDOWS\\TEMP\\SCENARIO.*", &found);
  Check(search != INVALID_HANDLE_VALUE, "the search");
  FindClose(search);
  Check(DeleteFileA("C:\\WINDOWS\\TEMP\\SCENARIO.TXT"), "the deletion");
}

// A folder of files, listed by the library, moved and removed while somebody watches.
void UsePaths() {
  orm::Path windows, temp, folder;
  Check(windows.Set("C:\\WINDOWS") && temp.Set(windows, "temp") && folder.Set(temp, "paths"), "the path");
  struct Folder {
    // It is there already when its removal failed the time before.
    explicit Folder(const char* path) : text(path) {
      Check(CreateDirectoryA(text, nullptr) || GetLastError() == ERROR_ALREADY_EXISTS, "the folder");
    }
    ~Folder() {
      try {
        RemoveDirectoryA(text);
      } catch (const std::bad_alloc&) {
      }
    }
    const char* text;
  } const made(folder.GetText().GetBegin());
  struct Watch {
    explicit Watch(const char* path)
        : handle(FindFirstChangeNotificationA(path, FALSE, FILE_NOTIFY_CHANGE_FILE_NAME)) {
      Check(handle != INVALID_HANDLE_VALUE, "the watch");
    }
    ~Watch() { FindCloseChangeNotification(handle); }
    const HANDLE handle;
  } const watch(made.text);
  Check(folder.GetAttributes() & FILE_ATTRIBUTE_DIRECTORY, "the attributes");
  std::vector<orm::String> names;
  temp.Enumerate("p*s", FILE_ATTRIBUTE_DIRECTORY, 0, names);
  Check(names.size() == 1, "the list");
}

struct Key {
  Key() = default;
  ~Key() { RegCloseKey(value); }
  Key(const Key&) = delete;
  HKEY value = nullptr;
};

void CheckCode(LONG code, const char* what) {
  if (code != ERROR_SUCCESS) throw PlatformError{what, static_cast<DWORD>(code)};
}

void UseRegistry() {
  Key key, child;
  CheckCode(RegCreateKeyExA(HKEY_CURRENT_USER, "Scenario\\Key", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            &key.value, nullptr),
            "the key");
  CheckCode(
      RegCreateKeyExA(key.value, "Child", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &child.value, nullptr),
      "the child");
  const std::string data(3000, 'd');
  CheckCode(RegSetValueExA(child.value, "value", 0, REG_BINARY, reinterpret_cast<const BYTE*>(data.data()),
                           static_cast<DWORD>(data.size())),
            "the value");
  char name[32];
  BYTE read[4000];
  DWORD length = sizeof name, size = sizeof read;
  CheckCode(RegEnumValueA(child.value, 0, name, &length, nullptr, nullptr, read, &size),
            "the list of values");
  Check(size == data.size() && std::memcmp(read, data.data(), size) == 0, "the data");
  length = sizeof name;
  CheckCode(RegEnumKeyExA(key.value, 0, name, &length, nullptr, nullptr, nullptr, nullptr),
            "the list of keys");
  CheckCode(RegDeleteValueA(child.value, "value"), "the value's deletion");
  CheckCode(RegDeleteKeyA(key.value, "Child"), "the child's deletion");
}

constexpr Scenario SCENARIOS[] = {
    {"classes", UseClasses},
    {"bag", UseBag},
    {"trace", WriteLine},
    {"thread", RunThread},
    {"beginning", RunFailingThread},
    {"messages", UseMessages},
    {"export", ExportBag},
    {"archive", UseArchive},
    {"names", UseNames},
    {"file", UseFile},
    {"paths", UsePaths},
    {"registry", UseRegistry},
    {"font", UseFont},
    {"bitmap", UseBitmap},
};

}  // namespace

std::span<const Scenario> GetScenarios() {
  return SCENARIOS;
}
