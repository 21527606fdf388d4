#pragma once

#include <cstdint>
#include <string_view>

#include "foundation/export.h"
#include "foundation/reference.h"

namespace OruGuiBase {

/// A view of bytes that owns nothing.
struct BlobConst {
  const std::uint8_t* data = nullptr;
  std::uint32_t size = 0;
};

/// A shared, counted block of bytes. It shares, copies, wipes and aborts as AnsiStr does, but has no final
/// NUL.
class ORUGUI_EXPORT Blob {
 public:
  /// The shared block. The bytes follow directly after the three fields.
  struct ORUGUI_EXPORT Imp {
    Reference::Count refCount;
    std::uint32_t capacity;
    std::uint32_t size;

    std::uint8_t* Data() noexcept { return reinterpret_cast<std::uint8_t*>(this + 1); }
    const std::uint8_t* Data() const noexcept { return reinterpret_cast<const std::uint8_t*>(this + 1); }

    /// Wipes and frees a representation whose count has reached 0.
    static void Free(Imp* imp) noexcept;
    /// A new representation with the count 1 and bytes of 0; null on allocation failure.
    static Imp* Init(std::uint32_t capacity, std::uint32_t size) noexcept;
  };

  Blob() noexcept = default;
  explicit Blob(const BlobConst& bytes) noexcept;
  Blob(const Blob& other) noexcept : imp_(other.imp_) {
    if (imp_ != nullptr) Reference::Link(imp_->refCount);
  }
  Blob(Blob&& other) noexcept : imp_(other.imp_) { other.imp_ = nullptr; }
  ~Blob() { Drop(imp_); }
  Blob& operator=(const Blob& other) noexcept;
  Blob& operator=(Blob&& other) noexcept;

  const std::uint8_t* GetData() const noexcept { return imp_ != nullptr ? imp_->Data() : nullptr; }
  std::uint32_t GetSize() const noexcept { return imp_ != nullptr ? imp_->size : 0; }
  bool IsEmpty() const noexcept { return GetSize() == 0; }
  BlobConst View() const noexcept { return {GetData(), GetSize()}; }

  /// Gives the blob the size `size` and returns its bytes for writing. An unshared blob with enough capacity
  /// keeps its bytes; otherwise it gets new ones, all 0. Null if `size` is 0 or on allocation failure; the
  /// blob is then empty.
  std::uint8_t* Alloc(std::uint32_t size) noexcept;
  /// Cuts the blob to `size` bytes. A shorter one stays as it is; a shared one is copied first.
  void Trunc(std::uint32_t size) noexcept;
  /// Makes the blob empty. An unshared one keeps its storage; a shared one gives up its reference.
  void Clear() noexcept;

  friend bool operator==(const Blob& a, const Blob& b) noexcept;

  Imp* GetImp() const noexcept { return imp_; }
  /// A blob that takes one more reference on `imp`, which may be null.
  static Blob FromImp(Imp* imp) noexcept;

 private:
  static void Drop(Imp* imp) noexcept {
    if (imp != nullptr && Reference::Unlink(imp->refCount)) Imp::Free(imp);
  }

  Imp* imp_ = nullptr;
};

static_assert(sizeof(Blob) == sizeof(void*) && sizeof(Blob::Imp) == 12);

}  // namespace OruGuiBase
