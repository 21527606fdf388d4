// Makes a chosen function of OpenSSL fail. The linker sends the calls of the library here first (--wrap).
#include "tests/security/openssl_faults.h"

#include <openssl/cms.h>
#include <openssl/evp.h>
#include <string_view>

namespace SecurityTest {
namespace {

std::string_view planned;
int left = 0;
bool met = false;

bool Fails(std::string_view function) {
  if (function != planned || --left != 0) return false;
  met = true;
  return true;
}

}  // namespace

OpenSSLFault::OpenSSLFault(const char* function, int number) {
  planned = function;
  left = number;
  met = false;
}

OpenSSLFault::~OpenSSLFault() {
  planned = {};
}

bool OpenSSLFault::WasMet() const {
  return met;
}

}  // namespace SecurityTest

using SecurityTest::Fails;

// A list of parameters has parentheses of its own. NOLINTBEGIN(bugprone-macro-parentheses)
// The linker sends each call from the program's own objects here.
#define WRAP(result, failure, function, parameters, arguments)       \
  extern "C" result __real_##function parameters;                    \
  extern "C" result __wrap_##function parameters;                    \
  result __wrap_##function parameters {                              \
    return Fails(#function) ? failure : __real_##function arguments; \
  }
// NOLINTEND(bugprone-macro-parentheses)

WRAP(CMS_ContentInfo*, nullptr, CMS_encrypt,
     (STACK_OF(X509) * certificates, BIO* content, const EVP_CIPHER* cipher, unsigned flags),
     (certificates, content, cipher, flags))
WRAP(CMS_RecipientInfo*, nullptr, CMS_add1_recipient_cert,
     (CMS_ContentInfo * message, X509* certificate, unsigned flags), (message, certificate, flags))
WRAP(BIO*, nullptr, CMS_dataInit, (CMS_ContentInfo * message, BIO* content), (message, content))
WRAP(EVP_PKEY*, nullptr, X509_get0_pubkey, (const X509* certificate), (certificate))
WRAP(int, 0, EVP_EncryptUpdate,
     (EVP_CIPHER_CTX * context, unsigned char* target, int* made, const unsigned char* source, int size),
     (context, target, made, source, size))
WRAP(int, 0, EVP_EncryptFinal_ex, (EVP_CIPHER_CTX * context, unsigned char* target, int* made),
     (context, target, made))
WRAP(int, 0, CMS_signed_add1_attr_by_NID,
     (CMS_SignerInfo * signer, int nid, int type, const void* bytes, int size),
     (signer, nid, type, bytes, size))
WRAP(int, 0, CMS_signed_add1_attr_by_OBJ,
     (CMS_SignerInfo * signer, const ASN1_OBJECT* object, int type, const void* bytes, int size),
     (signer, object, type, bytes, size))
WRAP(int, -1, i2d_X509_ATTRIBUTE, (const X509_ATTRIBUTE* attribute, unsigned char** target),
     (attribute, target))

// BIO_get_cipher_ctx is a macro around this one.
extern "C" long __real_BIO_ctrl(BIO* bio, int command, long number, void* pointer);
extern "C" long __wrap_BIO_ctrl(BIO* bio, int command, long number, void* pointer);
long __wrap_BIO_ctrl(BIO* bio, int command, long number, void* pointer) {
  const bool fails = command == BIO_C_GET_CIPHER_CTX && Fails("BIO_get_cipher_ctx");
  return fails ? 0 : __real_BIO_ctrl(bio, command, number, pointer);
}
