// Messages of another implementation (tests/data/generate.sh) against us, and ours against it.
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/pem.h>

#include "tests/security/cms/fixture.h"

namespace SecurityTest {
namespace {

std::string DataPath(const std::string& name) {
  return std::string(CRYPTCLI_TEST_DATA) + "/" + name;
}
std::string ReadData(const std::string& name) {
  return TestSupport::ReadFile(DataPath(name));
}
File DataFile(const std::string& name) {
  return File(ToText(DataPath(name)));
}
OruOssSec::Certificate DataCertificate(const std::string& name) {
  return ToCertificate(Cert::FromPEM(ReadData("pki/" + name + ".pem")));
}
OruOssSec::PrivateKey DataKey(const std::string& name) {
  return ToPrivateKey(KeyPair::FromPEM(ReadData("pki/" + name + ".key")));
}
OruOssSec::CertStore& RootStore() {
  static OruOssSec::CertStore store;
  if (store.Get0() == nullptr) store.Add(DataCertificate("root"));
  return store;
}

// --- theirs: signed ---------------------------------------------------------------------------------------

struct SignedRow {
  const char* name;
  const char* verified;  // the reason why it does not verify, or empty
  const char* content;   // the reason why there is no content, or empty
};

class SignedByOthersTest : public testing::TestWithParam<SignedRow> {};

TEST_P(SignedByOthersTest, IsReadAndJudged) {
  const SignedRow& row = GetParam();
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile(std::string("signed/") + row.name))) << GetReason();
  EXPECT_EQ(message.GetType(), CMSMsg::Type::SignedData);
  EXPECT_EQ(ReasonOf(message.Verify()), row.verified);
  EXPECT_EQ(ReasonOf(message.Verify(RootStore())), row.verified);
  EXPECT_EQ(ContentOf(message), *row.content != '\0' ? row.content : ReadData("content.bin"));
}

INSTANTIATE_TEST_SUITE_P(
    Messages, SignedByOthersTest,
    testing::Values(SignedRow{"definite.cms", "", ""}, SignedRow{"stream.cms", "", ""},
                    SignedRow{"sha256.cms", "", ""}, SignedRow{"sha3-256.cms", "", ""},
                    SignedRow{"pss.cms", "", ""}, SignedRow{"keyid.cms", "", ""}, SignedRow{"ec.cms", "", ""},
                    SignedRow{"two.cms", "", ""}, SignedRow{"othertype.cms", "", ""},
                    SignedRow{"md5.cms", "A signer's digest is MD5, which proves nothing", ""},
                    SignedRow{"detached.cms", "The message does not hold its content",
                              "The message does not hold its content"},
                    SignedRow{"noattributes.cms", "A signer has no signed attributes", ""},
                    SignedRow{"nocertificate.cms", "The message does not hold a signer's certificate", ""}),
    [](const auto& row) {
      std::string name;
      for (const char* c = row.param.name; *c != '.'; ++c) {
        if (*c != '-') name += *c;
      }
      return name;
    });

TEST(CmsInteropTest, ReadsASignedMessageInPEM) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(ToText(ReadData("signed/pem.txt")))) << GetReason();
  EXPECT_TRUE(message.Verify(RootStore())) << GetReason();
  EXPECT_EQ(ContentOf(message), ReadData("content.bin"));
}

TEST(CmsInteropTest, ReadsTheSignersOfOtherWriters) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile("signed/two.cms")));
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
  ASSERT_TRUE(message.GetSigners(signers)) << GetReason();
  ASSERT_EQ(signers.GetCount(), 2U);
  AnsiStr subject;
  ASSERT_TRUE(signers.Get(0)->certificate.GetSubject(subject));
  EXPECT_EQ(ToString(subject), "CN=Signer,O=Example");
  ASSERT_TRUE(signers.Get(1)->certificate.GetSubject(subject));
  EXPECT_EQ(ToString(subject), "CN=Second Signer,O=Example");
  EXPECT_GE(signers.Get(0)->signingTime.year, 2024);
}

// --- theirs: enveloped ------------------------------------------------------------------------------------

class EnvelopedByOthersTest : public testing::TestWithParam<const char*> {};

TEST_P(EnvelopedByOthersTest, OpensWithThePrivateKey) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile(std::string("enveloped/") + GetParam() + ".cms"))) << GetReason();
  EXPECT_EQ(message.GetType(), CMSMsg::Type::EnvelopedData);
  ASSERT_TRUE(message.SetRecipientKey(DataCertificate("room"), DataKey("room"))) << GetReason();
  EXPECT_EQ(ContentOf(message), ReadData("content.bin"));
}

INSTANTIATE_TEST_SUITE_P(Messages, EnvelopedByOthersTest,
                         testing::Values("definite", "stream", "aes128", "aes192", "des3", "two", "keyid",
                                         "oaep", "mixed"),
                         [](const auto& row) { return std::string(row.param); });

class ContentKeyOfOthersTest : public testing::TestWithParam<const char*> {};

TEST_P(ContentKeyOfOthersTest, OpensWithTheContentKey) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile(std::string("enveloped/") + GetParam() + ".cms"))) << GetReason();
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
  ASSERT_TRUE(message.GetRecipients(recipients)) << GetReason();
  const KeyPair room = KeyPair::FromPEM(ReadData("pki/room.key"));
  const std::string key = room.Decrypt(ToString(recipients.Get(0)->encryptedKey));
  ASSERT_TRUE(message.SetContentKey(ToText(CryptStand::ToBase64(key)))) << GetReason();
  EXPECT_EQ(ContentOf(message), ReadData("content.bin"));
}

INSTANTIATE_TEST_SUITE_P(Messages, ContentKeyOfOthersTest,
                         testing::Values("definite", "stream", "aes128", "aes192", "des3"),
                         [](const auto& row) { return std::string(row.param); });

TEST(CmsInteropTest, OpensForTheSecondOfTwoRecipients) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile("enveloped/two.cms")));
  ASSERT_TRUE(message.SetRecipientKey(DataCertificate("room2"), DataKey("room2"))) << GetReason();
  EXPECT_EQ(ContentOf(message), ReadData("content.bin"));
}

TEST(CmsInteropTest, RefusesACipherOutsideTheProfileWhenAKeyIsSet) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile("enveloped/camellia.cms")));
  EXPECT_FALSE(message.SetRecipientKey(DataCertificate("room"), DataKey("room")));
  EXPECT_EQ(GetReason(), "The content encryption algorithm is not supported");
  EXPECT_FALSE(message.SetContentKey(ToText(CryptStand::ToBase64(std::string(32, 'k')))));
  EXPECT_EQ(GetReason(), "The content encryption algorithm is not supported");
}

TEST(CmsInteropTest, OpensAndVerifiesANestedFile) {
  ScratchDirectory scratch;
  CMSMsg outer;
  ASSERT_TRUE(outer.Load(DataFile("enveloped/nested.cms")));
  ASSERT_TRUE(outer.SetRecipientKey(DataCertificate("room"), DataKey("room")));
  ASSERT_TRUE(outer.GetContent(scratch.File("inner"))) << GetReason();
  CMSMsg inner;
  ASSERT_TRUE(inner.Load(scratch.File("inner"))) << GetReason();
  EXPECT_TRUE(inner.Verify(RootStore())) << GetReason();
  EXPECT_EQ(ContentOf(inner), ReadData("content.bin"));
}

// --- theirs: recipients -----------------------------------------------------------------------------------

struct RecipientRow {
  const char* name;
  std::vector<std::pair<std::string, std::string>> recipients;  // issuer and serial
  const char* reason;
};

class RecipientsOfOthersTest : public testing::TestWithParam<RecipientRow> {};

TEST_P(RecipientsOfOthersTest, AreNamed) {
  const RecipientRow& row = GetParam();
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile(std::string("enveloped/") + row.name + ".cms"))) << GetReason();
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
  EXPECT_EQ(ReasonOf(message.GetRecipients(recipients)), row.reason);
  std::vector<std::pair<std::string, std::string>> found;
  for (const OruOssSec::CMSKeyTransRecipient& recipient : recipients) {
    found.emplace_back(ToString(recipient.issuer), ToString(recipient.serial));
    EXPECT_EQ(recipient.encryptedKey.GetSize(), 256U);
  }
  EXPECT_EQ(found, row.recipients);
}

constexpr const char* kOtherType = "A recipient of the message is not of the key transport type";

INSTANTIATE_TEST_SUITE_P(
    Messages, RecipientsOfOthersTest,
    testing::Values(
        RecipientRow{"definite", {{"CN=Root,O=Example,C=DE", "8F01"}}, ""},
        RecipientRow{"stream", {{"CN=Root,O=Example,C=DE", "8F01"}}, ""},
        RecipientRow{"two", {{"CN=Root,O=Example,C=DE", "7B"}, {"CN=Root,O=Example,C=DE", "8F01"}}, ""},
        RecipientRow{"umlaut", {{"CN=Zürich \\\"1\\\",O=Bäcker\\, Söhne \\+ Co", "F00D"}}, ""},
        RecipientRow{"keyid", {}, "A recipient of the message is not named by issuer and serial number"},
        RecipientRow{"agreement", {}, kOtherType}, RecipientRow{"password", {}, kOtherType},
        RecipientRow{"kek", {}, kOtherType}, RecipientRow{"mixed", {}, kOtherType}),
    [](const auto& row) { return std::string(row.param.name); });

// --- theirs: other types ----------------------------------------------------------------------------------

struct TypeRow {
  const char* name;
  CMSMsg::Type type;
  const char* text;
};

class TypesOfOthersTest : public testing::TestWithParam<TypeRow> {};

// Nothing is claimed about its origin.
TEST(DataOfOthersTest, IsRead) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile("other/data.cms"))) << GetReason();
  EXPECT_EQ(message.GetType(), CMSMsg::Type::Data);
  EXPECT_EQ(ToString(message.GetTypeStr()), "data");
  EXPECT_EQ(ContentOf(message), ReadData("content.bin"));
  EXPECT_EQ(ReasonOf(message.Verify()), "The message is not a signed one");
}

TEST_P(TypesOfOthersTest, AreNamedAndNotOpened) {
  CMSMsg message;
  ASSERT_TRUE(message.Load(DataFile(GetParam().name))) << GetReason();
  EXPECT_EQ(message.GetType(), GetParam().type);
  EXPECT_EQ(ToString(message.GetTypeStr()), GetParam().text);
  EXPECT_EQ(ContentOf(message), "The content of a message of this type cannot be read");
}

INSTANTIATE_TEST_SUITE_P(Messages, TypesOfOthersTest,
                         testing::Values(TypeRow{"other/encrypted.cms", CMSMsg::Type::EncryptedData,
                                                 "encryptedData"},
                                         TypeRow{"enveloped/authenticated.cms",
                                                 CMSMsg::Type::AuthEnvelopedData, "authEnvelopedData"}));

TEST(CmsInteropTest, DeliversDigestedContent) {
  for (const char* name : {"digested/definite.cms", "digested/stream.cms"}) {
    CMSMsg message;
    ASSERT_TRUE(message.Load(DataFile(name))) << name << GetReason();
    EXPECT_EQ(message.GetType(), CMSMsg::Type::DigestedData) << name;
    EXPECT_EQ(ToString(message.GetTypeStr()), "digestedData");
    EXPECT_EQ(ContentOf(message), ReadData("content.bin")) << name;
  }
}

// --- ours against theirs ----------------------------------------------------------------------------------

class TheirView {
 public:
  explicit TheirView(const std::string& message)
      : input_(BIO_new_mem_buf(message.data(), static_cast<int>(message.size()))),
        output_(BIO_new(BIO_s_mem())),
        cms_(d2i_CMS_bio(input_, nullptr)) {}
  ~TheirView() {
    CMS_ContentInfo_free(cms_);
    BIO_free(output_);
    BIO_free(input_);
  }
  TheirView(const TheirView&) = delete;
  TheirView& operator=(const TheirView&) = delete;

  bool Verify(const Cert& root) {
    X509_STORE* store = X509_STORE_new();
    X509_STORE_add_cert(store, root.Get0());
    const bool verified =
        cms_ != nullptr && CMS_verify(cms_, nullptr, store, nullptr, output_, CMS_BINARY) == 1;
    X509_STORE_free(store);
    return verified;
  }
  bool Decrypt(const Identity& room) {
    return cms_ != nullptr &&
           CMS_decrypt(cms_, room.key.Get0(), room.certificate.Get0(), nullptr, output_, CMS_BINARY) == 1;
  }
  std::string GetContent() const {
    const char* data = nullptr;
    const long size = BIO_get_mem_data(output_, &data);
    return std::string(data, static_cast<std::size_t>(size));
  }
  CMS_ContentInfo* Get() const { return cms_; }

 private:
  BIO* input_;
  BIO* output_;
  CMS_ContentInfo* cms_;
};

class OursReadByOthersTest : public testing::TestWithParam<std::size_t> {
 protected:
  ScratchDirectory scratch_;
};

TEST_P(OursReadByOthersTest, SignedMessageVerifies) {
  const std::string bytes = MakeBytes(GetParam());
  ASSERT_TRUE(SignFile(scratch_.Make("plain", bytes), scratch_.File("signed"))) << GetReason();
  TheirView view(scratch_.Read("signed"));
  EXPECT_TRUE(view.Verify(Root().certificate));
  EXPECT_EQ(view.GetContent(), bytes);
}

TEST_P(OursReadByOthersTest, EnvelopedMessageOpens) {
  const std::string bytes = MakeBytes(GetParam());
  ASSERT_TRUE(EnvelopeFile(scratch_.Make("plain", bytes), scratch_.File("enveloped"))) << GetReason();
  TheirView view(scratch_.Read("enveloped"));
  EXPECT_TRUE(view.Decrypt(Room()));
  EXPECT_EQ(view.GetContent(), bytes);
}

INSTANTIATE_TEST_SUITE_P(Sizes, OursReadByOthersTest, testing::Values(0, 1, 16, 200, 262144, 600000));

}  // namespace
}  // namespace SecurityTest
