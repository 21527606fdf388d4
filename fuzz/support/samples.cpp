// Messages that the targets which decrypt files start from. They use our own writer for the envelope.
#include "fuzz/support/samples.h"

#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "security/cmsmsg.h"

namespace Fuzz {

const std::string& Choose(const std::vector<Sample>& samples, Input& input) {
  return samples[input.Below(static_cast<std::uint32_t>(samples.size()))].bytes;
}

std::string Envelop(const std::string& content) {
  const Scratch& scratch = Scratch::Get();
  static const OruOssSec::Certificate room = World::Load(World::Get().room.certificate);
  OruOssSec::CMSMsg message;
  Require(message.CreateEnvelopedData(OruOssSec::CipherAlgorithm::AES256CBC) && message.AddRecipient(room) &&
              message.Save(OruOssSec::CMSMsg::Format::BERStream, scratch.Make("inner", content),
                           scratch.File("envelope")),
          "an envelope can be made");
  return scratch.Read("envelope");
}

}  // namespace Fuzz
