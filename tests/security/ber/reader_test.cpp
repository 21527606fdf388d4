#include "security/ber/reader.h"

#include <gtest/gtest.h>

#include "tests/security/ber/fixture.h"

namespace SecurityTest {
namespace {

using OruOssSec::BerHeader;
using OruOssSec::BerReader;
using OruOssSec::BerSpan;

constexpr const char* kCut = "The message ends inside a header";
constexpr const char* kPasses = "A length of the message passes the end of what holds it";

struct HeaderRow {
  const char* why;
  std::string bytes;
  std::uint64_t length;
  std::uint32_t size;
  bool indefinite;
};

TEST(BerReaderTest, ReadsEveryFormOfAHeader) {
  const HeaderRow rows[] = {
      {"short length", Hex("04 03 010203"), 3, 2, false},
      {"empty", Hex("04 00"), 0, 2, false},
      {"longest short form", Hex("04 7F") + std::string(127, 'x'), 127, 2, false},
      {"one octet", Hex("04 81 80") + std::string(128, 'x'), 128, 3, false},
      {"not the shortest form", Hex("04 81 01 FF"), 1, 3, false},
      {"leading zeros", Hex("04 88 0000000000000002 FFFF"), 2, 10, false},
      {"sixteen octets, the most", Hex("04 90 00000000000000000000000000000001 FF"), 1, 18, false},
      {"no octets of length 0 in long form", Hex("04 81 00"), 0, 3, false},
      {"indefinite", Hex("30 80 0000"), 0, 2, true},
      {"indefinite octet string", Hex("24 80 0000"), 0, 2, true},
      {"high tag number", Hex("1F 22 01 FF"), 1, 3, false},
      {"high tag number of five octets", Hex("9F 8F8F8F8F0F 00"), 0, 7, false},
      {"end of contents", Hex("00 00"), 0, 2, false},
  };
  for (const HeaderRow& row : rows) {
    WatchedSource source(row.bytes);
    BerReader reader(source);
    BerHeader header;
    ASSERT_TRUE(reader.ReadHeader(0, row.bytes.size(), header)) << row.why << ": " << GetReason();
    EXPECT_EQ(header.length, row.length) << row.why;
    EXPECT_EQ(header.size, row.size) << row.why;
    EXPECT_EQ(header.indefinite, row.indefinite) << row.why;
    EXPECT_FALSE(source.outside) << row.why;
  }
}

struct RefusedRow {
  const char* why;
  std::string bytes;
  const char* reason;
};

TEST(BerReaderTest, RefusesEveryOtherHeaderWithAReason) {
  const RefusedRow rows[] = {
      {"nothing", "", kCut},
      {"identifier alone", Hex("04"), kCut},
      {"length octets missing", Hex("04 82 01"), kCut},
      {"all length octets missing", Hex("04 84"), kCut},
      {"tag number missing", Hex("1F"), kCut},
      {"tag number without end", Hex("1F 8F"), kCut},
      {"tag number of six octets", Hex("1F 8F8F8F8F8F0F 00"), "A tag number of the message is too large"},
      {"contents missing", Hex("04 01"), kPasses},
      {"contents cut", Hex("04 03 0102"), kPasses},
      {"length of 4 GiB", Hex("04 85 0100000000"), kPasses},
      {"largest length", Hex("04 88 7FFFFFFFFFFFFFFF"), kPasses},
      {"length of 64 bits", Hex("04 88 8000000000000000"), "A length of the message is too large"},
      {"length of all ones", Hex("04 88 FFFFFFFFFFFFFFFF"), "A length of the message is too large"},
      {"length beyond 64 bits", Hex("04 89 010000000000000000"), "A length of the message is too large"},
      {"seventeen length octets", Hex("04 91") + std::string(17, '\0'),
       "A length of the message has too many octets"},
      {"reserved length octet", Hex("04 FF") + std::string(127, '\0'),
       "A length of the message has too many octets"},
      {"primitive without a length", Hex("04 80 0000"), "A primitive element of the message has no length"},
      {"end of contents with contents", Hex("00 01 00"), "An end-of-contents of the message is not empty"},
      {"end of contents in long form", Hex("00 81 00"), "An end-of-contents of the message is not empty"},
  };
  for (const RefusedRow& row : rows) {
    OruGuiBase::ClearLastError();
    WatchedSource source(row.bytes);
    BerReader reader(source);
    BerHeader header;
    EXPECT_FALSE(reader.ReadHeader(0, row.bytes.size(), header)) << row.why;
    EXPECT_EQ(GetReason(), row.reason) << row.why;
    EXPECT_FALSE(source.outside) << row.why;
  }
}

TEST(BerReaderTest, RefusesAHeaderBeyondTheEndOfTheContainer) {
  OruGuiBase::ClearLastError();
  WatchedSource source(Hex("04 81 01 FF"));
  BerReader reader(source);
  BerHeader header;
  EXPECT_FALSE(reader.ReadHeader(0, 2, header));
  EXPECT_EQ(GetReason(), kCut);
}

TEST(BerReaderTest, RefusesContentsBeyondTheEndOfTheContainer) {
  OruGuiBase::ClearLastError();
  WatchedSource source(Hex("04 02 FFFF"));
  BerReader reader(source);
  BerHeader header;
  EXPECT_FALSE(reader.ReadHeader(0, 3, header));
  EXPECT_EQ(GetReason(), kPasses);
}

TEST(BerReaderTest, ReadsOnwardsWithFewLargeReads) {
  WatchedSource source(std::string(8 << 20, 'x'));
  BerReader reader(source);
  BerSpan span;
  for (std::uint64_t offset = 0; offset < source.GetSize(); offset += span.size) {
    ASSERT_TRUE(reader.Fetch(offset, 1, span));
    ASSERT_GT(span.size, 0U);
  }
  EXPECT_EQ(source.largest, OruGuiBase::kStreamBuffer);
  EXPECT_LE(source.reads, 40);
}

TEST(BerReaderTest, ReadsLittleAfterAJump) {
  WatchedSource source(std::string(8 << 20, 'x'));
  BerReader reader(source);
  BerSpan span;
  for (std::uint64_t offset = 0; offset < source.GetSize(); offset += std::uint64_t{256} * 1024) {
    ASSERT_TRUE(reader.Fetch(offset, 1, span));
  }
  EXPECT_LE(source.largest, 4096U);
}

TEST(BerReaderTest, ReadsASmallSourceOnceAndWhole) {
  WatchedSource source(std::string(100, 'x'));
  BerReader reader(source);
  BerSpan span;
  for (std::uint64_t offset = 0; offset < 100; ++offset) {
    ASSERT_TRUE(reader.Fetch(offset, 1, span));
    EXPECT_EQ(span.size, 100U - offset);
  }
  EXPECT_EQ(source.reads, 1);
}

TEST(BerReaderTest, ReadsBackwardsToo) {
  std::string bytes(3 << 20, 'x');
  bytes[5] = 'y';
  WatchedSource source(bytes);
  BerReader reader(source);
  BerSpan span;
  ASSERT_TRUE(reader.Fetch(2 << 20, 1, span));
  ASSERT_TRUE(reader.Fetch(5, 1, span));
  EXPECT_EQ(*span.data, 'y');
}

TEST(BerReaderTest, GivesNoBytesAfterAFailedRead) {
  WatchedSource source(std::string(1 << 20, 'x'));
  BerReader reader(source);
  BerSpan span;
  ASSERT_TRUE(reader.Fetch(0, 1, span));
  source.failsFrom = 0;
  EXPECT_FALSE(reader.Fetch(500000, 1, span));
  EXPECT_FALSE(reader.Fetch(0, 1, span)) << "the window was given up";
  EXPECT_FALSE(reader.Fetch(500000, 1, span));
}

TEST(BerBufferTest, WritesHeadersInTheirShortestForm) {
  struct {
    std::uint64_t length;
    const char* header;
  } const rows[] = {
      {0, "0400"},
      {127, "047F"},
      {128, "048180"},
      {255, "0481FF"},
      {256, "04820100"},
      {65535, "0482FFFF"},
      {65536, "0483010000"},
      {0xFFFFFFFF, "0484FFFFFFFF"},
      {0x100000000, "04850100000000"},
      {0x7FFFFFFFFFFFFFFF, "04887FFFFFFFFFFFFFFF"},
  };
  for (const auto& row : rows) {
    OruOssSec::BerBuffer buffer;
    ASSERT_TRUE(buffer.AppendHeader(0x04, row.length));
    const std::string bytes(reinterpret_cast<const char*>(buffer.GetData()), buffer.GetSize());
    EXPECT_EQ(CryptStand::ToHex(bytes, true), row.header);
  }
}

}  // namespace
}  // namespace SecurityTest
