#include "security/cms/file_digest.h"

#include "foundation/filehandle.h"
#include "foundation/work_buffer.h"
#include "security/failure.h"
#include "security/openssl_handles.h"

using OruGuiBase::Blob;
using OruGuiBase::File;

namespace OruOssSec {

namespace {

bool AddBytes(OruGuiBase::FileReader& reader, EVP_MD_CTX* context) noexcept {
  OruGuiBase::WorkBuffer buffer;
  if (!buffer.Alloc(OruGuiBase::kStreamBuffer)) return FailWithoutMemory();
  for (;;) {
    const std::int64_t got = reader.Read(buffer.GetData(), buffer.GetSize());
    if (got < 0) return false;
    if (got == 0) return reader.IsUnchanged() || FailWith("The file changed while it was read");
    if (EVP_DigestUpdate(context, buffer.GetData(), static_cast<std::size_t>(got)) != 1) {
      return FailWithOpenSSL("The digest cannot be computed");
    }
  }
}

}  // namespace

bool DigestFile(const File& file, const char* algorithm, Blob& digest) noexcept {
  const OpenSSLScope scope;
  const DigestPtr method(EVP_MD_fetch(nullptr, algorithm, nullptr));
  const DigestCtxPtr context(EVP_MD_CTX_new());
  if (method == nullptr || context == nullptr ||
      EVP_DigestInit_ex2(context.get(), method.get(), nullptr) != 1) {
    return FailWithOpenSSL("The digest algorithm is not available");
  }
  OruGuiBase::FileReader reader;
  if (!reader.Open(file) || !AddBytes(reader, context.get()) || !reader.Close()) return false;
  Blob value;
  std::uint8_t* data = value.Alloc(static_cast<std::uint32_t>(EVP_MD_get_size(method.get())));
  if (data == nullptr) return FailWithoutMemory();
  if (EVP_DigestFinal_ex(context.get(), data, nullptr) != 1) {
    return FailWithOpenSSL("The digest cannot be computed");
  }
  digest = value;
  return true;
}

}  // namespace OruOssSec
