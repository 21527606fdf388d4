// Reads and writes the format in which the client targets take their choices and strings from an input.
#include "fuzz/support/input.h"

namespace Fuzz {
namespace {

// A choice with more possibilities than this takes two bytes instead of one.
constexpr std::uint32_t kByteBound = 256;

}  // namespace

Input::Input(const std::uint8_t* data, std::size_t size)
    : bytes_(reinterpret_cast<const char*>(data), size) {}

std::uint8_t Input::Byte() {
  if (bytes_.empty()) return 0;
  const auto value = static_cast<std::uint8_t>(bytes_.back());
  bytes_.remove_suffix(1);
  return value;
}

std::uint32_t Input::Below(std::uint32_t bound) {
  if (bound <= 1) return 0;
  std::uint32_t value = Byte();
  if (bound > kByteBound) value |= static_cast<std::uint32_t>(Byte()) << 8U;
  return value % bound;
}

std::string Input::Text() {
  std::string text;
  while (!bytes_.empty()) {
    const char next = bytes_.front();
    bytes_.remove_prefix(1);
    if (next == '\\') {
      // Any other character after the backslash ends the string, so that every input is valid.
      const bool isText = !bytes_.empty() && bytes_.front() == '\\';
      if (!bytes_.empty()) bytes_.remove_prefix(1);
      if (!isText) break;
    }
    text.push_back(next);
  }
  return text;
}

std::string Input::Rest() {
  std::string rest(bytes_);
  bytes_ = {};
  return rest;
}

InputWriter& InputWriter::Byte(std::uint8_t value) {
  back_.push_back(static_cast<char>(value));
  return *this;
}

InputWriter& InputWriter::Below(std::uint32_t value, std::uint32_t bound) {
  if (bound <= 1) return *this;
  Byte(static_cast<std::uint8_t>(value & 0xFFU));
  return bound > kByteBound ? Byte(static_cast<std::uint8_t>(value >> 8U)) : *this;
}

InputWriter& InputWriter::Text(std::string_view text) {
  for (const char character : text) {
    front_.push_back(character);
    if (character == '\\') front_.push_back('\\');
  }
  // A line end after the backslash, so that seeds can be read.
  front_ += "\\\n";
  return *this;
}

InputWriter& InputWriter::Rest(std::string_view bytes) {
  front_ += bytes;
  return *this;
}

std::string InputWriter::Get() const {
  return front_ + std::string(back_.rbegin(), back_.rend());
}

}  // namespace Fuzz
