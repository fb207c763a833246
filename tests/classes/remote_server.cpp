// remote_server SOCKET FOLDER: makes objects for other processes; see fixtures/remote_manager.cpp. Prints
// "listening" when it is ready and serves one connection after the other.
#include <ormutil/ClassManager.h>
#include <sys/un.h>

#include <cstdio>
#include <cstring>

#include <ormutil/Error.h>

#include "fixtures/Fixture.h"
#include "fixtures/Message.h"

namespace {

orm::FacePtr<Numbered> Create(const orm::Binary& request, orm::Error& rError) {
  const auto* text = reinterpret_cast<const char*>(request.GetData());
  try {
    return orm::GetClassMgr()->CreateInstance(orm::String(text, text + request.GetSize()), "IID_Numbered");
  } catch (const orm::Error& error) {
    rError = error;
    return {};
  }
}

void Serve(int connection) {
  orm::Binary request;
  if (!ReceiveMessage(connection, request)) return;
  orm::Error error;
  const orm::FacePtr<Numbered> object = Create(request, error);
  if (!SendMessageTo(connection, error.Export()) || !object) return;
  while (ReceiveMessage(connection, request)) {
    const int number = object->GetNumber();
    if (!SendMessageTo(connection, orm::Binary(&number, sizeof number))) return;
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return 2;
  const Descriptor listener(socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, arguments[1], sizeof address.sun_path - 1);
  if (bind(listener.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return 1;
  if (listen(listener.Get(), 4) != 0) return 1;
  orm::GetClassMgr()->Register(arguments[2]);
  std::puts("listening");
  std::fflush(stdout);
  for (;;) {
    const Descriptor connection(accept(listener.Get(), nullptr, nullptr));
    Serve(connection.Get());
  }
}
