// The certificate hierarchy of a test environment. All its servers ask for the identities they need; each
// identity is made on first use and then comes from the store, so that a restart keeps every signature valid.
#include "stand/authority.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <openssl/evp.h>

namespace CryptStand {
namespace {

constexpr std::int64_t kYear = 365L * 86400;

const char* NameOf(Role role) {
  switch (role) {
    case Role::Root:
      return "Root";
    case Role::Intermediate:
      return "Intermediate";
    case Role::Issuing:
      return "Issuing";
    case Role::InnerSigning:
      return "Inner signing";
    case Role::Wrapping:
      return "Key server wrapping";
    case Role::Foreign:
      return "Foreign root";
  }
  return "";
}

// The inner signing authority signs wrapped keys as well as certificates of room keys, so its key usage
// allows both. With path length 0 it cannot issue further authorities.
CertSpec SpecOf(Role role) {
  CertSpec spec = role == Role::Wrapping ? CertSpec::EndEntity("") : CertSpec::Authority("");
  spec.subject = {{"O", "Development stand"}, {"CN", NameOf(role)}};
  spec.validity = Validity::FromNow(-kYear, 10 * kYear);
  if (role == Role::InnerSigning) {
    spec.keyUsage = "critical,digitalSignature,keyCertSign";
    spec.pathLength = 0;
  }
  return spec;
}

// A hash, so that two purposes have different numbers, and so that they do not depend on each other's
// requests.
std::string DeriveSerial(std::uint64_t seed, const std::string& purpose, std::int64_t count) {
  const std::string text = std::to_string(seed) + "/" + std::to_string(count) + "/" + purpose;
  unsigned char digest[EVP_MAX_MD_SIZE];
  if (EVP_Q_digest(nullptr, kSHA256, nullptr, text.data(), text.size(), digest, nullptr) != 1) return {};
  // As random ones: positive (RFC 5280, 4.1.2.2) and always 16 octets.
  digest[0] = static_cast<unsigned char>((digest[0] & 0x7F) | 0x40);
  return ToHex({reinterpret_cast<const char*>(digest), 16});
}

// The shared key pairs of this process, by purpose.
class KeyCache {
 public:
  static KeyPair Get(const std::string& purpose) {
    static KeyCache cache;
    const std::lock_guard<std::mutex> lock(cache.mutex_);
    KeyPair& key = cache.keys_[purpose];
    if (key.IsEmpty()) key = KeyPair::MakeRSA();
    return key;
  }

 private:
  std::mutex mutex_;
  std::map<std::string, KeyPair> keys_;
};

}  // namespace

// Making these two makes all others, except the foreign root: servers never need it themselves.
bool Authority::Prepare() {
  constexpr Role kNeeded[] = {Role::Root, Role::Intermediate, Role::Issuing, Role::InnerSigning,
                              Role::Wrapping};
  // The first integrity key and the first member are made on request: their key pairs are ready by then.
  constexpr int kFirstRequests = 2;
  const auto missing =
      static_cast<int>(std::count_if(std::begin(kNeeded), std::end(kNeeded),
                                     [this](Role role) { return !store_.GetIdentity(NameOf(role)); }));
  if (missing > 0 && !shareKeys_) keys_.Start(missing + kFirstRequests);
  return !Get(Role::InnerSigning).certificate.IsEmpty() && !Get(Role::Wrapping).certificate.IsEmpty();
}

Identity Authority::Get(Role role) {
  // Recursive: making an identity asks for its issuer.
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  auto kept = store_.GetIdentity(NameOf(role));
  // KeepIdentity returns the stored one: another process may have made this identity in the meantime.
  if (!kept.has_value()) kept = store_.KeepIdentity(NameOf(role), Make(role, MakeKey(NameOf(role))));
  return kept.value_or(Identity());
}

Identity Authority::Make(Role role, KeyPair key) {
  CertSpec spec = SpecOf(role);
  spec.serial = MakeSerial(NameOf(role));
  switch (role) {
    case Role::Intermediate:
      return Identity::MakeIssued(spec, Get(Role::Root), std::move(key));
    case Role::Issuing:
      return Identity::MakeIssued(spec, Get(Role::Intermediate), std::move(key));
    case Role::InnerSigning:
      return Identity::MakeIssued(spec, Get(Role::Issuing), std::move(key));
    case Role::Root:
    case Role::Wrapping:
    case Role::Foreign:
      break;
  }
  return Identity::MakeRoot(spec, std::move(key));
}

KeyPair Authority::MakeKey(const std::string& purpose) {
  return shareKeys_ ? KeyCache::Get(purpose) : keys_.Take();
}

std::string Authority::MakeSerial(const std::string& purpose) {
  const auto count = seed_.has_value() ? store_.CountSerial(purpose) : std::nullopt;
  return count.has_value() ? DeriveSerial(*seed_, purpose, *count) : "";
}

bool Authority::Renew(Role role) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  const Identity renewed = Make(role, Get(role).key);
  return !renewed.certificate.IsEmpty() && store_.RenewCertificate(NameOf(role), renewed.certificate);
}

std::vector<Cert> Authority::GetCertificates(Role role) {
  const std::lock_guard<std::recursive_mutex> lock(mutex_);
  const Cert present = Get(role).certificate;
  auto certificates = store_.GetFormerCertificates(NameOf(role));
  certificates.push_back(present);
  return certificates;
}

std::string Authority::GetPEM(Role role) {
  std::string text;
  for (const Cert& certificate : GetCertificates(role)) text += certificate.ToPEM();
  return text;
}

std::string Authority::GetCertStoreText() {
  return GetPEM(Role::Root) + GetPEM(Role::Intermediate);
}

std::string Authority::GetTrustStoreText() {
  return GetPEM(Role::Issuing);
}

}  // namespace CryptStand
