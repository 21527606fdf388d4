// Reads PEM (RFC 7468) and plain base64. Certificates, stores, keys and messages are loaded through it.
//
// Users paste such strings from mails and web pages, so explanations around a block are passed over. What
// looks like a damaged object is a failure, never skipped: a trust list that lost an entry must not load.
#include "security/x509/text_forms.h"

#include "foundation/encoding.h"
#include "security/failure.h"
#include "security/openssl_handles.h"

namespace OruOssSec {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::Blob;

constexpr const char* kWhite = " \t\r\n\f\v";
constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEnd = "-----END ";
constexpr std::string_view kDashes = "-----";
// The first characters of the base64 of each DER sequence of 256 to 65,535 bytes, as all our objects are.
constexpr std::string_view kSequence = "MII";

void SkipWhite(std::string_view& text) {
  const auto first = text.find_first_not_of(kWhite);
  text.remove_prefix(first == std::string_view::npos ? text.size() : first);
}

// Skips white space within a line, which FindsBlock passes over before a block too.
void SkipBlanks(std::string_view& text) {
  const auto first = text.find_first_not_of(" \t\f\v");
  text.remove_prefix(first == std::string_view::npos ? text.size() : first);
}

// Takes the next line and its line end: LF, CRLF or CR.
std::string_view TakeLine(std::string_view& text) {
  const auto end = text.find_first_of("\r\n");
  const auto size = end == std::string_view::npos ? text.size() : end;
  const std::string_view line = text.substr(0, size);
  text.remove_prefix(size);
  if (text.starts_with("\r\n")) {
    text.remove_prefix(2);
  } else if (!text.empty()) {
    text.remove_prefix(1);
  }
  return line;
}

bool IsBlank(std::string_view line) {
  return line.find_first_not_of(kWhite) == std::string_view::npos;
}

bool DecodeBase64(std::string_view text, Blob& bytes) {
  if (IsBlank(text)) return FailWith("The text holds no data");
  // An upper bound: white space counts too.
  auto size = static_cast<std::uint32_t>(text.size() / 4 * 3 + 3);
  std::uint8_t* target = bytes.Alloc(size);
  if (target == nullptr) return FailWithoutMemory();
  if (!OruGuiBase::B64Str2Binary(AnsiStr(text), target, size, kWhite)) return FailWith("Invalid base64 text");
  bytes.Trunc(size);
  return true;
}

// Decodes the lines between the first and the last line of a block. A colon marks a header (RFC 1421), which
// only encrypted keys of the traditional form need.
bool DecodeBody(std::string_view body, Blob& bytes) {
  if (body.find(':') != std::string_view::npos) {
    const bool encrypted = body.find("ENCRYPTED") != std::string_view::npos;
    return FailWith(encrypted ? "The PEM text is encrypted" : "The PEM text has headers");
  }
  return DecodeBase64(body, bytes);
}

// Whether a line opens a block; blanks may come before it.
bool FindsBlock(std::string_view text) {
  while (!text.empty()) {
    SkipWhite(text);
    if (text.starts_with(kBegin)) return true;
    TakeLine(text);
  }
  return false;
}

// Whether a line that begins with dashes is a damaged first line of a block, or a last line without a first
// one. Other lines of dashes are ornaments.
bool IsCutBoundary(std::string_view line) {
  line.remove_prefix(kDashes.size());
  const std::string_view word = line.substr(0, line.find_first_of(" \t-"));
  constexpr std::string_view kWords[] = {"BEGIN", "END"};
  return !word.empty() && (kWords[0].starts_with(word) || kWords[1].starts_with(word));
}

// Takes "label-----" from the front of the string. White space or the end has to follow.
bool TakeLabel(std::string_view& text, std::string_view& label) {
  const auto end = text.find_first_of("-\r\n");
  if (end == std::string_view::npos || !text.substr(end).starts_with(kDashes)) return false;
  label = text.substr(0, end);
  text.remove_prefix(end + kDashes.size());
  return !label.empty() && (text.empty() || IsBlank(text.substr(0, 1)));
}

}  // namespace

TextObjectReader::TextObjectReader(std::string_view text) noexcept
    : rest_(text), hasBlocks_(FindsBlock(text)) {}

bool TextObjectReader::ReadBlock(TextObject& object) noexcept {
  rest_.remove_prefix(kBegin.size());
  if (!TakeLabel(rest_, object.label)) return FailWith("Invalid first line of a PEM text");
  const auto bodyEnd = rest_.find(kDashes);
  if (bodyEnd == std::string_view::npos) return FailWith("The PEM text has no last line");
  const std::string_view body = rest_.substr(0, bodyEnd);
  rest_.remove_prefix(bodyEnd);
  std::string_view endLabel;
  if (!rest_.starts_with(kEnd)) return FailWith("Invalid last line of a PEM text");
  rest_.remove_prefix(kEnd.size());
  if (!TakeLabel(rest_, endLabel) || endLabel != object.label) {
    return FailWith("Invalid last line of a PEM text");
  }
  return DecodeBody(body, object.bytes);
}

// Takes the lines up to a blank one or to one that begins with dashes.
std::string_view TextObjectReader::TakeRun() noexcept {
  const char* const start = rest_.data();
  const char* end = start;
  while (!rest_.empty() && !rest_.starts_with(kDashes)) {
    const std::string_view line = TakeLine(rest_);
    if (IsBlank(line)) break;
    end = line.data() + line.size();
    if (hasBlocks_) SkipBlanks(rest_);
  }
  return {start, static_cast<std::size_t>(end - start)};
}

bool TextObjectReader::ReadPlain(TextObject& object) noexcept {
  object.label = {};
  return DecodeBase64(TakeRun(), object.bytes);
}

// Reads lines beside blocks. They are an object when they begin like one, and then have to be one; all others
// are an explanation.
TextObjectReader::Step TextObjectReader::ReadBeside(TextObject& object) noexcept {
  if (rest_.starts_with(kSequence)) return ReadPlain(object) ? Step::Object : Step::Failure;
  if (!rest_.starts_with(kDashes)) {
    TakeRun();
  } else if (IsCutBoundary(TakeLine(rest_))) {
    FailWith("Invalid first line of a PEM text");
    return Step::Failure;
  }
  return Step::End;
}

bool TextObjectReader::IsAtEnd() noexcept {
  SkipWhite(rest_);
  return rest_.empty();
}

TextObjectReader::Step TextObjectReader::Next(TextObject& object) noexcept {
  Step step = Step::End;
  while (step == Step::End && !IsAtEnd()) {
    if (hasBlocks_ && !rest_.starts_with(kBegin)) {
      step = ReadBeside(object);
    } else {
      const bool read = rest_.starts_with(kBegin) ? ReadBlock(object) : ReadPlain(object);
      step = read ? Step::Object : Step::Failure;
    }
  }
  return step;
}

bool ReadSingleObject(std::string_view text, TextObject& object) noexcept {
  SkipWhite(text);
  if (text.empty()) return FailWith("The text is empty");
  TextObjectReader reader(text);
  if (!reader.HasBlocks()) {
    object.label = {};
    return DecodeBase64(text, object.bytes);
  }
  if (reader.Next(object) != TextObjectReader::Step::Object) return false;
  TextObject more;
  return reader.Next(more) == TextObjectReader::Step::End || FailWith("The text holds more than one object");
}

bool NameToText(const X509_NAME* name, AnsiStr& text) noexcept {
  // Without the flag, characters beyond ASCII are written in UTF-8 instead of being escaped.
  constexpr unsigned long kForm = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  const BioPtr bio(BIO_new(BIO_s_mem()));
  if (bio == nullptr || X509_NAME_print_ex(bio.get(), name, 0, kForm) < 0) {
    return FailWithOpenSSL("The name cannot be shown as text");
  }
  const char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  text = size > 0 ? AnsiStr(data, static_cast<std::uint32_t>(size)) : AnsiStr();
  return true;
}

X509* DecodeCertificate(const TextObject& object) noexcept {
  if (!object.label.empty() && object.label != "CERTIFICATE" && object.label != "X509 CERTIFICATE") {
    FailWith("The PEM text is not a certificate");
    return nullptr;
  }
  const unsigned char* position = object.bytes.GetData();
  const long size = static_cast<long>(object.bytes.GetSize());
  CertPtr certificate(d2i_X509(nullptr, &position, size));
  if (certificate == nullptr || position != object.bytes.GetData() + size) {
    FailWith(certificate == nullptr ? "The text is not an X.509 certificate"
                                    : "There is data after the certificate");
    return nullptr;
  }
  return certificate.release();
}

}  // namespace OruOssSec
