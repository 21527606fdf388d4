// Bytes that are no string: certificates, signatures, hashes and decoded keys. Counted, shared and wiped as
// AnsiStr is.

#include "foundation/blob.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

namespace OruGuiBase {

static_assert(offsetof(Blob::Imp, refCount) == 0 && offsetof(Blob::Imp, capacity) == 4 &&
              offsetof(Blob::Imp, size) == 8);

namespace {

std::size_t BlockSize(std::uint32_t capacity) {
  return sizeof(Blob::Imp) + std::size_t{capacity};
}

Blob::Imp* CopyOrAbort(const std::uint8_t* data, std::uint32_t size) {
  if (size == 0) return nullptr;
  Blob::Imp* imp = Blob::Imp::Init(size, size);
  if (imp == nullptr) DebugAbort("Could not allocate blob");
  std::memcpy(imp->Data(), data, size);
  return imp;
}

}  // namespace

void Blob::Imp::Free(Imp* imp) noexcept {
  const std::size_t size = BlockSize(imp->capacity);
  imp->~Imp();
  WipeMemory(imp, size);
  FreeParticle(size, imp);
}

// Zeroed, so that what a decoder does not fill never shows old memory.
Blob::Imp* Blob::Imp::Init(std::uint32_t capacity, std::uint32_t size) noexcept {
  capacity = std::max(capacity, size);
  void* memory = AllocParticle(BlockSize(capacity));
  if (memory == nullptr) return nullptr;
  Imp* imp = new (memory) Imp{{1}, capacity, size};
  if (capacity != 0) std::memset(imp->Data(), 0, capacity);
  return imp;
}

// Aborts on allocation failure, as a constructor cannot report it.
Blob::Blob(const BlobConst& bytes) noexcept : imp_(CopyOrAbort(bytes.data, bytes.size)) {}

Blob& Blob::operator=(const Blob& other) noexcept {
  Blob copy(other);
  std::swap(imp_, copy.imp_);
  return *this;
}

Blob& Blob::operator=(Blob&& other) noexcept {
  if (this != &other) Drop(std::exchange(imp_, std::exchange(other.imp_, nullptr)));
  return *this;
}

// A decoder allocates its guess and then cuts to the true size; keeping the storage saves a second block with
// a key.
std::uint8_t* Blob::Alloc(std::uint32_t size) noexcept {
  const bool keeps = imp_ != nullptr && imp_->capacity >= size && !Reference::IsShared(imp_->refCount);
  if (!keeps) Drop(std::exchange(imp_, size != 0 ? Imp::Init(size, size) : nullptr));
  if (imp_ == nullptr) return nullptr;
  imp_->size = size;
  return size != 0 ? imp_->Data() : nullptr;
}

// What is cut off stays in the block until Free wipes all of it.
void Blob::Trunc(std::uint32_t size) noexcept {
  if (size >= GetSize()) return;
  if (Reference::IsShared(imp_->refCount)) {
    Drop(std::exchange(imp_, CopyOrAbort(imp_->Data(), size)));
  } else {
    imp_->size = size;
  }
}

void Blob::Clear() noexcept {
  if (imp_ != nullptr && Reference::IsShared(imp_->refCount)) Drop(std::exchange(imp_, nullptr));
  if (imp_ != nullptr) imp_->size = 0;
}

bool operator==(const Blob& a, const Blob& b) noexcept {
  const std::uint32_t size = a.GetSize();
  return size == b.GetSize() && (size == 0 || std::memcmp(a.GetData(), b.GetData(), size) == 0);
}

Blob Blob::FromImp(Imp* imp) noexcept {
  Blob blob;
  if (imp != nullptr) Reference::Link(imp->refCount);
  blob.imp_ = imp;
  return blob;
}

}  // namespace OruGuiBase
