#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Fuzz {

/// Takes the bytes of one input apart into choices and texts.
///
/// Numbers come from the end of the input and texts from its start, so that a byte more or less in a text
/// leaves all choices as they were. An input that is used up goes on with zeros and empty texts: choice 0 is
/// the harmless one everywhere, so a short input is a road on which little goes wrong.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size);

  bool IsEmpty() const { return bytes_.empty(); }
  std::uint8_t Byte();
  /// A number below `bound`, which is at most 65536.
  std::uint32_t Below(std::uint32_t bound);
  bool Flag() { return (Byte() & 1) != 0; }
  /// Text up to a backslash before anything but a backslash; both are consumed. Two backslashes are one of
  /// text.
  std::string Text();
  /// All that is left.
  std::string Rest();

 private:
  std::string_view bytes_;
};

/// Writes what Input reads, for seeds: in the order in which a target asks.
class InputWriter {
 public:
  InputWriter& Byte(std::uint8_t value);
  /// A choice below `bound`.
  InputWriter& Below(std::uint32_t value, std::uint32_t bound);
  InputWriter& Text(std::string_view text);
  /// For a target that takes the rest last: no text may be written after it.
  InputWriter& Rest(std::string_view bytes);

  std::string Get() const;

 private:
  std::string front_;
  std::string back_;  ///< in the order of writing, which is from the end
};

}  // namespace Fuzz
