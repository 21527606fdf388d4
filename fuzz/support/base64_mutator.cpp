// The mutator of the targets that read base64 or PEM, built on the mutator for DER.
#include "fuzz/support/base64_mutator.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "foundation/encoding.h"
#include "fuzz/support/der_mutator.h"
#include "fuzz/support/text.h"

namespace Fuzz {
namespace {

constexpr const char* kWhite = " \t\r\n";
constexpr std::uint32_t kLineLength = 64;

// An input split around its base64, which is between the first PEM lines, or all of it.
struct Parts {
  std::string_view head;
  std::string_view body;
  std::string_view tail;
};

Parts Split(std::string_view text) {
  const std::size_t begin = text.find("-----\n");
  const std::size_t end = text.find("\n-----END");
  if (begin == std::string_view::npos || end == std::string_view::npos || end < begin + 6)
    return {{}, text, {}};
  return {text.substr(0, begin + 6), text.substr(begin + 6, end - begin - 6), text.substr(end)};
}

}  // namespace

std::size_t MutateBase64(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed) {
  const Parts parts = Split(View(data, size));
  std::string bytes;
  // The other half of the mutations changes the characters, for the parser of PEM and base64 itself.
  const bool isDecoded = seed % 2 != 0 && DecodeBase64(parts.body, bytes, kWhite) && !bytes.empty();
  if (!isDecoded) return LLVMFuzzerMutate(data, size, maxSize);
  bytes = MutateDer(bytes, seed / 2);
  const auto encoded = OruGuiBase::Binary2B64Str(bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                                                 parts.head.empty() ? 0 : kLineLength, "\n");
  const std::string text = std::string(parts.head) + Str(encoded) + std::string(parts.tail);
  if (text.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  std::copy(text.begin(), text.end(), data);
  return text.size();
}

}  // namespace Fuzz
