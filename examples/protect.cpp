// Protects a file for a room and opens it again: example_protect SERVICE-URL ROOM FILE
#include <cryptcli/cryptcli.hpp>
#include <iostream>
#include <string>

namespace {

int Fail(const char* what, const cryptcli::Error& error) {
  std::cerr << "Could not " << what << ": " << error.message << "\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: example_protect SERVICE-URL ROOM FILE\n";
    return 2;
  }
  const std::string room = argv[2];
  const std::string file = argv[3];

  const auto client = cryptcli::Client::Create({.service = argv[1]});
  if (!client) return Fail("make a client", client.error());

  const auto made = client->Encrypt(room, file, file + ".p7m");
  if (!made) return Fail("protect", made.error());

  // Delivers the content only if its origin is proven: a key of the room's group signed it for this room.
  const auto opened = client->Decrypt(room, file + ".p7m", file + ".opened");
  if (!opened) return Fail("open", opened.error());

  std::cout << file << ".opened: " << opened->bytes << " bytes, signed for room " << opened->signedRoom
            << " of group " << opened->signedGroup << "\n";
  return 0;
}
