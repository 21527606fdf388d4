// Loads the input as a CMS message in a file and reads all of it: the walker over its structure, the skeleton
// that OpenSSL parses, the content by its extents, verification and decryption.
#include <cstdint>
#include <string>

#include "fuzz/support/der_mutator.h"
#include "fuzz/support/message.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "security/cmsmsg.h"

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  return Fuzz::MutateDer(data, size, maxSize, seed);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr const char* kMessage = "message";
  Fuzz::Scratch& scratch = Fuzz::Scratch::Get();
  const std::string_view bytes = Fuzz::View(data, size);
  const OruGuiBase::File file = scratch.Make(kMessage, bytes);
  {
    OruOssSec::CMSMsg message;
    if (message.Load(file)) {
      Fuzz::ExerciseMessage(message);
    } else {
      Fuzz::RequireReason();
    }
  }
  Fuzz::Require(scratch.Read(kMessage) == bytes, "the file of a message is only read");
  Fuzz::Require(scratch.IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
