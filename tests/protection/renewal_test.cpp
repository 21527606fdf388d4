// The origin of a file stays proven while the authorities above its signer renew their certificates, in
// whatever order the new ones reach the two lists.
#include "tests/protection/verification_fixture.h"
#include "tests/support/renewals.h"

namespace OruKalvix {
namespace {

using TestSupport::Cert;
using TestSupport::Json;
using TestSupport::KeyPair;
using TestSupport::Renewals;

class RenewedSigner : public Verification {
 protected:
  void List(const std::string& certStore, const std::string& trustStore) {
    services.Set("certstore", Json(pki.root.certificate.ToPEM() + certStore));
    services.Set("truststore", Json(trustStore));
  }
  /// What is wrong with the file, empty when its origin was proven.
  std::string Judge() {
    const bool isDelivered = Decrypt();
    return isDelivered && isVerified ? "" : Error();
  }
  void ProtectWith(const std::vector<Cert>& more) {
    TestSupport::SignerSpec signer = Signer();
    signer.more = more;
    Protect({signer});
  }

  const Renewals& renewals = Renewals::Get();
};

// 3 x 6 x 6 x 3 combinations. In each there is a chain whose second certificate is one of the trust list.
TEST_F(RenewedSigner, IsProvenInEveryCombinationOfOldAndNew) {
  int refused = 0;
  for (const std::vector<Cert>& more : {std::vector<Cert>{},
                                        {renewals.issuing.fresh, renewals.intermediate.old},
                                        {renewals.issuing.crossed, renewals.intermediate.crossed}}) {
    ProtectWith(more);
    for (const char* trusted : {"o", "f", "of"}) {
      for (const char* listed : {"", "o", "f", "of", "c", "ofc"}) {
        for (const char* intermediate : {"o", "f", "of", "oc", "fc", "ofc"}) {
          List(renewals.intermediate.ToPEM(intermediate) + renewals.issuing.ToPEM(listed),
               renewals.issuing.ToPEM(trusted));
          const std::string error = Judge();
          if (error.empty() || ++refused > 1) continue;
          ADD_FAILURE() << error << ": issuing " << trusted << " and " << listed << ", intermediate "
                        << intermediate;
        }
      }
    }
  }
  EXPECT_EQ(refused, 0);
}

// ---- What stays refused

TEST_F(RenewedSigner, IsDoubtedWhenItsIssuersKeyIsNotInTheTrustList) {
  const Cert other = TestSupport::Renew("Issuing", KeyPair::MakeEC(), pki.intermediate, "2039-01-01");
  List(renewals.intermediate.ToPEM("of") + renewals.issuing.ToPEM("of"), other.ToPEM());
  EXPECT_EQ(Judge(), "Untrusted integrity certificate issuer: CN=Issuing");
}

TEST_F(RenewedSigner, IsDoubtedWhenTheTrustedCertificateHasExpired) {
  const Cert expired = TestSupport::Renew("Issuing", pki.issuing.key, pki.intermediate, "2024-01-01");
  List(renewals.intermediate.ToPEM("of") + renewals.issuing.ToPEM("f"), expired.ToPEM());
  EXPECT_EQ(Judge(), "Untrusted integrity certificate issuer: CN=Issuing");
}

TEST_F(RenewedSigner, IsDoubtedWhenTheTrustedCertificateLeadsToNoRoot) {
  List(renewals.intermediate.ToPEM("of") + renewals.issuing.ToPEM("f"), renewals.issuing.ToPEM("c"));
  EXPECT_EQ(Judge(), "Untrusted integrity certificate issuer: CN=Issuing");
}

TEST_F(RenewedSigner, IsRefusedWhenEveryIssuingCertificateHasExpired) {
  const Cert expired = TestSupport::Renew("Issuing", pki.issuing.key, pki.intermediate, "2024-01-01");
  List(renewals.intermediate.ToPEM("of"), expired.ToPEM());
  EXPECT_EQ(Judge(), "Could not verify signature: certificate has expired");
}

TEST_F(RenewedSigner, IsRefusedWhenOnlyTheMessageHoldsItsIssuer) {
  const KeyPair key = KeyPair::MakeEC();
  ProtectWith({renewals.issuing.old});
  List(renewals.intermediate.ToPEM("of"),
       TestSupport::Renew("Another", key, pki.intermediate, "2039-01-01").ToPEM());
  EXPECT_EQ(Judge(), "Could not verify integrity certificate chain: unable to get local issuer certificate");
}

}  // namespace
}  // namespace OruKalvix
