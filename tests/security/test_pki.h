#pragma once

#include <cstdio>
#include <openssl/err.h>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/datetime.h"
#include "foundation/errorstate.h"
#include "security/certificate.h"
#include "security/key.h"
#include "stand/cert_maker.h"

// What the tests of this folder share: keys that are made once, and short ways between their types and ours.
namespace SecurityTest {

using CryptStand::Cert;
using CryptStand::CertSpec;
using CryptStand::Identity;
using CryptStand::KeyPair;
using CryptStand::Validity;

/// One of four RSA keys of 2048 bits.
inline const KeyPair& SharedKey(std::size_t index) {
  static const KeyPair keys[] = {KeyPair::MakeRSA(), KeyPair::MakeRSA(), KeyPair::MakeRSA(),
                                 KeyPair::MakeRSA()};
  return keys[index];
}

/// A key on a curve; its certificates are half as long, which sweeps over their bytes like.
inline const KeyPair& SharedECKey() {
  static const KeyPair key = KeyPair::MakeEC();
  return key;
}

inline OruGuiBase::AnsiStr ToText(std::string_view text) {
  return OruGuiBase::AnsiStr(text);
}
inline std::string ToString(const OruGuiBase::AnsiStr& text) {
  return std::string(text.View());
}

inline OruOssSec::Certificate ToCertificate(const Cert& certificate) {
  OruOssSec::Certificate loaded;
  loaded.Load(ToText(certificate.ToPEM()), OruOssSec::ASN1::Encoding::Text);
  return loaded;
}

inline std::string GetReason() {
  return ToString(OruGuiBase::GetSystemErrorText());
}

/// Leaves a reason behind that must not be taken for that of the next operation.
inline void LeaveStaleReason() {
  OruGuiBase::SetErrorMessage("stale");
}

inline bool IsQueueEmpty() {
  return ERR_peek_error() == 0;
}

inline OruGuiBase::DateTime At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  return {year, month, day, hour, minute, second};
}

/// PEM around any bytes.
inline std::string MakePEM(const std::string& label, std::string_view bytes) {
  std::string text = "-----BEGIN " + label + "-----\n";
  const std::string base64 = CryptStand::ToBase64(bytes);
  for (std::size_t i = 0; i < base64.size(); i += 64) text += base64.substr(i, 64) + "\n";
  return text + "-----END " + label + "-----\n";
}

/// The text with each LF replaced.
inline std::string WithLineEnds(std::string_view text, std::string_view lineEnd) {
  std::string result;
  for (const char character : text) {
    if (character == '\n') {
      result += lineEnd;
    } else {
      result += character;
    }
  }
  return result;
}

/// The text broken into lines of 64 characters.
inline std::string InLines(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); i += 64) result.append(text.substr(i, 64)).append("\n");
  return result;
}

inline bool IsWhite(char character) {
  return std::string_view(" \t\r\n\f\v").find(character) != std::string_view::npos;
}

}  // namespace SecurityTest
