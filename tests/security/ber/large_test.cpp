// Messages larger than 4 GiB, from a source that generates its bytes and from a file that is mostly a hole.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <unistd.h>

#include "security/cms/skeleton.h"
#include "tests/security/ber/fixture.h"
#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

using OruOssSec::CmsSkeleton;

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

/// Given bytes at given offsets and zeros everywhere else; of any size, since the zeros take no memory.
class SparseSource final : public OruOssSec::IByteSource {
 public:
  void Append(const std::string& bytes) {
    runs_[size_] = bytes;
    size_ += bytes.size();
  }
  void Skip(std::uint64_t size) { size_ += size; }
  std::uint64_t GetSize() const noexcept override { return size_; }
  bool ReadAt(std::uint64_t offset, std::uint8_t* buffer, std::uint32_t size) noexcept override {
    ++reads;
    std::memset(buffer, 0, size);
    auto run = runs_.upper_bound(offset);
    if (run != runs_.begin()) --run;
    for (; run != runs_.end() && run->first < offset + size; ++run) {
      for (std::size_t i = 0; i < run->second.size(); ++i) {
        const std::uint64_t place = run->first + i;
        if (place >= offset && place < offset + size)
          buffer[place - offset] = static_cast<std::uint8_t>(run->second[i]);
      }
    }
    return true;
  }

  int reads = 0;

 private:
  std::map<std::uint64_t, std::string> runs_;
  std::uint64_t size_ = 0;
};

std::string Header(int identifier, std::uint64_t length) {
  std::uint8_t header[OruOssSec::kMostHeader];
  const std::uint32_t size = OruOssSec::PutBerHeader(static_cast<std::uint8_t>(identifier), length, header);
  return std::string(reinterpret_cast<const char*>(header), size);
}

const std::string& SignedOid() {
  static const std::string oid =
      Hex("06 09 2A864886F70D010705");  // digestedData, which OpenSSL does not parse here
  return oid;
}
const std::string& Before() {
  static const std::string before = Hex("020100") + Tlv(0x30, Hex("0609608648016503040201"));
  return before;
}
const std::string& After() {
  static const std::string after = Tlv(0x04, std::string(32, 'd'));
  return after;
}
const std::string& DataOid() {
  static const std::string oid = Hex("06 09 2A864886F70D010701");
  return oid;
}

TEST(BerLargeTest, WalksDefiniteLengthsBeyond4GiB) {
  const std::uint64_t size = 6 * kGiB + 12345;
  const std::string octets = Header(0x04, size);
  const std::uint64_t content = octets.size() + size;
  const std::string inner = DataOid() + Header(0xA0, content) + octets;
  const std::uint64_t innerSize = inner.size() + size;
  const std::string fields = Before() + Header(0x30, innerSize) + inner;
  const std::uint64_t fieldsSize = fields.size() + size + After().size();
  const std::string body = Header(0x30, fieldsSize) + fields;
  const std::uint64_t bodySize = body.size() + size + After().size();
  const std::string parts = SignedOid() + Header(0xA0, bodySize) + body;

  SparseSource source;
  source.Append(Header(0x30, parts.size() + size + After().size()) + parts);
  source.Skip(size);
  source.Append(After());
  CmsSkeleton skeleton;
  ASSERT_TRUE(ReadSkeleton(source, skeleton)) << GetReason();
  EXPECT_EQ(skeleton.content.length, size);
  EXPECT_EQ(skeleton.after.GetSize(), After().size());
  EXPECT_LE(source.reads, 4);
}

void AppendHead(SparseSource& source) {
  source.Append(Hex("3080") + SignedOid() + Hex("A080 3080") + Before() + Hex("3080") + DataOid() +
                Hex("A080 2480"));
}
void AppendTail(SparseSource& source) {
  source.Append(Hex("0000 0000 0000") + After() + Hex("0000 0000 0000"));
}

TEST(BerLargeTest, WalksSegmentsWithASumBeyond4GiB) {
  SparseSource source;
  AppendHead(source);
  constexpr int kSegments = 40;
  for (int i = 0; i < kSegments; ++i) {
    source.Append(Header(0x04, kGiB / 4));
    source.Skip(kGiB / 4);
  }
  AppendTail(source);
  CmsSkeleton skeleton;
  ASSERT_TRUE(ReadSkeleton(source, skeleton)) << GetReason();
  EXPECT_EQ(skeleton.content.length, kSegments * (kGiB / 4));
  EXPECT_LE(source.reads, kSegments + 4);
}

TEST(BerLargeTest, WalksOneSegmentBeyond4GiB) {
  SparseSource source;
  AppendHead(source);
  source.Append(Header(0x04, 5 * kGiB));
  source.Skip(5 * kGiB);
  source.Append(Header(0x04, 3) + "end");
  AppendTail(source);
  CmsSkeleton skeleton;
  ASSERT_TRUE(ReadSkeleton(source, skeleton)) << GetReason();
  EXPECT_EQ(skeleton.content.length, 5 * kGiB + 3);
}

TEST(BerLargeTest, RefusesALengthThatIsNearly4GiBTooLong) {
  SparseSource source;
  source.Append(Header(0x30, 4 * kGiB + 1) + SignedOid());
  source.Skip(4 * kGiB - SignedOid().size());
  CmsSkeleton skeleton;
  OruGuiBase::ClearLastError();
  EXPECT_FALSE(ReadSkeleton(source, skeleton));
  EXPECT_EQ(GetReason(), "A length of the message passes the end of what holds it");
}

/// A file with bytes at its beginning and its end and a hole between.
void MakeHoleFile(const std::string& path, const std::string& head, std::uint64_t hole,
                  const std::string& tail) {
  TestSupport::WriteFile(path, head);
  ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(head.size() + hole)), 0);
  const int handle = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  ASSERT_GE(handle, 0);
  EXPECT_EQ(write(handle, tail.data(), tail.size()), static_cast<ssize_t>(tail.size()));
  close(handle);
}

TEST(BerLargeTest, LoadsAFileOf5GiBAtOnce) {
  ScratchDirectory scratch;
  const std::string head = Hex("3080") + SignedOid() + Hex("A080 3080") + Before() + Hex("3080") + DataOid() +
                           Hex("A080 2480") + Header(0x04, 5 * kGiB);
  MakeHoleFile(scratch.Path("large").string(), head, 5 * kGiB,
               Hex("0000 0000 0000") + After() + Hex("0000 0000 0000"));
  CMSMsg message;
  ASSERT_TRUE(message.Load(scratch.File("large"))) << GetReason();
  EXPECT_EQ(message.GetType(), CMSMsg::Type::DigestedData);
  EXPECT_EQ(ContentOf(message), "The content is too large for memory");
}

TEST(BerLargeTest, RefusesAPlainFileThatBeginsLikeAMessageAtOnce) {
  ScratchDirectory scratch;
  for (const std::string& head :
       {Hex("30"), Hex("3080"), Hex("3083 100000"), Hex("3085 0140000000"), Hex("3080 3080 3080 3080"),
        Hex("3080 06092A864886F70D010702 A080 3080 020101 3180"),
        Hex("3080 06092A864886F70D010703 A080 3080 020100 3184 3FFFFFFF"),
        Hex("3080 06022A03 A080 3080 24 84 3FFFFFFF")}) {
    MakeHoleFile(scratch.Path("plain").string(), head, 5 * kGiB, "");
    CMSMsg message;
    EXPECT_FALSE(message.Load(scratch.File("plain"))) << CryptStand::ToHex(head);
    EXPECT_NE(OruGuiBase::GetLastError(), 0U);
  }
}

}  // namespace
}  // namespace SecurityTest
