#pragma once

#include <memory>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

// Private to this folder: every OpenSSL handle that is owned here, with its one deleter.
namespace OruOssSec {

template <auto Free>
struct Deleter {
  template <class T>
  void operator()(T* handle) const noexcept {
    Free(handle);
  }
};

struct CertStackDeleter {
  void operator()(STACK_OF(X509) * stack) const noexcept { sk_X509_pop_free(stack, X509_free); }
};

using BioPtr = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using CertPtr = std::unique_ptr<X509, Deleter<X509_free>>;
using CertStackPtr = std::unique_ptr<STACK_OF(X509), CertStackDeleter>;
using CipherPtr = std::unique_ptr<EVP_CIPHER, Deleter<EVP_CIPHER_free>>;
using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, Deleter<EVP_CIPHER_CTX_free>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Deleter<CMS_ContentInfo_free>>;
using DigestPtr = std::unique_ptr<EVP_MD, Deleter<EVP_MD_free>>;
using DigestCtxPtr = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX_free>>;
using KeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, Deleter<ASN1_OBJECT_free>>;
using StoreCtxPtr = std::unique_ptr<X509_STORE_CTX, Deleter<X509_STORE_CTX_free>>;
using StorePtr = std::unique_ptr<X509_STORE, Deleter<X509_STORE_free>>;

}  // namespace OruOssSec
