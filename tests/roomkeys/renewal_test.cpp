// A room key stays proven while the authorities above it renew their certificates, in whatever order the new
// ones reach the two lists and the wrapped key.
#include "tests/support/client_internals_fixture.h"
#include "tests/support/renewals.h"
#include "tests/support/scripted_services.h"

namespace OruKalvix {
namespace {

using ::testing::StartsWith;
using TestSupport::Ansi;
using TestSupport::Cert;
using TestSupport::Identity;
using TestSupport::Json;
using TestSupport::KeyPair;
using TestSupport::LoadCert;
using TestSupport::Pki;
using TestSupport::Renewals;
using TestSupport::ScriptedServices;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::WrappedKey;

class RenewedRoomKey : public ::testing::Test {
 protected:
  RenewedRoomKey() {
    TestSupport::BeginRotationAt(0);
    client.SetKeyServer(Strings({TestSupport::kKeyServerUrl}));
    roomKey.certificate = LoadCert(pki.room.certificate);
  }

  /// The client's message, empty when the room key was proven.
  std::string Validate(const Cert& wrapped, const std::string& certStore, const std::string& trustStore) {
    roomKey.data = Ansi(WrappedKey(wrapped));
    services.Set("certstore", Json(pki.root.certificate.ToPEM() + certStore));
    services.Set("truststore", Json(trustStore));
    return peer.ValidateRoomKey(roomKey) ? "" : Str(client.GetErrorMessage());
  }

  const Pki& pki = Pki::Get();
  const Renewals& renewals = Renewals::Get();
  ScriptedServices services;
  CryptClient client{&services.http, TestSupport::kServiceUrl, "", "room 1"};
  CryptClientTestPeer peer{client};
  RoomKey roomKey;
};

// 3 x 5 x 6 x 5 x 2 combinations. In each there is a chain from the wrapped key's certificate to the root.
TEST_F(RenewedRoomKey, IsProvenInEveryCombinationOfOldAndNew) {
  int refused = 0;
  for (const char* trusted : {"o", "f", "of"}) {
    for (const char* listed : {"", "o", "f", "c", "ofc"}) {
      for (const char* intermediate : {"o", "f", "of", "oc", "fc", "ofc"}) {
        for (const char* inner : {"", "o", "f", "c", "ofc"}) {
          for (const Cert* wrapped : {&renewals.innerSigning.old, &renewals.innerSigning.fresh}) {
            const std::string error =
                Validate(*wrapped, renewals.intermediate.ToPEM(intermediate) + renewals.issuing.ToPEM(listed),
                         renewals.issuing.ToPEM(trusted) + renewals.innerSigning.ToPEM(inner));
            if (error.empty()) continue;
            if (++refused == 1) {
              ADD_FAILURE() << error << ": issuing " << trusted << " and " << listed << ", intermediate "
                            << intermediate << ", inner " << inner;
            }
          }
        }
      }
    }
  }
  EXPECT_EQ(refused, 0);
}

TEST_F(RenewedRoomKey, DoesNotDependOnTheOrderOfTheLists) {
  for (const char* order : {"ofc", "ocf", "foc", "fco", "cof", "cfo"}) {
    EXPECT_EQ(Validate(renewals.innerSigning.old, renewals.intermediate.ToPEM(order),
                       renewals.issuing.ToPEM(order) + renewals.innerSigning.ToPEM(order)),
              "")
        << order;
  }
}

// ---- What stays refused

TEST_F(RenewedRoomKey, IsRefusedWhenOnlyTheCrossedCertificatesAreListed) {
  EXPECT_THAT(
      Validate(renewals.innerSigning.old, renewals.intermediate.ToPEM("c"), renewals.issuing.ToPEM("ofc")),
      StartsWith("Could not verify room key issuer certificate chain: "));
  EXPECT_THAT(
      Validate(renewals.innerSigning.old, renewals.intermediate.ToPEM("ofc"), renewals.issuing.ToPEM("c")),
      StartsWith("Could not verify room key issuer certificate chain: "));
}

TEST_F(RenewedRoomKey, IsRefusedUnderAnotherKeyOfTheInnerName) {
  const Identity other{TestSupport::Renew("Inner signing", KeyPair::MakeEC(), pki.issuing, "2039-01-01"), {}};
  EXPECT_EQ(Validate(other.certificate, renewals.intermediate.ToPEM("of"),
                     renewals.issuing.ToPEM("of") + renewals.innerSigning.ToPEM("of")),
            "Could not verify room key: Unexpected issuer");
}

TEST_F(RenewedRoomKey, IsRefusedUnderAnotherKeyOfTheIssuingName) {
  const Cert other = TestSupport::Renew("Issuing", KeyPair::MakeEC(), pki.intermediate, "2039-01-01");
  EXPECT_THAT(Validate(renewals.innerSigning.old, renewals.intermediate.ToPEM("of"), other.ToPEM()),
              StartsWith("Could not verify room key issuer certificate chain: "));
}

TEST_F(RenewedRoomKey, IsRefusedWhenTheWrappedCertificateHasExpired) {
  const Cert expired = TestSupport::Renew("Inner signing", pki.innerSigning.key, pki.issuing, "2024-01-01");
  EXPECT_EQ(Validate(expired, renewals.intermediate.ToPEM("of"),
                     renewals.issuing.ToPEM("of") + renewals.innerSigning.ToPEM("of")),
            "Could not verify room key issuer certificate chain: certificate has expired");
}

TEST_F(RenewedRoomKey, IsRefusedWhenEveryIssuingCertificateHasExpired) {
  const Cert expired = TestSupport::Renew("Issuing", pki.issuing.key, pki.intermediate, "2024-01-01");
  EXPECT_EQ(Validate(renewals.innerSigning.old, renewals.intermediate.ToPEM("of"), expired.ToPEM()),
            "Could not verify room key issuer certificate chain: certificate has expired");
}

}  // namespace
}  // namespace OruKalvix
