#pragma once

#include <mutex>
#include <string>

#include "stand/cert_maker.h"
#include "stand/store.h"

namespace CryptStand {

/// The identities of the stand itself.
enum class Role {
  Root,
  Intermediate,
  /// The issuing authority of the trust list: integrity keys and the inner signing certificate come from it.
  Issuing,
  /// Issues room key certificates and signs wrapped keys.
  InnerSigning,
  /// What wrapped keys are encrypted for; one for all key servers, since they stand in for each other.
  Wrapping,
  /// A root that no list holds, for certificates that must not be accepted.
  Foreign,
};

/// The certificate hierarchy of a stand: root, intermediate, issuing, inner signing. It is made when it is
/// first needed and kept in the store. Safe for any number of threads.
class Authority {
 public:
  /// With `shareKeys` the key pairs of identities are made once in the process and shared by all stands
  /// that ask for it: making one costs about a tenth of a second. Their certificates are each stand's own,
  /// but since the keys agree, signatures of one such stand hold in another.
  Authority(Store& store, bool shareKeys) : store_(store), shareKeys_(shareKeys) {}

  /// Makes everything that key servers need. False when it cannot be made or kept.
  bool Prepare();
  /// An identity; its certificate is empty when it cannot be made or kept.
  Identity Get(Role role);
  /// A key pair for a purpose; with shared keys the same one each time for the same purpose.
  KeyPair MakeKey(const std::string& purpose) const;

  /// PEM of the root and intermediate certificates, and of the trusted issuing certificates.
  std::string GetCertStoreText();
  std::string GetTrustStoreText();

 private:
  Identity Make(Role role);

  Store& store_;
  const bool shareKeys_;
  std::recursive_mutex mutex_;  // making an identity asks for its issuer
};

}  // namespace CryptStand
