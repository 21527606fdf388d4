// Small messages, cut at each length, with each byte changed and each length field replaced. However a
// message is changed, it is read or refused with a reason, and only signed content verifies.
#include <gtest/gtest.h>

#include "security/ber/reader.h"
#include "tests/security/signed_builder.h"

namespace SecurityTest {
namespace {

/// Calls every operation that a message has.
class Ordeal {
 public:
  explicit Ordeal(std::string content) : content_(std::move(content)) {}

  void Undergo(const std::string& bytes, const std::string& what) {
    OruGuiBase::ClearLastError();
    CMSMsg message;
    const bool loaded = LoadFrom(message, bytes);
    if (!Check(loaded, what)) return;
    const bool verified = message.Verify();
    Check(verified, what);
    Blob content;
    if (message.GetType() == CMSMsg::Type::EnvelopedData) {
      Check(message.SetRecipientKey(room_, key_), what);
    }
    const bool delivered = message.GetContent(content);
    Check(delivered, what);
    if (verified) {
      ++verifiedCount;
      EXPECT_TRUE(delivered) << what;
      EXPECT_EQ(ToString(content), content_) << what;
    }
    OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
    Check(message.GetSigners(signers), what);
    OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
    Check(message.GetRecipients(recipients), what);
  }

  int verifiedCount = 0;

 private:
  static bool LoadFrom(CMSMsg& message, const std::string& bytes) {
    return message.Load(ToText(CryptStand::ToBase64(bytes)));
  }
  // A failure has its reason, and OpenSSL's queue is empty either way.
  static bool Check(bool done, const std::string& what) {
    EXPECT_TRUE(done || OruGuiBase::GetLastError() != 0) << what;
    EXPECT_TRUE(IsQueueEmpty()) << what;
    return done;
  }

  std::string content_;
  OruOssSec::Certificate room_ = ToCertificate(Room().certificate);
  OruOssSec::PrivateKey key_ = ToPrivateKey(Room().key);
};

struct Sample {
  const char* name;
  std::string (*make)();
};

std::string MakeSigned() {
  BuiltSigner signer = BuiltSigner::For("some content");
  signer.Add(Attribute(kSigningTimeOid, Tlv(0x17, "240229235958Z")));
  return MessageOf(signer, "some content").Encode();
}
std::string MakeSignedStream() {
  ScratchDirectory scratch;
  const OruGuiBase::DateTime time = At(2024, 2, 29);
  SignFile(scratch.Make("plain", "some content"), scratch.File("signed"), {}, &time);
  return scratch.Read("signed");
}
std::string MakeEnvelopedStream() {
  ScratchDirectory scratch;
  EnvelopeFile(scratch.Make("plain", "some content"), scratch.File("enveloped"));
  return scratch.Read("enveloped");
}
std::string MakeDigested() {
  const std::string fields =
      Hex("020100") + Tlv(0x30, kSha256Oid) +
      Tlv(0x30, kDataOid + Tlv(0xA0, Open(0x24, Tlv(0x04, "some ") + Tlv(0x04, "content")))) +
      Tlv(0x04, Digest("SHA256", "some content"));
  return Tlv(0x30, Hex("06092A864886F70D010705") + Tlv(0xA0, Tlv(0x30, fields)));
}

class CmsMutationTest : public testing::TestWithParam<Sample> {
 protected:
  std::string bytes_ = GetParam().make();
  Ordeal ordeal_{"some content"};
};

TEST_P(CmsMutationTest, SurvivesBeingCutAtEachLength) {
  for (std::size_t size = 0; size < bytes_.size(); ++size) {
    CMSMsg message;
    EXPECT_FALSE(LoadBytes(message, bytes_.substr(0, size))) << size;
    ordeal_.Undergo(bytes_.substr(0, size), "cut at " + std::to_string(size));
  }
}

TEST_P(CmsMutationTest, SurvivesEachByteChanged) {
  for (std::size_t place = 0; place < bytes_.size(); ++place) {
    for (const int change : {0x01, 0x80}) {
      std::string changed = bytes_;
      changed[place] = static_cast<char>(changed[place] ^ change);
      ordeal_.Undergo(changed, "place " + std::to_string(place) + " change " + std::to_string(change));
    }
  }
}

/// Where the length octets of an element begin and end.
struct LengthField {
  std::size_t offset;
  std::size_t size;
  std::uint64_t length;
};

/// All length fields of the elements from `begin` on, the constructed ones entered.
void FindLengths(const std::string& bytes, std::size_t begin, std::size_t end,
                 std::vector<LengthField>& fields) {
  OruOssSec::ViewSource source(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  OruOssSec::BerReader reader(source);
  while (begin < end) {
    OruOssSec::BerHeader header;
    ASSERT_TRUE(reader.ReadHeader(begin, end, header));
    fields.push_back({begin + 1, header.size - 1U, header.length});
    begin += header.size;
    // An element of indefinite length ends within this run; its end-of-contents looks like any other element.
    if (header.IsConstructed() && !header.indefinite)
      FindLengths(bytes, begin, begin + header.length, fields);
    begin += header.length;
  }
}

TEST_P(CmsMutationTest, SurvivesEachLengthReplaced) {
  std::vector<LengthField> fields;
  FindLengths(bytes_, 0, bytes_.size(), fields);
  ASSERT_GT(fields.size(), 10U);
  for (const LengthField& field : fields) {
    const std::uint64_t length = field.length;
    std::vector<std::string> replacements = {Hex("80"), Hex("FF"), Hex("9F"), Hex("888000000000000000"),
                                             Hex("88FFFFFFFFFFFFFFFF")};
    for (const std::uint64_t value :
         {std::uint64_t{0}, std::uint64_t{1}, length - 1, length + 1, length * 2, std::uint64_t{0x7F},
          std::uint64_t{0x80}, std::uint64_t{0x7FFFFFFF}, std::uint64_t{0x80000000},
          std::uint64_t{0xFFFFFFFF}, std::uint64_t{0x100000000} + length,
          std::uint64_t{0x7FFFFFFFFFFFFFFF}}) {
      std::uint8_t header[OruOssSec::kMostHeader];
      const std::uint32_t size = OruOssSec::PutBerHeader(0x04, value & 0x7FFFFFFFFFFFFFFFU, header);
      replacements.emplace_back(reinterpret_cast<const char*>(header + 1), size - 1);
    }
    for (const std::string& replacement : replacements) {
      std::string changed = bytes_;
      changed.replace(field.offset, field.size, replacement);
      ordeal_.Undergo(changed, "at " + std::to_string(field.offset) + ": " + CryptStand::ToHex(replacement));
    }
  }
}

TEST_P(CmsMutationTest, SurvivesUnchanged) {
  ordeal_.Undergo(bytes_, "unchanged");
  EXPECT_EQ(ordeal_.verifiedCount, std::string(GetParam().name).find("Signed") == 0 ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Samples, CmsMutationTest,
                         testing::Values(Sample{"SignedDefinite", MakeSigned},
                                         Sample{"SignedStream", MakeSignedStream},
                                         Sample{"EnvelopedStream", MakeEnvelopedStream},
                                         Sample{"Digested", MakeDigested}),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace SecurityTest
