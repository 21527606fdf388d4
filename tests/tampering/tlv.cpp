#include "tests/tampering/tlv.h"

#include <gtest/gtest.h>

namespace TestSupport {
namespace {

constexpr unsigned kConstructed = 0x20;
constexpr unsigned kLong = 0x80;

// A reader of its own, so that a mistake of the product's reader shows.
class Walker {
 public:
  explicit Walker(const std::string& bytes) : bytes_(bytes) {}

  /// Walks one element; false at the end of an indefinite length.
  bool Walk() {
    const unsigned tag = Next();
    if ((tag & 0x1F) == 0x1F) ADD_FAILURE() << "a tag of several octets";
    const LengthField field{place_, 0};
    const unsigned first = Next();
    std::uint64_t length = first;
    if (first > kLong) {
      length = 0;
      for (unsigned i = 0; i < first - kLong; ++i) length = length << 8 | Next();
    }
    fields.push_back({field.offset, place_ - field.offset});
    if (first == kLong) {
      while (Walk()) {
      }
    } else if ((tag & kConstructed) != 0) {
      for (const std::size_t end = place_ + length; place_ < end;) Walk();
    } else {
      place_ += length;
    }
    return tag != 0 || length != 0;
  }

  bool IsAtEnd() const { return place_ == bytes_.size(); }

  std::vector<LengthField> fields;

 private:
  unsigned Next() {
    if (place_ < bytes_.size()) return static_cast<unsigned char>(bytes_[place_++]);
    ADD_FAILURE() << "the bytes end too early";
    return 0;
  }

  const std::string& bytes_;
  std::size_t place_ = 0;
};

}  // namespace

std::vector<LengthField> FindLengthFields(const std::string& bytes) {
  Walker walker(bytes);
  walker.Walk();
  EXPECT_TRUE(walker.IsAtEnd());
  return walker.fields;
}

std::string LengthOctets(std::uint64_t value) {
  if (value < kLong) return std::string(1, static_cast<char>(value));
  std::string octets;
  for (; value != 0; value >>= 8) octets.insert(octets.begin(), static_cast<char>(value & 0xFF));
  return std::string(1, static_cast<char>(kLong | octets.size())) + octets;
}

std::string WithLength(const std::string& bytes, const LengthField& field, const std::string& octets) {
  std::string changed = bytes;
  return changed.replace(field.offset, field.size, octets);
}

}  // namespace TestSupport
