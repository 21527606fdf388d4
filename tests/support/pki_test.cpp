#include "tests/support/pki.h"

#include <gtest/gtest.h>
#include <openssl/x509.h>

#include "security/cmsmsg.h"
#include "tests/support/messages.h"
#include "tests/support/text.h"

namespace TestSupport {
namespace {

bool IsIssuedBy(const Identity& subject, const Identity& issuer) {
  return X509_verify(subject.certificate.Get0(), issuer.key.Get0()) == 1;
}

TEST(Pki, IssuesEachCertificateByItsAuthority) {
  const Pki& pki = Pki::Get();
  EXPECT_TRUE(IsIssuedBy(pki.root, pki.root));
  EXPECT_TRUE(IsIssuedBy(pki.intermediate, pki.root));
  EXPECT_TRUE(IsIssuedBy(pki.issuing, pki.intermediate));
  EXPECT_TRUE(IsIssuedBy(pki.innerSigning, pki.issuing));
  EXPECT_TRUE(IsIssuedBy(pki.room, pki.innerSigning));
  EXPECT_TRUE(IsIssuedBy(pki.integrity, pki.issuing));
}

// The certificates of a test program are made once.
TEST(Pki, IsMadeOnce) {
  EXPECT_EQ(&Pki::Get(), &Pki::Get());
}

TEST(Pki, WrapsTheInnerSigningCertificateInAMessageAroundJSON) {
  const Pki& pki = Pki::Get();
  const OpenedMessage opened = OpenSigned(FromBase64(WrappedKey(pki.innerSigning.certificate)));
  const OruGuiBase::KVMap content = Map(opened.content);
  EXPECT_EQ(Str(content.Get("encodedInnerSigningCertificate").AsString()),
            pki.innerSigning.certificate.ToBase64());
}

// A message that was made comes back through the reader of its type, with content, signer and attributes.
TEST(Messages, ComeBackThroughTheirReaders) {
  const Pki& pki = Pki::Get();
  SignerSpec signer{pki.integrity, {{kGroupOid, "QOB.g"}}, 1000000000, true, {}};
  const OpenedMessage opened =
      OpenSigned(OpenEnvelope(MakeEnveloped(MakeSigned("text", {signer}), {pki.room.certificate}), pki.room));
  EXPECT_EQ(opened.content, "text");
  EXPECT_EQ(opened.signingTime, 1000000000);
  ASSERT_EQ(opened.signerDigests.size(), 1U);
  EXPECT_EQ(opened.signerDigests[0], pki.integrity.certificate.GetDigest());
  ASSERT_EQ(opened.attributes.size(), 1U);
  EXPECT_EQ(opened.attributes[0].second, "QOB.g");
}

// Messages can be made in each shape that the tests need, and are of the type that they should be.
TEST(Messages, AreMadeInEveryShape) {
  using OruOssSec::CMSMsg;
  const Cert& room = Pki::Get().room.certificate;
  const struct {
    std::string message;
    CMSMsg::Type type;
    std::uint32_t parties;  // signers or recipients
    const char* reason;
  } rows[] = {
      {MakeSigned("text", {{Pki::Get().integrity, {}, {}, true, {}}}), CMSMsg::Type::SignedData, 1,
       "a signer"},
      {MakeUnsigned("text", {Pki::Get().integrity, {}, {}, true, {}}), CMSMsg::Type::SignedData, 0,
       "no signer"},
      {MakeEnveloped("text", {}), CMSMsg::Type::EnvelopedData, 0, "no recipient"},
      {MakeEnveloped("text", {room, room}), CMSMsg::Type::EnvelopedData, 2, "two recipients"},
      {MakeDigested("text"), CMSMsg::Type::DigestedData, 0, "a digest"},
      {MakeData("text"), CMSMsg::Type::Data, 0, "data"},
  };
  for (const auto& row : rows) {
    CMSMsg message;
    ASSERT_TRUE(message.Load(Ansi(ToBase64(row.message)))) << row.reason;
    EXPECT_EQ(message.GetType(), row.type) << row.reason;
    OruGuiBase::PtrContainerQueue<OruOssSec::CMSSigner> signers;
    OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
    EXPECT_EQ(message.GetSigners(signers), row.type == CMSMsg::Type::SignedData) << row.reason;
    EXPECT_EQ(message.GetRecipients(recipients), row.type == CMSMsg::Type::EnvelopedData) << row.reason;
    EXPECT_EQ(signers.GetCount() + recipients.GetCount(), row.parties) << row.reason;
  }
}

TEST(Messages, NameARecipientByItsKeyOnRequest) {
  OruOssSec::CMSMsg message;
  ASSERT_TRUE(message.Load(Ansi(ToBase64(MakeEnvelopedByKeyId("text", Pki::Get().room.certificate)))));
  OruGuiBase::PtrContainerQueue<OruOssSec::CMSKeyTransRecipient> recipients;
  EXPECT_EQ(message.GetType(), OruOssSec::CMSMsg::Type::EnvelopedData);
  EXPECT_FALSE(message.GetRecipients(recipients));
}

}  // namespace
}  // namespace TestSupport
