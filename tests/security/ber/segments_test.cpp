#include "security/ber/segments.h"

#include <gtest/gtest.h>

#include "security/ber/walker.h"
#include "tests/security/ber/fixture.h"

namespace SecurityTest {
namespace {

using OruOssSec::BerContent;
using OruOssSec::BerOctets;
using OruOssSec::BerReader;
using OruOssSec::BerSpan;
using OruOssSec::BerWalker;

/// The octets of the string in the bytes, or the reason why they are none.
std::string Read(WatchedSource& source, std::uint8_t identifier = 0x04) {
  OruGuiBase::ClearLastError();
  BerReader reader(source);
  BerWalker walker(reader);
  BerOctets octets;
  if (!walker.SkipOctets(identifier, octets) || !walker.Finish()) return GetReason();
  std::string bytes;
  BerContent content(source, octets);
  BerSpan span;
  do {
    if (!content.Next(span)) return GetReason();
    bytes.append(reinterpret_cast<const char*>(span.data), span.size);
  } while (span.size > 0);
  EXPECT_EQ(bytes.size(), octets.length);
  return bytes;
}

struct Row {
  const char* why;
  std::string bytes;
  const char* result;
};

std::string Nest(int levels, bool definite) {
  std::string bytes = Tlv(0x04, "deep");
  for (int i = 0; i < levels; ++i) bytes = definite ? Tlv(0x24, bytes) : Open(0x24, bytes);
  return bytes;
}

TEST(BerSegmentsTest, ReadsEveryFormOfAnOctetString) {
  const Row rows[] = {
      {"primitive", Tlv(0x04, "abc"), "abc"},
      {"empty primitive", Tlv(0x04, ""), ""},
      {"definite without segments", Tlv(0x24, ""), ""},
      {"indefinite without segments", Open(0x24, ""), ""},
      {"one segment", Tlv(0x24, Tlv(0x04, "abc")), "abc"},
      {"segments, definite", Tlv(0x24, Tlv(0x04, "ab") + Tlv(0x04, "c")), "abc"},
      {"segments, indefinite", Open(0x24, Tlv(0x04, "ab") + Tlv(0x04, "c")), "abc"},
      {"empty segments between", Open(0x24, Tlv(0x04, "") + Tlv(0x04, "a") + Tlv(0x04, "") + Tlv(0x04, "b")),
       "ab"},
      {"segments in segments", Open(0x24, Open(0x24, Tlv(0x04, "a")) + Tlv(0x24, Tlv(0x04, "b"))), "ab"},
      {"definite in indefinite in definite",
       Tlv(0x24, Open(0x24, Tlv(0x24, Tlv(0x04, "a"))) + Tlv(0x04, "b")), "ab"},
      {"empty levels", Open(0x24, Open(0x24, "") + Tlv(0x24, "") + Tlv(0x04, "a")), "a"},
      {"length not in its shortest form", Open(0x24, Hex("04 83 000001 61")), "a"},
      {"deepest nesting, definite", Nest(8, true), "deep"},
      {"deepest nesting, indefinite", Nest(8, false), "deep"},
  };
  for (const Row& row : rows) {
    WatchedSource source(row.bytes);
    EXPECT_EQ(Read(source), row.result) << row.why;
    EXPECT_FALSE(source.outside) << row.why;
  }
}

TEST(BerSegmentsTest, ExpectsAnImplicitTagOnlyAtTheOuterIdentifier) {
  WatchedSource primitive(Tlv(0x80, "abc"));
  EXPECT_EQ(Read(primitive, 0x80), "abc");
  WatchedSource segments(Open(0xA0, Tlv(0x04, "ab") + Tlv(0x04, "c")));
  EXPECT_EQ(Read(segments, 0x80), "abc");
  WatchedSource wrong(Open(0xA0, Tlv(0x80, "abc")));
  EXPECT_EQ(Read(wrong, 0x80), "The content is not an octet string");
}

TEST(BerSegmentsTest, RefusesEveryOtherFormWithAReason) {
  const char* const kNone = "The content is not an octet string";
  const char* const kDeep = "The segments of the content are nested too deeply";
  const char* const kCut = "The message ends inside a header";
  const char* const kPasses = "A length of the message passes the end of what holds it";
  const Row rows[] = {
      {"another type", Tlv(0x0C, "abc"), kNone},
      {"end of contents", Hex("0000"), kNone},
      {"segment of another type", Open(0x24, Tlv(0x0C, "abc")), kNone},
      {"segment of an implicit tag", Open(0x24, Tlv(0x80, "abc")), kNone},
      {"end of contents in a definite length", Tlv(0x24, Tlv(0x04, "a") + Hex("0000")), kNone},
      {"indefinite without its end", Hex("2480") + Tlv(0x04, "abc"), kCut},
      {"inner one without its end", Hex("2480 2480") + Tlv(0x04, "abc") + Hex("0000"), kCut},
      {"segment that passes its string", Hex("24 04 04 03 616263"), kPasses},
      {"segment that passes the file", Hex("2480 04 06 616263 0000"), kPasses},
      {"string that passes the file", Hex("24 08 04 03 616263"), kPasses},
      {"segment of 2^63 - 1", Hex("2480 04 88 7FFFFFFFFFFFFFFF 0000"), kPasses},
      {"too deep, definite", Nest(9, true), kDeep},
      {"too deep, indefinite", Nest(9, false), kDeep},
      {"bytes after it", Tlv(0x04, "abc") + "x", "The message is followed by other bytes"},
  };
  for (const Row& row : rows) {
    WatchedSource source(row.bytes);
    EXPECT_EQ(Read(source), row.result) << row.why;
    EXPECT_FALSE(source.outside) << row.why;
  }
}

TEST(BerSegmentsTest, ReadsSmallSegmentsWithFewReads) {
  std::string segments;
  for (int i = 0; i < 20000; ++i) segments += Tlv(0x04, std::string(100, 'x'));
  WatchedSource source(Open(0x24, segments));
  EXPECT_EQ(Read(source), std::string(2000000, 'x'));
  EXPECT_LE(source.reads, 50);
}

TEST(BerSegmentsTest, ReadsOnlyTheHeadersOfLargeSegmentsWhileScanning) {
  std::string segments;
  for (int i = 0; i < 64; ++i) segments += Tlv(0x04, std::string(262144, 'x'));
  WatchedSource source(Open(0x24, segments));
  BerReader reader(source);
  BerWalker walker(reader);
  BerOctets octets;
  ASSERT_TRUE(walker.SkipOctets(0x04, octets));
  EXPECT_EQ(octets.length, 64U * 262144);
  EXPECT_LE(source.reads, 70);
  EXPECT_LE(source.largest, 4096U);
}

TEST(BerSegmentsTest, RefusesAStringThatChangedAfterItWasMeasured) {
  const std::string before = Open(0x24, Tlv(0x04, "abc") + Tlv(0x04, "de"));
  WatchedSource measured(before);
  BerReader reader(measured);
  BerWalker walker(reader);
  BerOctets octets;
  ASSERT_TRUE(walker.SkipOctets(0x04, octets));
  for (const std::string& after :
       {Open(0x24, Tlv(0x04, "abc") + Hex("0000")), Open(0x24, Tlv(0x04, "abcdefg"))}) {
    OruGuiBase::ClearLastError();
    WatchedSource changed(after);
    BerContent content(changed, octets);
    BerSpan span;
    bool read = true;
    do {
      read = content.Next(span);
    } while (read && span.size > 0);
    EXPECT_FALSE(read);
    EXPECT_EQ(GetReason(), "The file changed while it was read");
  }
}

TEST(BerSegmentsTest, KeepsTheReasonOfAFailedSource) {
  WatchedSource source(Tlv(0x04, std::string(1 << 20, 'x')));
  source.failsFrom = 500000;
  EXPECT_EQ(Read(source), "The source failed");
}

}  // namespace
}  // namespace SecurityTest
