#pragma once

#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/blob.h"

struct X509_name_st;
struct x509_st;

// Private to this folder: what certificates, keys and messages look like as text. None of the functions opens
// an OpenSSLScope; each leaves the reason of a failure in the error state.
namespace OruOssSec {

/// A binary object that was read from text. Its bytes are wiped with it.
struct TextObject {
  /// The label of the PEM block (RFC 7468), a view of the text it came from; empty for plain base64.
  std::string_view label;
  OruGuiBase::Blob bytes;
};

/// Reads the objects of a text one after the other, in time linear to its length: PEM blocks, and runs of
/// plain base64 that end at a blank line or a PEM block. Between them stands white space alone. Lines end in
/// LF, CRLF or CR. Encrypted blocks and blocks with headers are refused.
class TextObjectReader {
 public:
  enum class Step { Object, End, Failure };

  explicit TextObjectReader(std::string_view text) noexcept : rest_(text) {}
  Step Next(TextObject& object) noexcept;
  /// Whether there is nothing but white space any more.
  bool IsAtEnd() noexcept;

 private:
  bool ReadBlock(TextObject& object) noexcept;
  bool ReadPlain(TextObject& object) noexcept;

  std::string_view rest_;
};

/// Reads a text that is exactly one object. In plain base64 all white space is passed over, blank lines too.
bool ReadSingleObject(std::string_view text, TextObject& object) noexcept;

/// A distinguished name in the form of RFC 2253, in UTF-8; only what the form demands is escaped.
bool NameToText(const X509_name_st* name, OruGuiBase::AnsiStr& text) noexcept;

/// A certificate out of an object of text, with nothing after it; null on failure.
x509_st* DecodeCertificate(const TextObject& object) noexcept;

}  // namespace OruOssSec
