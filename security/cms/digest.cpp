// The one wrapper of OpenSSL's digests. Signing and verifying use the class; DigestFile is there for the
// commands, which have no OpenSSL.
#include "security/cms/digest.h"

#include <algorithm>
#include <openssl/evp.h>

#include "foundation/filehandle.h"
#include "foundation/work_buffer.h"
#include "security/failure.h"

using OruGuiBase::Blob;
using OruGuiBase::File;

namespace OruOssSec {

namespace {

bool AddBytes(OruGuiBase::FileReader& reader, Digest& digest) noexcept {
  OruGuiBase::WorkBuffer buffer;
  if (!buffer.Alloc(OruGuiBase::kStreamBuffer)) return FailWithoutMemory();
  for (;;) {
    const std::int64_t got = reader.Read(buffer.GetData(), buffer.GetSize());
    if (got < 0) return false;
    // A digest of a mixture of two contents would be that of no file.
    if (got == 0) return reader.IsUnchanged() || FailWith("The file changed while it was read");
    if (!digest.Add(buffer.GetData(), static_cast<std::size_t>(got))) {
      return FailWithOpenSSL("The digest cannot be computed");
    }
  }
}

}  // namespace

static_assert(Digest::kMost == EVP_MAX_MD_SIZE);

Digest::~Digest() {
  EVP_MD_CTX_free(context_);
  EVP_MD_free(algorithm_);
}

bool Digest::Begin(const char* algorithm) noexcept {
  algorithm_ = EVP_MD_fetch(nullptr, algorithm, nullptr);
  context_ = EVP_MD_CTX_new();
  return algorithm_ != nullptr && context_ != nullptr &&
         EVP_DigestInit_ex2(context_, algorithm_, nullptr) == 1;
}

bool Digest::Add(const std::uint8_t* data, std::size_t size) noexcept {
  return EVP_DigestUpdate(context_, data, size) == 1;
}

bool Digest::Finish() noexcept {
  return EVP_DigestFinal_ex(context_, value_, &size_) == 1;
}

bool DigestFile(const File& file, const char* algorithm, Blob& digest) noexcept {
  const OpenSSLScope scope;
  Digest computed;
  if (!computed.Begin(algorithm)) return FailWithOpenSSL("The digest algorithm is not available");
  OruGuiBase::FileReader reader;
  if (!reader.Open(file) || !AddBytes(reader, computed) || !reader.Close()) return false;
  if (!computed.Finish()) return FailWithOpenSSL("The digest cannot be computed");
  const OruGuiBase::BlobConst bytes = computed.GetValue();
  Blob value;
  std::uint8_t* const target = value.Alloc(bytes.size);
  if (target == nullptr) return FailWithoutMemory();
  std::copy_n(bytes.data, bytes.size, target);
  digest = value;
  return true;
}

}  // namespace OruOssSec
