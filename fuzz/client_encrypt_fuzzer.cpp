// Protects a file while the input chooses the responses of all servers. Whatever they are: there is either a
// protected file for the room's key with exactly the bytes of the source, or a reason and no file.
#include <cstdint>
#include <string>

#include "client/cryptcli.h"
#include "fuzz/support/hostile_http.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"
#include "security/cmsmsg.h"
#include "tests/support/test_peer.h"

namespace {

using Fuzz::Require;
using Fuzz::Scratch;
using Fuzz::World;
using OruGuiBase::File;
using OruOssSec::CMSMsg;

constexpr const char* kSource = "source";
constexpr const char* kTarget = "target";
constexpr std::size_t kLongContent = 300000;  // larger than the buffers of the streams

std::string MakeContent(Fuzz::Input& input) {
  switch (input.Below(4)) {
    case 1:
      return input.Text();
    case 2:
      return std::string(kLongContent, static_cast<char>(input.Byte()));
    default:
      return std::string(Fuzz::kGenuineContent);
  }
}

// Opens the file with the keys of the world and not through the client, so that the responses
// which the input chooses have no part in it.
void CheckProtected(const File& file, const std::string& content) {
  const World& world = World::Get();
  const Scratch& scratch = Scratch::Get();
  CMSMsg envelope;
  Require(envelope.Load(file) && envelope.GetType() == CMSMsg::Type::EnvelopedData,
          "a protected file is an envelope");
  Require(envelope.SetRecipientKey(World::Load(world.room.certificate), World::Load(world.room.key)),
          "a protected file is for the room's key");
  Require(envelope.GetContent(scratch.File("signed")), "the room's key opens a protected file");
  CMSMsg message;
  Require(message.Load(scratch.File("signed")) && message.Verify(), "a protected file is signed");
  OruGuiBase::Blob plain;
  Require(message.GetContent(plain) && Fuzz::Str(plain) == content, "a protected file contains the source");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Scratch& scratch = Scratch::Get();
  const bool isInPlace = input.Below(8) == 1;
  const std::string content = MakeContent(input);
  const File source = scratch.Make(kSource, content);
  const File target = isInPlace ? source : scratch.File(kTarget);
  // The rotation of the process would otherwise depend on the inputs before this one.
  *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0;
  {
    Fuzz::HostileHttp http(input);
    OruKalvix::CryptClient client(&http, Fuzz::Ansi(Fuzz::kServiceUrl), "", Fuzz::Ansi(Fuzz::kRoom));
    bool keyErrorFlag = true;
    const bool done = client.Encrypt(source, target, keyErrorFlag);
    Require(!done || !keyErrorFlag, "the flag is for a failure");
    Require(done || http.WasSilent() || !client.GetErrorMessage().IsEmpty(), "a failure has a reason");
    Require(done || isInPlace || !scratch.Exists(kTarget), "a failure leaves no target");
    Require((done && isInPlace) || scratch.Read(kSource) == content, "the source is only read");
    if (done) CheckProtected(target, content);
  }
  scratch.Remove(kTarget);
  Require(scratch.IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
