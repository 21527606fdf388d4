// Reads and checks the files of the options with OpenSSL, as libcurl would at the first connection: there a
// wrong file would show as a server that cannot be reached.
#include "transport/tls_files.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <utility>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/format.h"

namespace OruKalvix {

using OruGuiBase::AnsiStr;

namespace {

// Twenty times the system's authorities. libcurl takes less than 8 MB, and a device such as /dev/zero never
// ends.
constexpr std::uint32_t kMaxFile = 4 * 1024 * 1024;
constexpr std::uint32_t kBuffer = 64 * 1024;

struct Deleter {
  void operator()(BIO* bio) const { BIO_free(bio); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(STACK_OF(X509_INFO) * entries) const { sk_X509_INFO_pop_free(entries, X509_INFO_free); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Deleter>;

/// Keeps what OpenSSL reports here from the application, which may look at the same queue.
class QuietErrors {
 public:
  QuietErrors() noexcept { ERR_set_mark(); }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;
  ~QuietErrors() { ERR_pop_to_mark(); }
};

/// A file of the options, for messages.
struct NamedFile {
  const char* what;
  const AnsiStr& path;

  bool Fail(const AnsiStr& reason, AnsiStr& errorText) const {
    errorText = AnsiStr("Could not read ") + what + " " + OruGuiBase::SimpleQuote(path) + ": " + reason;
    return false;
  }
};

bool ReadWhole(const NamedFile& file, AnsiStr& content, AnsiStr& errorText) {
  OruGuiBase::FileReader reader;
  AnsiStr buffer;  // a string, because it is wiped
  char* const bytes = buffer.Alloc(kBuffer);
  if (bytes == nullptr) throw std::bad_alloc();
  if (!reader.Open(OruGuiBase::File(file.path)))
    return file.Fail(OruGuiBase::GetSystemErrorText(), errorText);
  std::int64_t got = 0;
  while ((got = reader.Read(bytes, kBuffer)) > 0) {
    content.Append(bytes, static_cast<std::uint32_t>(got));
    if (content.GetLength() > kMaxFile) return file.Fail("it is larger than 4 MiB", errorText);
  }
  return got == 0 || file.Fail(OruGuiBase::GetSystemErrorText(), errorText);
}

Owned<BIO> OpenMemory(const AnsiStr& content) {
  Owned<BIO> bio(BIO_new_mem_buf(content.GetText(), static_cast<int>(content.GetLength())));
  if (bio == nullptr) throw std::bad_alloc();
  return bio;
}

// The end of a file is an error of its own to OpenSSL: no further line that begins a block.
bool IsAtEnd() {
  return ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
}

AnsiStr InvalidCertificate() {
  const char* const reason = ERR_reason_error_string(ERR_peek_last_error());
  return AnsiStr("a certificate in it is not valid: ") + (reason != nullptr ? reason : "unknown reason");
}

// Lists of revoked certificates may stand beside the authorities.
bool CheckAuthorities(const NamedFile& file, const AnsiStr& content, AnsiStr& errorText) {
  const Owned<BIO> bio = OpenMemory(content);
  const Owned<STACK_OF(X509_INFO)> entries(PEM_X509_INFO_read_bio(bio.get(), nullptr, nullptr, nullptr));
  if (entries == nullptr) return file.Fail(InvalidCertificate(), errorText);
  for (int i = 0; i < sk_X509_INFO_num(entries.get()); ++i) {
    if (sk_X509_INFO_value(entries.get(), i)->x509 != nullptr) return true;
  }
  return file.Fail("it has no certificate", errorText);
}

// Takes the certificates alone: libcurl keeps a copy with each connection and does not wipe it, so a key in
// the same file must not be part of that.
bool TakeCertificates(const NamedFile& file, const AnsiStr& content, AnsiStr& certificates,
                      Owned<X509>& first, AnsiStr& errorText) {
  const Owned<BIO> bio = OpenMemory(content);
  const Owned<BIO> written(BIO_new(BIO_s_mem()));
  if (written == nullptr) throw std::bad_alloc();
  for (;;) {
    Owned<X509> certificate(PEM_read_bio_X509_AUX(bio.get(), nullptr, nullptr, nullptr));
    if (certificate == nullptr) break;
    if (PEM_write_bio_X509(written.get(), certificate.get()) != 1) throw std::bad_alloc();
    if (first == nullptr) first = std::move(certificate);
  }
  if (!IsAtEnd()) return file.Fail(InvalidCertificate(), errorText);
  if (first == nullptr) return file.Fail("it has no certificate", errorText);
  char* text = nullptr;
  const long length = BIO_get_mem_data(written.get(), &text);
  certificates = AnsiStr(text, static_cast<std::uint32_t>(length));
  return true;
}

// Never prompts. A password that does not fit into OpenSSL's buffer fits no key either.
int GivePassword(char* buffer, int size, int, void* context) {
  const auto& password = *static_cast<const AnsiStr*>(context);
  if (password.GetLength() > static_cast<std::uint32_t>(size)) return -1;
  std::memcpy(buffer, password.GetText(), password.GetLength());
  return static_cast<int>(password.GetLength());
}

bool CheckKey(const NamedFile& file, const AnsiStr& content, AnsiStr password, X509* certificate,
              AnsiStr& errorText) {
  const Owned<BIO> bio = OpenMemory(content);
  const Owned<EVP_PKEY> key(PEM_read_bio_PrivateKey(bio.get(), nullptr, &GivePassword, &password));
  if (key == nullptr) {
    return file.Fail("it has no private key, or one that the password does not open", errorText);
  }
  if (X509_check_private_key(certificate, key.get()) == 1) return true;
  return file.Fail("it is not the key of the client certificate", errorText);
}

}  // namespace

bool TlsFiles::Read(const CryptClientCurlOptions& options, AnsiStr& errorText) {
  const QuietErrors quiet;
  const bool isKeyApart = !options.clientKey.IsEmpty();
  const NamedFile authorityFile{"CA file", options.caFile};
  const NamedFile certificateFile{"client certificate", options.clientCertificate};
  const NamedFile keyFile{"client key", isKeyApart ? options.clientKey : options.clientCertificate};
  const bool hasAuthorities = !options.caFile.IsEmpty();
  const bool hasCertificate = !options.clientCertificate.IsEmpty();
  AnsiStr certificateText;
  // What is missing or unreadable is reported before what is wrong in itself.
  if ((hasAuthorities && !ReadWhole(authorityFile, authorities, errorText)) ||
      (hasCertificate && !ReadWhole(certificateFile, certificateText, errorText))) {
    return false;
  }
  if (!isKeyApart) {
    key = certificateText;
  } else if (!ReadWhole(keyFile, key, errorText)) {
    return false;
  }
  if (hasAuthorities && !CheckAuthorities(authorityFile, authorities, errorText)) return false;
  if (!hasCertificate) return true;
  Owned<X509> first;
  return TakeCertificates(certificateFile, certificateText, certificates, first, errorText) &&
         CheckKey(keyFile, key, options.clientKeyPassword, first.get(), errorText);
}

}  // namespace OruKalvix
