#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Fuzz {

/// Splits the bytes of one input into choices and strings. Does not own the bytes.
///
/// Numbers come from the end of the input and strings from its start, so that a byte more or less in a string
/// leaves all choices as they were. A used-up input returns zeros and empty strings: choice 0 is harmless
/// everywhere, so with a short input little goes wrong.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size);

  bool IsEmpty() const { return bytes_.empty(); }
  std::uint8_t Byte();
  /// A number below `bound`, which is at most 65536.
  std::uint32_t Below(std::uint32_t bound);
  bool Flag() { return (Byte() & 1) != 0; }
  /// The string up to a backslash that is followed by anything but a backslash; both are consumed. Two
  /// backslashes stand for one.
  std::string Text();
  /// The remainder.
  std::string Rest();

 private:
  std::string_view bytes_;
};

/// Writes what Input reads, for seeds: call it in the order in which the target reads.
class InputWriter {
 public:
  InputWriter& Byte(std::uint8_t value);
  /// A choice below `bound`.
  InputWriter& Below(std::uint32_t value, std::uint32_t bound);
  InputWriter& Text(std::string_view text);
  /// For a target that reads the remainder at its end: no string may be written after it.
  InputWriter& Rest(std::string_view bytes);

  std::string Get() const;

 private:
  std::string front_;
  std::string back_;  ///< in the order of writing, which is from the end
};

}  // namespace Fuzz
