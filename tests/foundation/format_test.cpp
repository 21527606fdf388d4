#include "foundation/format.h"

#include <cwchar>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/foundation/memory_limit.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

__attribute__((format(printf, 1, 2))) AnsiStr Forward(const char* format, ...) {
  std::va_list list;
  va_start(list, format);
  AnsiStr text = FmtList(format, list);
  va_end(list);
  return text;
}

TEST(FormatTest, FormatsLikePrintf) {
  EXPECT_EQ(FmtArgs("request[%02u] = %s", 7U, "{}"), "request[07] = {}");
  EXPECT_EQ(Forward("%d %x", -1, 255U), "-1 ff");
}

TEST(FormatTest, NothingToFormatIsTheEmptyString) {
  EXPECT_EQ(FmtArgs("%s", "").GetImp(), nullptr);
}

TEST(FormatTest, LongResultsAreComplete) {
  const std::string text(200000, 'a');
  EXPECT_EQ(FmtArgs("%s!", text.c_str()).View(), text + "!");
}

TEST(FormatTest, PerCentSignsOfAnArgumentStayAsTheyAre) {
  EXPECT_EQ(FmtArgs("%s", "100%n%s"), "100%n%s");
}

TEST(FormatTest, AStringArgumentEndsAtItsFirstNulByte) {
  const AnsiStr text(std::string_view("a\0b", 3));
  EXPECT_EQ(FmtArgs("<%s>", text.GetText()), "<a>");
}

TEST(FormatTest, AConversionThatFailsGivesTheEmptyString) {
  // A wide character outside the "C" locale's set cannot be converted.
  EXPECT_TRUE(FmtArgs("%lc", static_cast<std::wint_t>(0x20AC)).IsEmpty());
}

/// A string of 2 GiB that needs one megabyte: the same pages repeatedly, and a NUL after them.
class HugeText {
 public:
  HugeText() : pages_(::memfd_create("text", MFD_CLOEXEC)) {
    const std::string chunk(kChunk, 'x');
    const bool isWritten = ::write(pages_, chunk.data(), kChunk) == static_cast<ssize_t>(kChunk);
    place_ =
        static_cast<char*>(::mmap(nullptr, kSize + kChunk, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_TRUE(isWritten && place_ != MAP_FAILED);
    for (std::size_t at = 0; at < kSize; at += kChunk) {
      EXPECT_NE(::mmap(place_ + at, kChunk, PROT_READ, MAP_SHARED | MAP_FIXED, pages_, 0), MAP_FAILED);
    }
  }
  HugeText(const HugeText&) = delete;
  HugeText& operator=(const HugeText&) = delete;
  ~HugeText() {
    ::munmap(place_, kSize + kChunk);
    ::close(pages_);
  }
  const char* Get() const { return place_; }

 private:
  static constexpr std::size_t kSize = std::size_t{1} << 31;
  static constexpr std::size_t kChunk = std::size_t{1} << 20;

  int pages_;
  char* place_ = nullptr;
};

// The C library counts in int, so it has no length for a longer result.
TEST(FormatTest, AResultTooLongToCountSaysSo) {
  if (IsMemorySanitized()) GTEST_SKIP() << "a sanitizer's own vsnprintf aborts when it fails";
  const HugeText text;
  EXPECT_EQ(FmtArgs("Unexpected content type %s", text.Get()), "Unexpected content type (text too long)");
  EXPECT_EQ(FmtArgs("%s: %s", "what", text.Get()), "(text too long)");
}

TEST(FormatTest, QuotesSurroundAndEscape) {
  EXPECT_EQ(SimpleQuote("plain"), "\"plain\"");
  EXPECT_EQ(SimpleQuote(""), "\"\"");
  EXPECT_EQ(SimpleQuote("a\"b\\c"), "\"a\\\"b\\\\c\"");
  EXPECT_EQ(SimpleQuote("a\nb\x7F"), "\"a\\x0ab\\x7f\"");
  EXPECT_EQ(SimpleQuote("\xC3\xA4"), "\"\xC3\xA4\"");
}

TEST(FormatTest, QuotingKeepsNulBytesVisible) {
  EXPECT_EQ(SimpleQuote(AnsiStr(std::string_view("a\0b", 3))), "\"a\\x00b\"");
}

}  // namespace
}  // namespace OruGuiBase
