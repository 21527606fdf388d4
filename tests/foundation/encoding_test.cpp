#include "foundation/encoding.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/errorstate.h"
#include "tests/foundation/failing_memory.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;

using Decoder = bool (*)(const AnsiStr&, void*, std::uint32_t&, const char*) noexcept;

struct Decoded {
  bool good = false;
  std::string bytes;
};

Decoded Decode(Decoder decoder, std::string_view text, const char* ignored = "\r\n") {
  std::vector<char> buffer(text.size() + 1);
  auto size = static_cast<std::uint32_t>(buffer.size());
  Decoded result;
  result.good = decoder(AnsiStr(text), buffer.data(), size, ignored);
  if (result.good) result.bytes.assign(buffer.data(), size);
  return result;
}

AnsiStr Encode(std::string_view bytes, std::uint32_t lineLength = 0) {
  return Binary2B64Str(bytes.data(), static_cast<std::uint32_t>(bytes.size()), lineLength, "\r\n");
}

std::string AllBytes() {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  return bytes;
}

TEST(CleanStrTest, RemovesBlanksAndControlCharactersAtBothEnds) {
  const struct {
    std::string_view text;
    std::string_view clean;
  } kRows[] = {
      {"text/csv", "text/csv"}, {" \t text/csv\r\n", "text/csv"},
      {"a b", "a b"},           {"", ""},
      {" \r\n\t", ""},          {"\x7F\x01x\x1F", "x"},
      {"\0x\0"sv, "x"},         {"\xC2\xA0x", "\xC2\xA0x"},
      {" x\ny ", "x\ny"},
  };
  for (const auto& row : kRows) EXPECT_EQ(CleanStr(AnsiStr(row.text)).View(), row.clean);
}

TEST(CleanStrTest, ACleanStringIsShared) {
  const AnsiStr text("clean");
  EXPECT_EQ(CleanStr(text).GetImp(), text.GetImp());
}

TEST(EscapeURLTest, LeavesUnreservedCharactersAlone) {
  const char* const unreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  EXPECT_EQ(EscapeURL(unreserved), unreserved);
}

TEST(EscapeURLTest, EscapesEveryOtherByte) {
  const struct {
    std::string_view text;
    const char* escaped;
    const char* reason;
  } kRows[] = {
      {"", "", "nothing"},
      {"a/b", "a%2Fb", "a separator of segments"},
      {"../x", "..%2Fx", "a way out of the folder"},
      {"a b", "a%20b", "a blank"},
      {"50%", "50%25", "the escape character itself"},
      {"a?b#c&d=e", "a%3Fb%23c%26d%3De", "delimiters of a URL"},
      {"!$'()*+,;:@", "%21%24%27%28%29%2A%2B%2C%3B%3A%40", "reserved characters"},
      {"\xC3\xA4", "%C3%A4", "UTF-8, byte by byte"},
      {"\xFF", "%FF", "a byte that is no text"},
      {"a\0b"sv, "a%00b", "a NUL byte"},
      {"\r\n", "%0D%0A", "line ends"},
  };
  for (const auto& row : kRows) EXPECT_EQ(EscapeURL(AnsiStr(row.text)), row.escaped) << row.reason;
}

TEST(EscapeURLTest, OnlyUnreservedCharactersComeOutOfAnyByte) {
  const AnsiStr escaped = EscapeURL(AnsiStr(AllBytes()));
  EXPECT_EQ(escaped.GetLength(), 66U + (256 - 66) * 3);
  EXPECT_EQ(
      escaped.View().find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~%"),
      std::string_view::npos);
}

// The examples of RFC 4648, section 10.
TEST(Base64Test, EncodesAndDecodesTheStandardExamples) {
  const struct {
    const char* plain;
    const char* text;
  } kRows[] = {{"", ""},
               {"f", "Zg=="},
               {"fo", "Zm8="},
               {"foo", "Zm9v"},
               {"foob", "Zm9vYg=="},
               {"fooba", "Zm9vYmE="},
               {"foobar", "Zm9vYmFy"}};
  for (const auto& row : kRows) {
    EXPECT_EQ(Encode(row.plain), row.text);
    const Decoded decoded = Decode(B64Str2Binary, row.text);
    EXPECT_TRUE(decoded.good) << row.text;
    EXPECT_EQ(decoded.bytes, row.plain);
  }
}

TEST(Base64Test, EveryByteAtEveryPlaceRoundTrips) {
  for (std::size_t cut = 0; cut < 6; ++cut) {
    const std::string bytes = AllBytes().substr(cut);
    const Decoded decoded = Decode(B64Str2Binary, Encode(bytes).View());
    EXPECT_TRUE(decoded.good);
    EXPECT_EQ(decoded.bytes, bytes);
  }
}

TEST(Base64Test, LineLengthZeroMakesNoLines) {
  EXPECT_EQ(Encode(std::string(300, 'x')).Find('\n'), AnsiStr::npos);
}

TEST(Base64Test, LinesEndAfterTheirLengthButTheLastDoesNot) {
  EXPECT_EQ(Encode("foobar", 4), "Zm9v\r\nYmFy");
  EXPECT_EQ(Encode("foobar", 3), "Zm9\r\nvYm\r\nFy");
  EXPECT_EQ(Encode("foobar", 8), "Zm9vYmFy");
  EXPECT_EQ(Encode("foobar", 7), "Zm9vYmF\r\ny");
  EXPECT_EQ(Encode("", 4), "");
}

TEST(Base64Test, DecodingReportsTheLengthBelowTheCapacity) {
  char buffer[64];
  std::uint32_t size = sizeof buffer;
  ASSERT_TRUE(B64Str2Binary("Zm9v\r\nYg==\r\n", buffer, size, "\r\n"));
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(std::memcmp(buffer, "foob", 4), 0);
}

TEST(Base64Test, DecodingFillsExactCapacity) {
  char buffer[4] = {};
  std::uint32_t size = 4;
  EXPECT_TRUE(B64Str2Binary("Zm9vYg==", buffer, size, nullptr));
  EXPECT_EQ(size, 4U);
}

TEST(Base64Test, DecodingNeverWritesPastTheCapacity) {
  char buffer[] = "....";
  std::uint32_t size = 3;
  EXPECT_FALSE(B64Str2Binary("Zm9vYg==", buffer, size, nullptr));
  EXPECT_EQ(buffer[3], '.');
  EXPECT_EQ(GetSystemErrorText(), "The decoded bytes do not fit their buffer");
}

TEST(Base64Test, RefusesWhatIsNotBase64) {
  const struct {
    std::string_view text;
    const char* reason;
  } kRows[] = {
      {"Z", "one digit"},
      {"Zg", "no padding"},
      {"Zg=", "half the padding"},
      {"Zg===", "too much padding"},
      {"Zm8==", "padding past the group"},
      {"=", "padding alone"},
      {"====", "a group of padding"},
      {"Z===", "padding after one digit"},
      {"Zg=g", "a digit after padding"},
      {"Zg==Zg==", "a group after the last"},
      {"Zg==\r\nZm9v", "a group after the last on another line"},
      {"Zh==", "bits that the padding cuts off"},
      {"Zm9=", "bits that the padding cuts off in the third place"},
      {"Zm9v ", "a character that is not ignored"},
      {"Zm9v\tZm9v", "a tabulator"},
      {"Zm9-", "the alphabet for URLs"},
      {"Zm9_", "the alphabet for URLs"},
      {"Zm9\0"sv, "a NUL byte"},
      {"Zm9\xFF", "a byte above 0x7F"},
      {"*m9v", "another character"},
  };
  for (const auto& row : kRows) {
    EXPECT_FALSE(Decode(B64Str2Binary, row.text).good) << row.reason;
    EXPECT_EQ(GetSystemErrorText(), "The text is not base64") << row.reason;
  }
}

TEST(Base64Test, IgnoredCharactersMayStandAnywhere) {
  EXPECT_EQ(Decode(B64Str2Binary, "\r\nZ\nm\r8\r\n=\n").bytes, "fo");
  EXPECT_EQ(Decode(B64Str2Binary, "Zg=\n=").bytes, "f");
  EXPECT_TRUE(Decode(B64Str2Binary, "\r\n").good);
  EXPECT_EQ(Decode(B64Str2Binary, "Z g==", " ").bytes, "f");
}

TEST(Base64Test, AFailureLeavesTheSizeAlone) {
  char buffer[8];
  std::uint32_t size = sizeof buffer;
  EXPECT_FALSE(B64Str2Binary("Zg=", buffer, size, nullptr));
  EXPECT_EQ(size, sizeof buffer);
}

TEST(Base64Test, TextCutAtAnyLengthDecodesToItsWholeGroupsOrFails) {
  const std::string plain = "A content key of 32 bytes, so to say";
  const AnsiStr text = Encode(plain);
  for (std::uint32_t length = 0; length < text.GetLength(); ++length) {
    const Decoded decoded = Decode(B64Str2Binary, text.View().substr(0, length));
    EXPECT_EQ(decoded.good, length % 4 == 0) << length;
    EXPECT_EQ(decoded.bytes, decoded.good ? plain.substr(0, std::size_t{length} / 4 * 3) : "");
  }
}

// Each value has exactly one encoding, so every changed character is noticed.
TEST(Base64Test, TextWithAnyByteChangedDecodesToOtherBytesOrFails) {
  const std::string plain = "sixteen bytes ab";
  const std::string text(Encode(plain).View());
  for (std::size_t place = 0; place < text.size(); ++place) {
    for (int change = 1; change < 256; ++change) {
      std::string changed = text;
      changed[place] = static_cast<char>(changed[place] ^ change);
      const Decoded decoded = Decode(B64Str2Binary, changed, nullptr);
      if (!decoded.good) continue;
      EXPECT_NE(decoded.bytes, plain);
      EXPECT_EQ(Encode(decoded.bytes).View(), changed);
    }
  }
}

TEST(Base64Test, DecodesIntoABlobOfTheExactSize) {
  const struct {
    std::string_view text;
    std::string_view bytes;
  } kRows[] = {{"", ""}, {"Zg==", "f"}, {"Zm9v", "foo"}, {"Zm9vYmFy", "foobar"}, {"Z\r\ng=\r\n=\r\n", "f"}};
  for (const auto& row : kRows) {
    Blob bytes(BlobConst{reinterpret_cast<const std::uint8_t*>("old content"), 11});
    EXPECT_TRUE(B64Str2Blob(AnsiStr(row.text), bytes, "\r\n")) << row.text;
    EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize()), row.bytes);
  }
}

TEST(Base64Test, LeavesTheBlobEmptyOnFailure) {
  for (const char* const text : {"Z", "Zg=", "Zg==Zg==", "Zm9v!", "Zh==", "\r\n="}) {
    Blob bytes(BlobConst{reinterpret_cast<const std::uint8_t*>("old content"), 11});
    EXPECT_FALSE(B64Str2Blob(text, bytes, "\r\n")) << text;
    EXPECT_TRUE(bytes.IsEmpty()) << text;
    EXPECT_EQ(GetSystemErrorText(), "The text is not base64") << text;
  }
}

TEST(Base64Test, ReportsWhenTheBlobCannotBeAllocated) {
  Blob bytes;
  const AnsiStr text("Zm9v");
  {
    const FailingMemory memory(0);
    EXPECT_FALSE(B64Str2Blob(text, bytes, ""));
  }
  EXPECT_EQ(GetLastError(), static_cast<std::uint32_t>(ENOMEM));
}

TEST(Base16Test, DecodesBothCases) {
  EXPECT_EQ(Decode(B16Str2Binary, "00ff7F80Aa").bytes, "\0\xFF\x7F\x80\xAA"sv);
  EXPECT_EQ(Decode(B16Str2Binary, "").bytes, "");
  EXPECT_TRUE(Decode(B16Str2Binary, "").good);
}

TEST(Base16Test, EncodesTwoDigitsAByte) {
  const std::string_view bytes = "\x00\x0A\xFF"sv;
  EXPECT_EQ(Binary2B16Str(bytes.data(), 3, /*upperCase=*/true), "000AFF");
  EXPECT_EQ(Binary2B16Str(bytes.data(), 3, /*upperCase=*/false), "000aff");
  EXPECT_TRUE(Binary2B16Str(nullptr, 0, /*upperCase=*/true).IsEmpty());
}

TEST(Base16Test, EveryByteRoundTrips) {
  const std::string bytes = AllBytes();
  for (const bool upper : {false, true}) {
    EXPECT_EQ(Decode(B16Str2Binary, Binary2B16Str(bytes.data(), 256, upper).View()).bytes, bytes);
  }
}

TEST(Base16Test, DecodingReportsTheLengthBelowTheCapacity) {
  char buffer[64];
  std::uint32_t size = sizeof buffer;
  ASSERT_TRUE(B16Str2Binary("0102\r\n03\r\n", buffer, size, "\r\n"));
  EXPECT_EQ(size, 3U);
}

TEST(Base16Test, DecodingNeverWritesPastTheCapacity) {
  char buffer[] = "....";
  std::uint32_t size = 3;
  EXPECT_FALSE(B16Str2Binary("01020304", buffer, size, nullptr));
  EXPECT_EQ(buffer[3], '.');
  EXPECT_EQ(size, 3U);
  EXPECT_EQ(GetSystemErrorText(), "The decoded bytes do not fit their buffer");
}

// An odd number of digits is refused too.
TEST(Base16Test, RefusesWhatIsNotHexadecimal) {
  const struct {
    std::string_view text;
    const char* reason;
  } kRows[] = {
      {"0", "an odd number of digits"},
      {"012", "an odd number of digits at the end"},
      {"0g", "no digit"},
      {"0x01", "a prefix"},
      {"01 02", "a character that is not ignored"},
      {"01:02", "colons between bytes"},
      {"-1", "a sign"},
      {"0\0"sv, "a NUL byte"},
      {"\xEF\xBC\x91", "a digit outside ASCII"},
  };
  for (const auto& row : kRows) {
    EXPECT_FALSE(Decode(B16Str2Binary, row.text).good) << row.reason;
    EXPECT_EQ(GetSystemErrorText(), "The text is not hexadecimal") << row.reason;
  }
}

TEST(Base16Test, TextCutAtAnyLengthDecodesToItsWholeBytesOrFails) {
  const std::string plain = "0123456789";
  const AnsiStr text = Binary2B16Str(plain.data(), 10, /*upperCase=*/false);
  for (std::uint32_t length = 0; length < text.GetLength(); ++length) {
    const Decoded decoded = Decode(B16Str2Binary, text.View().substr(0, length));
    EXPECT_EQ(decoded.good, length % 2 == 0);
    EXPECT_EQ(decoded.bytes, decoded.good ? plain.substr(0, length / 2) : "");
  }
}

TEST(Base16Test, TextWithAnyByteChangedDecodesToOtherBytesOrFails) {
  const std::string plain = "\x0F\x1E\x2D\x3C\x4B\x5A";
  const AnsiStr text = Binary2B16Str(plain.data(), 6, /*upperCase=*/false);
  for (std::size_t place = 0; place < text.GetLength(); ++place) {
    for (int change = 1; change < 256; ++change) {
      std::string changed(text.View());
      changed[place] = static_cast<char>(changed[place] ^ change);
      const Decoded decoded = Decode(B16Str2Binary, changed, nullptr);
      // The two cases of one digit are the only two strings for the same bytes.
      const bool sameDigit = (changed[place] | 0x20) == (text.View()[place] | 0x20) && change == 0x20;
      EXPECT_TRUE(!decoded.good || (decoded.bytes == plain) == sameDigit) << changed;
    }
  }
}

TEST(UTF8Test, AcceptsExactlyTheWellFormed) {
  const struct {
    std::string_view text;
    bool valid;
    const char* reason;
  } kRows[] = {
      {"", true, "nothing"},
      {"plain ASCII text, longer than eight bytes", true, "ASCII"},
      {"a\0b"sv, true, "NUL is a character"},
      {"\x7F", true, "last of one byte"},
      {"\xC2\x80", true, "first of two bytes"},
      {"\xDF\xBF", true, "last of two bytes"},
      {"\xE0\xA0\x80", true, "first of three bytes"},
      {"\xED\x9F\xBF", true, "last before the surrogates"},
      {"\xEE\x80\x80", true, "first after the surrogates"},
      {"\xEF\xBF\xBF", true, "last of three bytes"},
      {"\xF0\x90\x80\x80", true, "first of four bytes"},
      {"\xF4\x8F\xBF\xBF", true, "the last character"},
      {"12345678\xC3\xA4", true, "eight bytes of ASCII before"},
      {"1234567\xC3\xA4"
       "1234567890",
       true, "across the eighth byte"},
      {"\x80", false, "a continuation alone"},
      {"12345678\x80", false, "a continuation after ASCII"},
      {"\xC3", false, "a lead alone"},
      {"\xC3"
       "a",
       false, "a lead before ASCII"},
      {"\xC0\x80", false, "overlong NUL"},
      {"\xC1\xBF", false, "overlong of two bytes"},
      {"\xE0\x9F\xBF", false, "overlong of three bytes"},
      {"\xF0\x8F\xBF\xBF", false, "overlong of four bytes"},
      {"\xED\xA0\x80", false, "a high surrogate"},
      {"\xED\xBF\xBF", false, "a low surrogate"},
      {"\xF4\x90\x80\x80", false, "above the last character"},
      {"\xF5\x80\x80\x80", false, "a lead that no character has"},
      {"\xFE", false, "no byte of UTF-8"},
      {"\xFF", false, "no byte of UTF-8"},
      {"\xE2\x82", false, "cut after two of three"},
      {"\xF0\x9F\x98", false, "cut after three of four"},
      {"\xE2\x28\xA1", false, "no continuation in the second place"},
      {"\xE2\x82\x28", false, "no continuation in the third place"},
      {"\xF0\x90\x80\x28", false, "no continuation in the fourth place"},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(IsValidUTF8(row.text.data(), static_cast<std::uint32_t>(row.text.size())), row.valid)
        << row.reason;
  }
}

}  // namespace
}  // namespace OruGuiBase
