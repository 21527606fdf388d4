#pragma once

#include <string>
#include <string_view>

#include "security/certificate.h"
#include "security/key.h"
#include "stand/cert_maker.h"

namespace TestSupport {

using CryptStand::Cert;
using CryptStand::CertSpec;
using CryptStand::Identity;
using CryptStand::KeyPair;
using CryptStand::Validity;

/// The certificates of a whole system, made once per process.
///
/// A self-signed root, under it an intermediate authority, under that the trusted issuing authority, which
/// issues the inner signing authority of the key servers and the group's integrity certificates. The inner
/// signing authority issues the room keys. All are valid from 2020 to 2040. Authorities have elliptic keys,
/// which are made faster than RSA keys: all are made for each run.
struct Pki {
  static const Pki& Get();

  Identity root;
  Identity intermediate;
  Identity issuing;
  Identity innerSigning;
  Identity room;
  Identity integrity;

  /// What the key servers hand out: root and intermediate, and the trusted issuing authority.
  std::string GetCertStore() const;
  std::string GetTrustStore() const;
};

/// A certificate request with the validity of the system above.
CertSpec EndEntity(std::string commonName);
CertSpec Authority(std::string commonName);
/// A key that is too short for anything but opening what was made for it.
KeyPair MakeWeakRSA();

/// The wrapped key that a key server makes: a CMS message in its text form around a JSON object that carries
/// the inner signing certificate.
std::string WrappedKey(const Cert& innerSigning);
/// The same around any content.
std::string WrappedText(std::string_view content);

/// Certificates and keys as the client holds them; one that cannot be loaded fails the test.
OruOssSec::Certificate LoadCert(const Cert& certificate);
OruOssSec::PrivateKey LoadKey(const KeyPair& key);

}  // namespace TestSupport
