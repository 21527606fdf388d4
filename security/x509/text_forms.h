#pragma once

#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/blob.h"

struct X509_name_st;
struct x509_st;

// How certificates, keys and messages are written as text. None of the functions opens an OpenSSLScope: the
// caller, a public operation, has one. Each leaves the reason of a failure in the error state.
namespace OruOssSec {

/// A binary object that was read from text. It owns its bytes, which are wiped with it: they may be a key.
struct TextObject {
  /// The label of the PEM block (RFC 7468), a view of the text that was read; empty for plain base64.
  std::string_view label;
  OruGuiBase::Blob bytes;
};

/// Reads the objects in a string one after the other, in time linear to its length: PEM blocks, and runs of
/// plain base64 that end at a blank line or a PEM block. Lines end in LF, CRLF or CR. Encrypted blocks and
/// blocks with headers are refused. Views the string, which has to outlive the reader.
///
/// In a string with at least one block, text around the blocks is an explanation and passed over (RFC
/// 7468, section 2); a run of lines beside the blocks is read as an object when it begins with "MII", as
/// base64 of every certificate does. In a string without a block everything has to be an object.
class TextObjectReader {
 public:
  /// What a call of Next() found.
  enum class Step { Object, End, Failure };

  explicit TextObjectReader(std::string_view text) noexcept;
  Step Next(TextObject& object) noexcept;
  /// Whether only white space is left.
  bool IsAtEnd() noexcept;
  /// Whether a line begins a PEM block, well-formed or not.
  bool HasBlocks() const noexcept { return hasBlocks_; }

 private:
  bool ReadBlock(TextObject& object) noexcept;
  bool ReadPlain(TextObject& object) noexcept;
  Step ReadBeside(TextObject& object) noexcept;
  std::string_view TakeRun() noexcept;

  std::string_view rest_;
  bool hasBlocks_;
};

/// Reads a string with exactly one object. In plain base64 all white space is passed over, blank lines too.
bool ReadSingleObject(std::string_view text, TextObject& object) noexcept;

/// Writes a distinguished name in the form of RFC 2253, in UTF-8; only what the form demands is escaped.
bool NameToText(const X509_name_st* name, OruGuiBase::AnsiStr& text) noexcept;

/// Decodes a certificate with nothing after it. The caller owns the result; null on failure.
x509_st* DecodeCertificate(const TextObject& object) noexcept;

}  // namespace OruOssSec
