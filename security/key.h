#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "security/export.h"

struct evp_pkey_st;

namespace OruOssSec {

namespace ASN1 {

/// How a certificate or a key is given as text.
enum class Encoding : std::uint32_t {
  Text = 0,  ///< PEM (RFC 7468), or the base64 of the DER form; white space is passed over
};

}  // namespace ASN1

/// A public or private key: a handle to one counted key object, which copies share.
class ORUSEC_EXPORT Key {
 public:
  /// Takes over the caller's reference; null makes an empty key.
  explicit Key(evp_pkey_st* key) noexcept : key_(key) {}
  Key(const Key& other) noexcept;
  ~Key() { Clear(); }
  Key& operator=(const Key& other) noexcept;

  /// Drops the reference to the key object. Private numbers are wiped with the last one.
  void Clear() noexcept;
  bool IsEmpty() const noexcept { return key_ == nullptr; }
  /// The key object, still owned by this handle; null when empty.
  evp_pkey_st* Get0() const noexcept { return key_; }

 protected:
  /// Replaces the key object and takes over the caller's reference.
  void Set0(evp_pkey_st* key) noexcept;

 private:
  evp_pkey_st* key_;
};

/// A private key that can be loaded.
class ORUSEC_EXPORT PrivateKey : public Key {
 public:
  explicit PrivateKey(evp_pkey_st* key) noexcept : Key(key) {}

  /// Reads an unencrypted private key (PKCS #8 or a traditional form). An encrypted one is refused, as there
  /// is nobody to ask for its password. On false the key is unchanged and the reason is in the error state.
  bool Load(const OruGuiBase::AnsiStr& text, ASN1::Encoding encoding) noexcept;
};

}  // namespace OruOssSec
