#pragma once

#include <cstdint>
#include <string_view>

#include "foundation/export.h"
#include "foundation/reference.h"

namespace OruGuiBase {

/// A view of characters that owns nothing. They need not end in a NUL byte.
struct AnsiSubStr {
  const char* text = nullptr;
  std::uint32_t length = 0;
};

/// A shared, counted byte string. Copying shares the representation; changing copies it first if it is
/// shared.
///
/// The length decides where a string ends: NUL bytes inside it are content. The bytes are followed by a NUL,
/// so that GetText() can be passed to C interfaces. The memory of strings is wiped when it is freed, because
/// they carry keys and passwords. An allocation failure aborts (DebugAbort), unless an operation says
/// otherwise: a shorter string in its place could go unnoticed.
class ORUGUI_EXPORT AnsiStr {
 public:
  /// The shared block. The characters follow directly after the three fields.
  struct ORUGUI_EXPORT Imp {
    Reference::Count refCount;
    std::uint32_t capacity;  ///< Characters that fit, not counting the final NUL.
    std::uint32_t length;    ///< 0 with a first character that is not NUL: not known yet, see GetLength().

    char* Text() noexcept { return reinterpret_cast<char*>(this + 1); }
    const char* Text() const noexcept { return reinterpret_cast<const char*>(this + 1); }

    /// The characters of the empty string; never null.
    static const char* GetEmpty() noexcept;
    /// Wipes and frees a representation whose count has reached 0.
    static void Free(Imp* imp) noexcept;
    /// A new representation with the count 1 and the source's bytes; null on allocation failure.
    static Imp* Init(std::uint32_t capacity, std::uint32_t length, const char* source,
                     std::uint32_t sourceLength) noexcept;
    /// The capacity to allocate for a string that grows to `size`: one and a half times as much if `grow` is
    /// set.
    static std::uint32_t GetExtendSize(std::uint32_t size, bool grow) noexcept;
    /// Traces an append that would make the string longer than 32 bits can count. The append is then dropped.
    static void ReportOverflow(std::uint32_t length, std::uint32_t added) noexcept;
  };

  /// Returned by Find() if the character does not occur.
  static constexpr std::uint32_t npos = 0xFFFFFFFFU;

  AnsiStr() noexcept = default;
  AnsiStr(const char* text) noexcept;  // NOLINT(google-explicit-constructor): literals stand for strings
  AnsiStr(const char* text, std::uint32_t length) noexcept;
  explicit AnsiStr(const AnsiSubStr& text) noexcept : AnsiStr(text.text, text.length) {}
  explicit AnsiStr(std::string_view text) noexcept;
  /// A string with capacity for `size` characters. The caller writes a NUL-terminated string to `buffer`; its
  /// length is counted at the first use.
  AnsiStr(std::uint32_t size, char*& buffer) noexcept;
  AnsiStr(const AnsiStr& other) noexcept : imp_(other.imp_) {
    if (imp_ != nullptr) Reference::Link(imp_->refCount);
  }
  AnsiStr(AnsiStr&& other) noexcept : imp_(other.imp_) { other.imp_ = nullptr; }
  ~AnsiStr() { Drop(imp_); }

  AnsiStr& operator=(const AnsiStr& other) noexcept;
  AnsiStr& operator=(AnsiStr&& other) noexcept;
  AnsiStr& operator=(const char* text) noexcept;

  const char* GetText() const noexcept { return imp_ != nullptr ? imp_->Text() : Imp::GetEmpty(); }
  std::uint32_t GetLength() const noexcept { return imp_ == nullptr ? 0 : LengthOf(imp_); }
  bool IsEmpty() const noexcept { return GetLength() == 0; }
  /// The bytes, valid until this string is changed or destroyed.
  std::string_view View() const noexcept { return {GetText(), GetLength()}; }

  AnsiStr& Append(const char* text, std::uint32_t length) noexcept;
  AnsiStr& Append(std::string_view text) noexcept;
  AnsiStr& operator+=(const AnsiStr& text) noexcept;
  AnsiStr& operator+=(const char* text) noexcept;
  AnsiStr& operator+=(char character) noexcept;

  /// Makes this an unshared string of exactly `size` NUL characters and returns them for writing. The old
  /// content is dropped. Null on allocation failure; the string is then empty.
  char* Alloc(std::uint32_t size) noexcept;
  /// Makes the string unshared with capacity for at least `capacity` characters. The content stays.
  AnsiStr& Reserve(std::uint32_t capacity) noexcept;
  /// Makes the string empty.
  void Clear() noexcept;

  /// ASCII letters to lower case, in place.
  AnsiStr& ToLower() noexcept;
  /// Replaces every occurrence of one character by another, in place.
  AnsiStr& Replace(char from, char to) noexcept;
  /// Cuts the string to `length` characters. A shorter one stays as it is.
  AnsiStr& Trunc(std::uint32_t length) noexcept;
  /// Index of the first occurrence at or after `start`, or npos. `ignoreCase` applies to ASCII letters.
  std::uint32_t Find(char character, std::uint32_t start = 0, bool ignoreCase = false) const noexcept;
  /// Three-way comparison of the bytes as unsigned numbers; 0 means equal. `ignoreCase` applies to ASCII
  /// letters.
  static int Compare(const AnsiStr& a, const AnsiStr& b, bool ignoreCase) noexcept;

  friend bool operator==(const AnsiStr& a, const AnsiStr& b) noexcept { return a.View() == b.View(); }
  friend bool operator==(const AnsiStr& a, const char* b) noexcept { return a.View() == std::string_view(b); }

  /// The shared block, for a Val that stores it, or null for the empty string. Takes no reference.
  Imp* GetImp() const noexcept { return imp_; }
  /// A string that takes one more reference on `imp`, which may be null.
  static AnsiStr FromImp(Imp* imp) noexcept;

 private:
  static std::uint32_t LengthOf(Imp* imp) noexcept;
  static void Drop(Imp* imp) noexcept {
    if (imp != nullptr && Reference::Unlink(imp->refCount)) Imp::Free(imp);
  }
  void MakeUnique() noexcept;

  Imp* imp_ = nullptr;
};

/// Concatenation.
inline AnsiStr operator+(const AnsiStr& a, const AnsiStr& b) noexcept {
  AnsiStr text(a);
  text += b;
  return text;
}

static_assert(sizeof(AnsiStr) == sizeof(void*));
static_assert(sizeof(AnsiStr::Imp) == 12);

}  // namespace OruGuiBase
