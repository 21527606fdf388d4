#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "security/certificate.h"
#include "security/certstore.h"
#include "security/key.h"
#include "stand/cert_maker.h"

namespace Fuzz {

/// The only content that the integrity key has signed. No other content of the world's protected files is
/// genuine.
inline constexpr std::string_view kGenuineContent = "The content that the group's key has signed.\n";
/// Content that an outsider has signed.
inline constexpr std::string_view kForeignContent = "The content that somebody else has signed.\n";

inline constexpr std::string_view kServiceUrl = "https://crypt.example/api";
inline constexpr std::string_view kKeyServerUrl = "https://one.example";
inline constexpr std::string_view kOtherKeyServerUrl = "https://two.example/";
inline constexpr std::string_view kRoom = "room 1";
inline constexpr std::string_view kGroup = "QOB.group-1";
/// The key servers' clock.
inline constexpr std::string_view kDate = "Wed, 15 May 2024 12:00:00 GMT";

/// One message of the world, made by OpenSSL.
struct Sample {
  std::string name;
  std::string bytes;
};

/// The keys, certificates and messages that all targets share. They are built into the targets, so that an
/// input means the same in every process and on every machine.
///
/// A self-signed root issues an intermediate authority, which issues the issuing authority that key servers
/// trust. That one issues the inner signing authority and the group's integrity certificate. The inner
/// signing authority issues the room's key. The outsider's own authority is in no server's list and in no
/// message.
class World {
 public:
  static const World& Get();

  CryptStand::Identity root;
  CryptStand::Identity intermediate;
  CryptStand::Identity issuing;
  CryptStand::Identity innerSigning;
  CryptStand::Identity room;
  CryptStand::Identity integrity;
  CryptStand::Identity outsider;

  /// Protected files, and contents of such files.
  std::vector<Sample> envelopes;
  std::vector<Sample> contents;
  /// Messages of other forms and types.
  std::vector<Sample> forms;
  /// A wrapped key with the inner signing certificate, in base64.
  std::string wrappedKey;

  std::string CertStoreText() const;
  std::string TrustStoreText() const;
  const std::string& Find(const std::vector<Sample>& samples, std::string_view name) const;

  static OruOssSec::Certificate Load(const CryptStand::Cert& certificate);
  static OruOssSec::PrivateKey Load(const CryptStand::KeyPair& key);
  /// The certificates of both lists.
  static void Fill(OruOssSec::CertStore& store);

 private:
  World();
};

}  // namespace Fuzz
