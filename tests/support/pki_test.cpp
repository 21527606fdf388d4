#include "tests/support/pki.h"

#include <gtest/gtest.h>
#include <openssl/x509.h>

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

TEST(Messages, AreMadeInEveryShape) {
  const Cert& room = Pki::Get().room.certificate;
  EXPECT_NE(MakeUnsigned("text", {Pki::Get().integrity, {}, {}, true, {}}), "");
  EXPECT_NE(MakeEnveloped("text", {}), "");
  EXPECT_NE(MakeEnveloped("text", {room, room}), "");
  EXPECT_NE(MakeEnvelopedByKeyId("text", room), "");
  EXPECT_NE(MakeDigested("text"), "");
  EXPECT_NE(MakeData("text"), "");
}

}  // namespace
}  // namespace TestSupport
