#pragma once

#include <memory>
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/cms.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

// Every OpenSSL handle that is owned in security/, with its one deleter. The public classes and Digest hold
// raw pointers instead, as their headers show no OpenSSL.
namespace OruOssSec {

/// Deletes a handle with the function of OpenSSL that its type demands.
template <auto Free>
struct Deleter {
  template <class T>
  void operator()(T* handle) const noexcept {
    Free(handle);
  }
};

/// Deletes a stack together with its references to the certificates.
struct CertStackDeleter {
  void operator()(STACK_OF(X509) * stack) const noexcept { sk_X509_pop_free(stack, X509_free); }
};

/// Frees with OPENSSL_free, which is a macro.
struct OpenSSLMemoryDeleter {
  void operator()(unsigned char* memory) const noexcept { OPENSSL_free(memory); }
};

using AlgorPtr = std::unique_ptr<X509_ALGOR, Deleter<X509_ALGOR_free>>;
using Asn1IntegerPtr = std::unique_ptr<ASN1_INTEGER, Deleter<ASN1_INTEGER_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, Deleter<BN_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using CertPtr = std::unique_ptr<X509, Deleter<X509_free>>;
using CertStackPtr = std::unique_ptr<STACK_OF(X509), CertStackDeleter>;
using CipherPtr = std::unique_ptr<EVP_CIPHER, Deleter<EVP_CIPHER_free>>;
using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, Deleter<EVP_CIPHER_CTX_free>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Deleter<CMS_ContentInfo_free>>;
/// An encoding that OpenSSL allocated.
using DerPtr = std::unique_ptr<unsigned char, OpenSSLMemoryDeleter>;
/// The outer structure of an encrypted PKCS #8 key.
using EncryptedKeyPtr = std::unique_ptr<X509_SIG, Deleter<X509_SIG_free>>;
using KeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using NamePtr = std::unique_ptr<X509_NAME, Deleter<X509_NAME_free>>;
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, Deleter<ASN1_OBJECT_free>>;
using PKCS8Ptr = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Deleter<PKCS8_PRIV_KEY_INFO_free>>;
using StoreCtxPtr = std::unique_ptr<X509_STORE_CTX, Deleter<X509_STORE_CTX_free>>;
using StorePtr = std::unique_ptr<X509_STORE, Deleter<X509_STORE_free>>;
using VerifyParamPtr = std::unique_ptr<X509_VERIFY_PARAM, Deleter<X509_VERIFY_PARAM_free>>;

}  // namespace OruOssSec
