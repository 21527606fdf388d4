#include "security/ber/walker.h"

#include <gtest/gtest.h>
#include <optional>

#include "tests/security/ber/fixture.h"

namespace SecurityTest {
namespace {

using OruOssSec::BerBuffer;
using OruOssSec::BerOctets;
using OruOssSec::BerReader;
using OruOssSec::BerWalker;

constexpr const char* kUnexpected = "The message is not built as its content type demands";
constexpr const char* kTooLarge = "The message without its content is too large";

std::string BytesOf(const BerBuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.GetData()), buffer.GetSize());
}

class BerWalkerTest : public testing::Test {
 protected:
  BerWalker& Walk(const std::string& bytes) {
    OruGuiBase::ClearLastError();
    source_.emplace(bytes);
    reader_.emplace(*source_);
    return walker_.emplace(*reader_);
  }

  std::optional<WatchedSource> source_;
  std::optional<BerReader> reader_;
  std::optional<BerWalker> walker_;
  BerBuffer taken_;
};

TEST_F(BerWalkerTest, WalksContainersOfBothLengths) {
  const std::string inner = Tlv(0x02, "\x05") + Tlv(0x06, "oid");
  for (const std::string& bytes : {Tlv(0x30, Tlv(0xA0, inner)), Open(0x30, Open(0xA0, inner)),
                                   Open(0x30, Tlv(0xA0, inner)), Tlv(0x30, Open(0xA0, inner))}) {
    BerBuffer oid;
    BerWalker& walker = Walk(bytes);
    EXPECT_TRUE(walker.Enter(0x30));
    EXPECT_TRUE(walker.Is(0xA0));
    EXPECT_TRUE(walker.Enter(0xA0));
    EXPECT_FALSE(walker.Is(0x06));
    EXPECT_TRUE(walker.Take(0x02, taken_));
    EXPECT_FALSE(walker.IsAtEnd());
    EXPECT_TRUE(walker.TakeContents(0x06, oid));
    EXPECT_TRUE(walker.IsAtEnd());
    EXPECT_TRUE(walker.Leave());
    EXPECT_TRUE(walker.Leave());
    EXPECT_TRUE(walker.Finish()) << GetReason();
    EXPECT_EQ(BytesOf(oid), "oid");
  }
}

TEST_F(BerWalkerTest, CopiesTakenElementsUnchanged) {
  const std::string element = Open(0x31, Tlv(0x30, Hex("0000")) + Open(0x30, Hex("04 81 01 FF")));
  BerWalker& walker = Walk(Tlv(0x30, element + Tlv(0x02, "x")));
  ASSERT_TRUE(walker.Enter(0x30));
  ASSERT_TRUE(walker.Take(0x31, taken_)) << GetReason();
  EXPECT_EQ(BytesOf(taken_), element);
  ASSERT_TRUE(walker.Take(0x02, taken_));
  EXPECT_EQ(BytesOf(taken_), element + Tlv(0x02, "x"));
}

TEST_F(BerWalkerTest, SkipsElementsOfEveryForm) {
  BerWalker& walker = Walk(Open(0x30, Open(0x31, Open(0x30, "")) + Tlv(0x1F, Hex("22")) + Tlv(0x02, "x")));
  ASSERT_TRUE(walker.Enter(0x30));
  EXPECT_TRUE(walker.SkipAny());
}

TEST_F(BerWalkerTest, KeepsTheFirstFailureAndEndsTheWalk) {
  BerWalker& walker = Walk(Tlv(0x30, Tlv(0x02, "x") + Tlv(0x04, "y")));
  ASSERT_TRUE(walker.Enter(0x30));
  EXPECT_FALSE(walker.Take(0x06, taken_));
  EXPECT_EQ(GetReason(), kUnexpected);
  EXPECT_TRUE(walker.IsFailed());
  BerOctets octets;
  EXPECT_FALSE(walker.Is(0x02));
  EXPECT_FALSE(walker.IsAtEnd());
  EXPECT_FALSE(walker.Enter(0x02));
  EXPECT_FALSE(walker.Take(0x02, taken_));
  EXPECT_FALSE(walker.TakeContents(0x02, taken_));
  EXPECT_FALSE(walker.SkipAny());
  EXPECT_FALSE(walker.SkipOctets(0x04, octets));
  EXPECT_FALSE(walker.Leave());
  EXPECT_FALSE(walker.Finish());
  EXPECT_TRUE(taken_.IsEmpty());
}

TEST_F(BerWalkerTest, RefusesToLeaveAContainerWithElementsLeft) {
  BerWalker& walker = Walk(Tlv(0x30, Tlv(0x02, "x")));
  ASSERT_TRUE(walker.Enter(0x30));
  EXPECT_FALSE(walker.Leave());
  EXPECT_EQ(GetReason(), kUnexpected);
}

TEST_F(BerWalkerTest, FindsNothingInAnEmptyContainer) {
  for (const std::string& bytes : {Tlv(0x30, ""), Open(0x30, "")}) {
    BerOctets octets;
    ASSERT_TRUE(Walk(bytes).Enter(0x30));
    EXPECT_FALSE(walker_->Take(0x02, taken_));
    EXPECT_EQ(GetReason(), kUnexpected);
    ASSERT_TRUE(Walk(bytes).Enter(0x30));
    EXPECT_FALSE(walker_->SkipAny());
    EXPECT_EQ(GetReason(), kUnexpected);
    ASSERT_TRUE(Walk(bytes).Enter(0x30));
    EXPECT_FALSE(walker_->SkipOctets(0x04, octets));
    EXPECT_EQ(GetReason(), kUnexpected);
  }
}

TEST_F(BerWalkerTest, RefusesEndOfContentsInADefiniteLength) {
  ASSERT_TRUE(Walk(Tlv(0x30, Hex("0000"))).Enter(0x30));
  EXPECT_FALSE(walker_->SkipAny());
  EXPECT_EQ(GetReason(), kUnexpected);
}

TEST_F(BerWalkerTest, TakesContentsOnlyOfPrimitiveElements) {
  EXPECT_FALSE(Walk(Tlv(0x26, Tlv(0x06, "x"))).TakeContents(0x26, taken_));
  EXPECT_EQ(GetReason(), kUnexpected);
}

TEST_F(BerWalkerTest, RefusesBytesAfterTheEnd) {
  BerWalker& walker = Walk(Tlv(0x30, "") + std::string(1, '\0'));
  ASSERT_TRUE(walker.Enter(0x30));
  ASSERT_TRUE(walker.Leave());
  EXPECT_FALSE(walker.Finish());
  EXPECT_EQ(GetReason(), "The message is followed by other bytes");
}

TEST_F(BerWalkerTest, EntersContainersToAFixedDepth) {
  std::string bytes;
  for (std::uint32_t i = 0; i <= BerWalker::kMaxDepth; ++i) bytes = Tlv(0x30, bytes);
  BerWalker& walker = Walk(bytes);
  for (std::uint32_t i = 0; i < BerWalker::kMaxDepth; ++i) ASSERT_TRUE(walker.Enter(0x30));
  EXPECT_FALSE(walker.Enter(0x30));
  EXPECT_EQ(GetReason(), "The message is nested too deeply");
}

TEST_F(BerWalkerTest, FollowsIndefiniteLengthsToAFixedDepth) {
  std::string bytes = Tlv(0x02, "x");
  for (std::uint32_t i = 0; i < BerWalker::kMaxInnerDepth; ++i) bytes = Open(0x30, bytes);
  EXPECT_TRUE(Walk(bytes).Take(0x30, taken_)) << GetReason();
  bytes = Open(0x30, bytes);
  EXPECT_FALSE(Walk(bytes).Take(0x30, taken_));
  EXPECT_EQ(GetReason(), "The message is nested too deeply");
  EXPECT_FALSE(Walk(bytes).SkipAny());
}

TEST_F(BerWalkerTest, LimitsTheSumOfAllTakenElements) {
  const std::string half = Tlv(0x04, std::string(BerWalker::kMaxTaken / 2 - 5, 'x'));
  BerWalker& walker = Walk(Tlv(0x30, half + half + Tlv(0x02, "")));
  ASSERT_TRUE(walker.Enter(0x30));
  ASSERT_TRUE(walker.Take(0x04, taken_)) << GetReason();
  ASSERT_TRUE(walker.Take(0x04, taken_)) << GetReason();
  EXPECT_EQ(taken_.GetSize(), BerWalker::kMaxTaken);
  EXPECT_FALSE(walker.Take(0x02, taken_));
  EXPECT_EQ(GetReason(), kTooLarge);
}

TEST_F(BerWalkerTest, FailsForATooLargeElementWithoutReadingIt) {
  EXPECT_FALSE(Walk(Tlv(0x04, std::string(BerWalker::kMaxTaken, 'x'))).Take(0x04, taken_));
  EXPECT_EQ(GetReason(), kTooLarge);
  EXPECT_EQ(source_->reads, 1);
  EXPECT_TRUE(taken_.IsEmpty());
}

TEST_F(BerWalkerTest, EndsWithTheReasonOfAFailedSource) {
  Walk(Tlv(0x30, Tlv(0x04, std::string(100000, 'x'))));
  source_->failsFrom = 50000;
  ASSERT_TRUE(walker_->Enter(0x30));
  EXPECT_FALSE(walker_->Take(0x04, taken_));
  EXPECT_EQ(GetReason(), "The source failed");
  EXPECT_FALSE(walker_->SkipAny());
}

TEST_F(BerWalkerTest, IsNotRefusedWhenTheSourceFails) {
  Walk(Open(0x30, Tlv(0x04, std::string(100000, 'x'))));
  source_->failsFrom = 50000;
  ASSERT_TRUE(walker_->Enter(0x30));
  ASSERT_TRUE(walker_->SkipAny());
  EXPECT_FALSE(walker_->Leave());
  EXPECT_EQ(GetReason(), "The source failed");
  EXPECT_FALSE(reader_->IsRefused());
}

TEST_F(BerWalkerTest, IsNotRefusedBeyondTheSizeLimit) {
  for (const std::string& bytes : {Tlv(0x30, Tlv(0x04, std::string(BerWalker::kMaxTaken, 'x'))),
                                   Open(0x30, Tlv(0x04, std::string(BerWalker::kMaxTaken, 'x')))}) {
    EXPECT_FALSE(Walk(bytes).Take(0x30, taken_));
    EXPECT_EQ(GetReason(), kTooLarge);
    EXPECT_FALSE(reader_->IsRefused());
  }
}

TEST_F(BerWalkerTest, IsRefusedForInvalidBytes) {
  EXPECT_FALSE(Walk(Tlv(0x30, "")).Enter(0x31));
  EXPECT_TRUE(reader_->IsRefused());
}

}  // namespace
}  // namespace SecurityTest
