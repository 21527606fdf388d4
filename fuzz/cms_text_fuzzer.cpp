// Loads the input as a CMS message in PEM or base64 and reads all of it.
#include <cstdint>

#include "fuzz/support/base64_mutator.h"
#include "fuzz/support/message.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "security/cmsmsg.h"

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed) {
  return Fuzz::MutateBase64(data, size, maxSize, seed);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  {
    OruOssSec::CMSMsg message;
    if (message.Load(Fuzz::Ansi(Fuzz::View(data, size)))) {
      Fuzz::ExerciseMessage(message);
    } else {
      Fuzz::RequireReason();
    }
  }
  Fuzz::Require(Fuzz::Scratch::Get().IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
