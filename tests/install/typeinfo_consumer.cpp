// A user's program. With ASK_FOR_TYPE it also needs the type information of a client.
#include <cstdio>
#include <typeinfo>

#include "client/cryptcli.h"

int main() {
  OruKalvix::CryptClient client(nullptr, "http://service.example", "", "room");
  client.SetStatusTimeout("5");
  bool keyError = false;
  if (client.Encrypt(OruGuiBase::File("source"), OruGuiBase::File("target"), keyError)) return 1;
  std::printf("%s\n", client.GetErrorMessage().GetText());
  // Converting to ISignHash needs the virtual table, but no type information.
  const OruOssSec::ISignHash& interface = client;
  std::printf("%p\n", static_cast<const void*>(&interface));
#ifdef ASK_FOR_TYPE
  std::printf("%s\n", typeid(client).name());
#endif
  return 0;
}
