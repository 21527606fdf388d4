// The profile of messages that are read: each shape that is accepted and each reason of a refusal.
#include "security/cms/skeleton.h"

#include <gtest/gtest.h>

#include "tests/security/ber/fixture.h"
#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

using OruOssSec::CmsSkeleton;

constexpr const char* kUnexpected = "The message is not built as its content type demands";
constexpr const char* kNoOctets = "The content is not an octet string";
constexpr const char* kNoOid = "A content type of the message is no object identifier";

const std::string kSigned = Tlv(0x06, Hex("2A864886F70D010702"));
const std::string kEnveloped = Tlv(0x06, Hex("2A864886F70D010703"));
const std::string kDigested = Tlv(0x06, Hex("2A864886F70D010705"));
const std::string kData = Tlv(0x06, Hex("2A864886F70D010701"));
const std::string kVersion = Hex("020101");
const std::string kAlgorithm = Tlv(0x30, Tlv(0x06, Hex("608648016503040201")));
const std::string kCipher = Tlv(0x30, Tlv(0x06, Hex("60864801650304012A")) + Tlv(0x04, std::string(16, 'i')));
const std::string kContent = Tlv(0x04, "content");
const std::string kEncapsulated = Tlv(0x30, kData + Tlv(0xA0, kContent));

std::string Message(const std::string& oid, const std::string& fields) {
  return Tlv(0x30, oid + Tlv(0xA0, Tlv(0x30, fields)));
}
std::string Signed(const std::string& fields) {
  return Message(kSigned, fields);
}
std::string Enveloped(const std::string& fields) {
  return Message(kEnveloped, fields);
}
std::string Digested(const std::string& fields) {
  return Message(kDigested, fields);
}

std::string ReasonOfReading(const std::string& bytes) {
  OruGuiBase::ClearLastError();
  WatchedSource source(bytes);
  CmsSkeleton skeleton;
  const bool read = ReadSkeleton(source, skeleton);
  EXPECT_FALSE(source.outside);
  return ReasonOf(read);
}

struct Row {
  const char* why;
  std::string bytes;
};

TEST(CmsSkeletonTest, AcceptsEveryShapeOfTheProfile) {
  const std::string some = Tlv(0xA0, Tlv(0x30, "x"));
  const std::string lists = Tlv(0xA1, Tlv(0x30, "x"));
  const Row rows[] = {
      {"signed", Signed(kVersion + Tlv(0x31, kAlgorithm) + kEncapsulated + Tlv(0x31, ""))},
      {"signed with certificates", Signed(kVersion + Tlv(0x31, "") + kEncapsulated + some + Tlv(0x31, ""))},
      {"signed with revocation lists",
       Signed(kVersion + Tlv(0x31, "") + kEncapsulated + lists + Tlv(0x31, ""))},
      {"signed with both", Signed(kVersion + Tlv(0x31, "") + kEncapsulated + some + lists + Tlv(0x31, ""))},
      {"signed, detached", Signed(kVersion + Tlv(0x31, "") + Tlv(0x30, kData) + Tlv(0x31, ""))},
      {"signed, empty content",
       Signed(kVersion + Tlv(0x31, "") + Tlv(0x30, kData + Tlv(0xA0, Tlv(0x04, ""))) + Tlv(0x31, ""))},
      {"enveloped, primitive",
       Enveloped(kVersion + Tlv(0x31, "") + Tlv(0x30, kData + kCipher + Tlv(0x80, "x")))},
      {"enveloped, segments",
       Enveloped(kVersion + Tlv(0x31, "") + Tlv(0x30, kData + kCipher + Tlv(0xA0, Tlv(0x04, "x"))))},
      {"enveloped, without content", Enveloped(kVersion + Tlv(0x31, "") + Tlv(0x30, kData + kCipher))},
      {"enveloped, originator and attributes",
       Enveloped(kVersion + some + Tlv(0x31, "") + Tlv(0x30, kData + kCipher + Tlv(0x80, "x")) + lists)},
      {"digested", Digested(kVersion + kAlgorithm + kEncapsulated + Tlv(0x04, "digest"))},
      {"digested, detached", Digested(kVersion + kAlgorithm + Tlv(0x30, kData) + Tlv(0x04, "digest"))},
      {"data", Tlv(0x30, kData + Tlv(0xA0, kContent))},
      {"data, segments", Open(0x30, kData + Open(0xA0, Open(0x24, kContent + kContent)))},
      {"data that is no octet string", Tlv(0x30, kData + Tlv(0xA0, Tlv(0x30, "x")))},
      {"another type", Tlv(0x30, Tlv(0x06, "xyz") + Tlv(0xA0, Tlv(0x0C, "anything")))},
      {"another type, indefinite", Open(0x30, Tlv(0x06, "xyz") + Open(0xA0, Open(0x30, Tlv(0x04, "x"))))},
  };
  for (const Row& row : rows) EXPECT_EQ(ReasonOfReading(row.bytes), "") << row.why;
}

struct RefusedRow {
  const char* why;
  std::string bytes;
  const char* reason;
};

TEST(CmsSkeletonTest, RefusesEveryOtherShapeWithAReason) {
  const std::string tail = Tlv(0x31, "");
  const std::string encrypted = Tlv(0x30, kData + kCipher + Tlv(0x80, "x"));
  const RefusedRow rows[] = {
      {"empty", "", "This is not a CMS message"},
      {"text", "Hello, this is a plain file", "This is not a CMS message"},
      {"text that begins like one", "0 is 30 in hexadecimal text",
       "A length of the message passes the end of what holds it"},
      {"first byte alone", "0", "The message ends inside a header"},
      {"another sequence", Tlv(0x30, kVersion), kUnexpected},
      {"empty sequence", Tlv(0x30, ""), kUnexpected},
      {"type alone", Tlv(0x30, kSigned), kUnexpected},
      {"empty type", Tlv(0x30, Tlv(0x06, "") + Tlv(0xA0, Tlv(0x30, ""))), kNoOid},
      {"type of 128 octets", Tlv(0x30, Tlv(0x06, std::string(128, '\x01')) + Tlv(0xA0, Tlv(0x30, ""))),
       kNoOid},
      {"constructed type", Tlv(0x30, Tlv(0x26, "x") + Tlv(0xA0, Tlv(0x30, ""))), kUnexpected},
      {"body without its tag", Tlv(0x30, kSigned + Tlv(0x30, kVersion)), kUnexpected},
      {"empty body", Tlv(0x30, kSigned + Tlv(0xA0, "")), kUnexpected},
      {"two bodies of another type", Tlv(0x30, Tlv(0x06, "x") + Tlv(0xA0, Tlv(0x30, "") + Tlv(0x30, ""))),
       kUnexpected},
      {"something after the body", Tlv(0x30, Tlv(0x06, "x") + Tlv(0xA0, Tlv(0x30, "")) + kVersion),
       kUnexpected},
      {"data: two contents", Tlv(0x30, kData + Tlv(0xA0, kContent + kContent)), kUnexpected},
      {"byte after the message", Tlv(0x30, Tlv(0x06, "x") + Tlv(0xA0, Tlv(0x30, ""))) + "\n",
       "The message is followed by other bytes"},
      {"signed: no version", Signed(tail + kEncapsulated + tail), kUnexpected},
      {"signed: no digests", Signed(kVersion + kEncapsulated + tail), kUnexpected},
      {"signed: no content info", Signed(kVersion + tail + tail), kUnexpected},
      {"signed: no signers", Signed(kVersion + tail + kEncapsulated), kUnexpected},
      {"signed: lists before certificates",
       Signed(kVersion + tail + kEncapsulated + Tlv(0xA1, "") + Tlv(0xA0, "") + tail), kUnexpected},
      {"signed: something after the signers", Signed(kVersion + tail + kEncapsulated + tail + kVersion),
       kUnexpected},
      {"signed: content without its type", Signed(kVersion + tail + Tlv(0x30, Tlv(0xA0, kContent)) + tail),
       kUnexpected},
      {"signed: content without its tag", Signed(kVersion + tail + Tlv(0x30, kData + kContent) + tail),
       kUnexpected},
      {"signed: content of another type",
       Signed(kVersion + tail + Tlv(0x30, kData + Tlv(0xA0, Tlv(0x30, "x"))) + tail), kNoOctets},
      {"signed: empty content tag", Signed(kVersion + tail + Tlv(0x30, kData + Tlv(0xA0, "")) + tail),
       kUnexpected},
      {"signed: two contents",
       Signed(kVersion + tail + Tlv(0x30, kData + Tlv(0xA0, kContent + kContent)) + tail), kUnexpected},
      {"enveloped: no recipients", Enveloped(kVersion + encrypted), kUnexpected},
      {"enveloped: no algorithm", Enveloped(kVersion + tail + Tlv(0x30, kData + Tlv(0x80, "x"))),
       kUnexpected},
      {"enveloped: content with an explicit tag",
       Enveloped(kVersion + tail + Tlv(0x30, kData + kCipher + Tlv(0xA0, Tlv(0x80, "x")))), kNoOctets},
      {"enveloped: content with another tag",
       Enveloped(kVersion + tail + Tlv(0x30, kData + kCipher + Tlv(0x04, "x"))), kNoOctets},
      {"enveloped: something after the content",
       Enveloped(kVersion + tail + Tlv(0x30, kData + kCipher + Tlv(0x80, "x") + kVersion)), kUnexpected},
      {"enveloped: something after it all", Enveloped(kVersion + tail + encrypted + kVersion), kUnexpected},
      {"digested: no digest", Digested(kVersion + kAlgorithm + kEncapsulated), kUnexpected},
      {"digested: no algorithm", Digested(kVersion + kEncapsulated + Tlv(0x04, "d")), kUnexpected},
  };
  for (const RefusedRow& row : rows) EXPECT_EQ(ReasonOfReading(row.bytes), row.reason) << row.why;
}

TEST(CmsSkeletonTest, ReportsWhereTheContentIs) {
  const std::string bytes = Signed(kVersion + Tlv(0x31, kAlgorithm) + kEncapsulated + Tlv(0x31, ""));
  WatchedSource source(bytes);
  CmsSkeleton skeleton;
  ASSERT_TRUE(ReadSkeleton(source, skeleton));
  EXPECT_TRUE(skeleton.hasContent);
  EXPECT_EQ(skeleton.content.offset, bytes.find(kContent));
  EXPECT_EQ(skeleton.content.length, 7U);
}

TEST(CmsSkeletonTest, AcceptsASkeletonOf1MiBAndNoMore) {
  const std::string most = Tlv(0xA0, std::string((1 << 20) - 200, 'x'));
  EXPECT_EQ(ReasonOfReading(Signed(kVersion + Tlv(0x31, "") + kEncapsulated + most + Tlv(0x31, ""))), "");
  const std::string more = Tlv(0xA0, std::string(1 << 20, 'x'));
  EXPECT_EQ(ReasonOfReading(Signed(kVersion + Tlv(0x31, "") + kEncapsulated + more + Tlv(0x31, ""))),
            "The message without its content is too large");
}

TEST(CmsSkeletonTest, RefusesEveryCutMessage) {
  for (const std::string& bytes :
       {Signed(kVersion + Tlv(0x31, kAlgorithm) + kEncapsulated + Tlv(0x31, "")),
        Open(0x30, kSigned + Open(0xA0, Open(0x30, kVersion + Tlv(0x31, kAlgorithm) +
                                                       Open(0x30, kData + Open(0xA0, Open(0x24, kContent))) +
                                                       Tlv(0x31, ""))))}) {
    ASSERT_EQ(ReasonOfReading(bytes), "");
    for (std::size_t size = 0; size < bytes.size(); ++size) {
      EXPECT_NE(ReasonOfReading(bytes.substr(0, size)), "") << size;
    }
  }
}

}  // namespace
}  // namespace SecurityTest
