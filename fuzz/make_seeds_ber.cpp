// Converts messages of the world, which are DER, to the BER of streaming writers: indefinite lengths and
// contents in segments. The signatures in them stay valid, since they cover only the content and the signed
// attributes.
#include <cstdint>

#include "fuzz/make_seeds.h"
#include "fuzz/support/require.h"

namespace Fuzz {
namespace {

constexpr char kSequence = 0x30;
constexpr char kOctets = 0x04;
constexpr char kConstructedOctets = 0x24;
constexpr char kObject = 0x06;
const char kContext0 = static_cast<char>(0xA0);
const char kImplicitOctets = static_cast<char>(0x80);
const char kIndefinite = static_cast<char>(0x80);
const std::string kEnd(2, '\0');

struct Element {
  char tag;
  std::string_view whole;
  std::string_view body;
};

std::size_t Octet(std::string_view bytes, std::size_t at) {
  Require(at < bytes.size(), "a message of the world is DER");
  return static_cast<std::uint8_t>(bytes[at]);
}

// Removes the first element from the bytes and returns it.
Element Take(std::string_view& bytes) {
  std::size_t length = Octet(bytes, 1);
  std::size_t head = 2;
  if (length >= 0x80) {
    const std::size_t count = length & 0x7F;
    length = 0;
    for (std::size_t i = 0; i < count; ++i) length = length << 8 | Octet(bytes, head++);
  }
  Require(bytes.size() >= head + length, "a message of the world is DER");
  const Element element{bytes[0], bytes.substr(0, head + length), bytes.substr(head, length)};
  bytes.remove_prefix(head + length);
  return element;
}

std::string Segment(std::string_view bytes) {
  std::string segment{kOctets};
  if (bytes.size() < 0x80) {
    segment.push_back(static_cast<char>(bytes.size()));
  } else {
    segment +=
        {static_cast<char>(0x82), static_cast<char>(bytes.size() >> 8), static_cast<char>(bytes.size())};
  }
  return segment.append(bytes);
}

// Three segments, the second in a container of its own, and an empty one.
std::string Segments(char tag, std::string_view bytes) {
  const std::size_t third = bytes.size() / 3;
  return std::string{tag, kIndefinite} + Segment(bytes.substr(0, third)) +
         std::string{kConstructedOctets, kIndefinite} + Segment(bytes.substr(third, third)) + kEnd +
         Segment({}) + Segment(bytes.substr(2 * third)) + kEnd;
}

// Whether an element is one of the containers around the content: the ContentInfo, the message's own
// sequence, the encapsulated or encrypted content info, and the explicit tags between them (RFC 5652).
bool IsContainer(const Element& element, int level) {
  if (element.tag == kSequence) return level == 0 || level == 2 || (level == 3 && element.body[0] == kObject);
  return element.tag == kContext0 && (level == 1 || level == 4);
}

// Levels are counted from the ContentInfo. Level 5 has the content of a SignedData or DigestedData, level 4
// the encrypted content of an EnvelopedData, whose tag is implicit.
std::string Convert(const Element& element, int level) {
  if (element.tag == kOctets && level == 5) return Segments(kConstructedOctets, element.body);
  if (element.tag == kImplicitOctets && level == 4) return Segments(kContext0, element.body);
  if (!IsContainer(element, level)) return std::string(element.whole);
  std::string converted{element.tag, kIndefinite};
  for (std::string_view rest = element.body; !rest.empty();) converted += Convert(Take(rest), level + 1);
  return converted + kEnd;
}

}  // namespace

std::string ToSegments(std::string_view der) {
  return Convert(Take(der), 0);
}

}  // namespace Fuzz
