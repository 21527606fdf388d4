#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace TestSupport {

/// Where the length octets of an BER element are.
struct LengthField {
  std::size_t offset = 0;
  std::size_t size = 0;
};

/// The length fields of a well-formed message, the constructed elements entered, in their order. The end-of-
/// contents octets of an indefinite length count as an element. Fails the test when the bytes are no BER.
std::vector<LengthField> FindLengthFields(const std::string& bytes);

/// Length octets for `value`: the short form if it fits, else the long one.
std::string LengthOctets(std::uint64_t value);

/// The bytes with other length octets in place of a field.
std::string WithLength(const std::string& bytes, const LengthField& field, const std::string& octets);

}  // namespace TestSupport
