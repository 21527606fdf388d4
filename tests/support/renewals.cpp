#include "tests/support/renewals.h"

namespace TestSupport {

namespace {

Renewed MakeRenewed(const std::string& commonName, const KeyPair& key, const Identity& issuer,
                    const Identity& stranger) {
  return {Renew(commonName, key, issuer, "2030-01-01"), Renew(commonName, key, issuer, "2035-01-01"),
          Renew(commonName, key, stranger, "2039-01-01"), key};
}

Renewals MakeRenewals() {
  const Pki& pki = Pki::Get();
  const Identity stranger = Identity::MakeRoot(Authority("Stranger"), KeyPair::MakeEC());
  Renewals renewals;
  renewals.intermediate = MakeRenewed("Intermediate", pki.intermediate.key, pki.root, stranger);
  renewals.issuing = MakeRenewed("Issuing", pki.issuing.key, pki.intermediate, stranger);
  renewals.innerSigning = MakeRenewed("Inner signing", pki.innerSigning.key, pki.issuing, stranger);
  return renewals;
}

}  // namespace

std::string Renewed::ToPEM(const std::string& letters) const {
  std::string text;
  for (const char letter : letters) {
    if (letter == 'o') text += old.ToPEM();
    if (letter == 'f') text += fresh.ToPEM();
    if (letter == 'c') text += crossed.ToPEM();
  }
  return text;
}

const Renewals& Renewals::Get() {
  static const Renewals renewals = MakeRenewals();
  return renewals;
}

Cert Renew(const std::string& commonName, const KeyPair& key, const Identity& issuer, const char* end) {
  CertSpec spec = Authority(commonName);
  spec.validity = Validity::Between("2020-01-01", end);
  return Cert::Issue(spec, key, issuer);
}

}  // namespace TestSupport
