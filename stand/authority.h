#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "stand/cert_maker.h"
#include "stand/key_maker.h"
#include "stand/store.h"

namespace CryptStand {

/// The identities of the test environment itself.
enum class Role {
  Root,
  Intermediate,
  /// The issuing authority of the trust list: integrity keys and the inner signing certificate come from it.
  Issuing,
  /// Issues room key certificates and signs wrapped keys.
  InnerSigning,
  /// Wrapped keys are encrypted for it. All key servers share it, since each must be able to replace another.
  Wrapping,
  /// A root that is in no list, for certificates that must not be accepted.
  Foreign,
};

/// The certificate hierarchy of a test environment: root, intermediate, issuing, inner signing. It is made
/// when it is first needed and kept in the store, which must outlive it. Safe for any number of threads.
class Authority {
 public:
  /// With `shareKeys` the key pairs of identities are generated once in the process and shared by all
  /// environments that ask for it: generating one takes about a tenth of a second. Each environment has its
  /// own certificates, but since the keys are the same, signatures made in one are valid in the others.
  /// With a seed, serial numbers are derived from it.
  Authority(Store& store, bool shareKeys, std::optional<std::uint64_t> seed = std::nullopt)
      : store_(store), shareKeys_(shareKeys), seed_(seed) {}

  /// Makes everything that key servers need; keys that are missing are generated in parallel, and in a new
  /// folder those of the first room and group after that, in the background. False when it cannot be made or
  /// stored.
  bool Prepare();
  /// An identity; its certificate is empty when it cannot be made or stored.
  Identity Get(Role role);
  /// A key pair for a purpose; with shared keys the same one each time for the same purpose.
  KeyPair MakeKey(const std::string& purpose);
  /// The serial number for the next certificate of a purpose, in hexadecimal: with a seed, the same for the
  /// same seed, purpose and number of earlier certificates of that purpose, whatever else was issued. Empty,
  /// which stands for a random one, without a seed.
  std::string MakeSerial(const std::string& purpose);

  /// Gives an identity a new certificate for the same key, as an authority renews its own. The former ones
  /// stay in the lists, and what was issued or signed before stays valid. False when it cannot be made or
  /// stored.
  bool Renew(Role role);
  /// The certificates that an identity has had, oldest first; the last is the present one.
  std::vector<Cert> GetCertificates(Role role);

  /// PEM of the root and intermediate certificates, and of the trusted issuing certificates.
  std::string GetCertStoreText();
  std::string GetTrustStoreText();

 private:
  Identity Make(Role role, KeyPair key);
  std::string GetPEM(Role role);

  Store& store_;
  const bool shareKeys_;
  const std::optional<std::uint64_t> seed_;
  KeyMaker keys_;
  std::recursive_mutex mutex_;  // recursive: making an identity asks for its issuer
};

}  // namespace CryptStand
