// The string of everything here: messages, JSON, paths, and also keys and passwords. One block per string,
// counted and shared; growing copies to a larger block and wipes the old one when its last handle goes.

#include "foundation/ansistr.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "foundation/report.h"

namespace OruGuiBase {

static_assert(offsetof(AnsiStr::Imp, refCount) == 0 && offsetof(AnsiStr::Imp, capacity) == 4 &&
              offsetof(AnsiStr::Imp, length) == 8);

namespace {

constexpr std::size_t kMaxLength = 0xFFFFFFFFU;

// One byte more than the capacity, for the final NUL. In size_t, as 32 bits could overflow.
std::size_t BlockSize(std::uint32_t capacity) {
  return sizeof(AnsiStr::Imp) + std::size_t{capacity} + 1;
}

// Not tolower(): that depends on the locale, and header names and media types are ASCII.
char LowerASCII(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
}

// Operators and constructors cannot return a failure.
AnsiStr::Imp* InitOrAbort(std::uint32_t capacity, std::uint32_t length, const char* source,
                          std::uint32_t sourceLength) {
  AnsiStr::Imp* imp = AnsiStr::Imp::Init(capacity, length, source, sourceLength);
  if (imp == nullptr) DebugAbort("Could not allocate string");
  return imp;
}

// A string of 4 GiB cannot be represented, and a cut one could go unnoticed.
std::uint32_t CheckedLength(std::size_t length) {
  if (length > kMaxLength) DebugAbort("UInt32 overflow");
  return static_cast<std::uint32_t>(length);
}

}  // namespace

const char* AnsiStr::Imp::GetEmpty() noexcept {
  return "";
}

// Wipes the whole capacity: after the length there may be older, longer content.
void AnsiStr::Imp::Free(Imp* imp) noexcept {
  const std::size_t size = BlockSize(imp->capacity);
  imp->~Imp();
  WipeMemory(imp, size);
  FreeParticle(size, imp);
}

AnsiStr::Imp* AnsiStr::Imp::Init(std::uint32_t capacity, std::uint32_t length, const char* source,
                                 std::uint32_t sourceLength) noexcept {
  // Callers may pass only one of the three; the block must fit all of them.
  capacity = std::max({capacity, length, sourceLength});
  void* memory = AllocParticle(BlockSize(capacity));
  if (memory == nullptr) return nullptr;
  Imp* imp = new (memory) Imp{{1}, capacity, length};
  if (sourceLength != 0) std::memcpy(imp->Text(), source, sourceLength);
  if (length > sourceLength) std::memset(imp->Text() + sourceLength, 0, length - sourceLength);
  imp->Text()[std::max(length, sourceLength)] = '\0';
  imp->Text()[capacity] = '\0';
  return imp;
}

std::uint32_t AnsiStr::Imp::GetExtendSize(std::uint32_t size, bool grow) noexcept {
  const std::size_t wanted = grow ? std::size_t{size} + size / 2 : size;
  return static_cast<std::uint32_t>(std::min(wanted, kMaxLength));
}

void AnsiStr::Imp::ReportOverflow(std::uint32_t length, std::uint32_t added) noexcept {
  ReportError(__LINE__, "AnsiStr: %u bytes and %u more pass 32 bits", length, added);
}

AnsiStr::AnsiStr(const char* text) noexcept
    : AnsiStr(text != nullptr ? std::string_view(text) : std::string_view()) {}

AnsiStr::AnsiStr(const char* text, std::uint32_t length) noexcept {
  if (length != 0) imp_ = InitOrAbort(length, length, text, length);
}

AnsiStr::AnsiStr(std::string_view text) noexcept : AnsiStr(text.data(), CheckedLength(text.size())) {}

AnsiStr::AnsiStr(std::uint32_t size, char*& buffer) noexcept : imp_(InitOrAbort(size, 0, nullptr, 0)) {
  buffer = imp_->Text();
}

// Links the new block before it releases the old one, so that self-assignment is safe.
AnsiStr& AnsiStr::operator=(const AnsiStr& other) noexcept {
  AnsiStr copy(other);
  std::swap(imp_, copy.imp_);
  return *this;
}

AnsiStr& AnsiStr::operator=(AnsiStr&& other) noexcept {
  if (this != &other) Drop(std::exchange(imp_, std::exchange(other.imp_, nullptr)));
  return *this;
}

AnsiStr& AnsiStr::operator=(const char* text) noexcept {
  return *this = AnsiStr(text);
}

AnsiStr& AnsiStr::Append(const char* text, std::uint32_t length) noexcept {
  if (length == 0) return *this;
  const std::uint32_t old = GetLength();
  if (length > kMaxLength - old) {
    Imp::ReportOverflow(old, length);
    return *this;
  }
  const std::uint32_t total = old + length;
  // The old block is kept until the end, because `text` may point into it.
  Imp* const before = imp_;
  const bool inPlace =
      before != nullptr && before->capacity >= total && !Reference::IsShared(before->refCount);
  if (!inPlace) imp_ = InitOrAbort(Imp::GetExtendSize(total, before != nullptr), old, GetText(), old);
  std::memcpy(imp_->Text() + old, text, length);
  imp_->Text()[total] = '\0';
  imp_->length = total;
  if (!inPlace) Drop(before);
  return *this;
}

AnsiStr& AnsiStr::Append(std::string_view text) noexcept {
  if (text.size() > kMaxLength) {
    Imp::ReportOverflow(GetLength(), 0xFFFFFFFFU);
    return *this;
  }
  return Append(text.data(), static_cast<std::uint32_t>(text.size()));
}

// An empty string shares the other block instead of copying it.
AnsiStr& AnsiStr::operator+=(const AnsiStr& text) noexcept {
  if (imp_ == nullptr) return *this = text;
  return Append(text.GetText(), text.GetLength());
}

AnsiStr& AnsiStr::operator+=(const char* text) noexcept {
  return text != nullptr ? Append(std::string_view(text)) : *this;
}

AnsiStr& AnsiStr::operator+=(char character) noexcept {
  return Append(&character, 1);
}

// Null instead of an abort: callers load files and responses of any size and report the failure.
char* AnsiStr::Alloc(std::uint32_t size) noexcept {
  Clear();
  imp_ = Imp::Init(size, size, nullptr, 0);
  return imp_ != nullptr ? imp_->Text() : nullptr;
}

AnsiStr& AnsiStr::Reserve(std::uint32_t capacity) noexcept {
  if (capacity == 0 ||
      (imp_ != nullptr && imp_->capacity >= capacity && !Reference::IsShared(imp_->refCount))) {
    return *this;
  }
  const std::uint32_t length = GetLength();
  Drop(std::exchange(imp_, InitOrAbort(std::max(capacity, length), length, GetText(), length)));
  return *this;
}

void AnsiStr::Clear() noexcept {
  Drop(std::exchange(imp_, nullptr));
}

// Looks first, so that a string without capital letters stays shared.
AnsiStr& AnsiStr::ToLower() noexcept {
  const std::string_view present = View();
  if (std::none_of(present.begin(), present.end(), [](char c) { return LowerASCII(c) != c; })) return *this;
  MakeUnique();
  char* const text = imp_->Text();
  std::transform(text, text + imp_->length, text, LowerASCII);
  return *this;
}

AnsiStr& AnsiStr::Replace(char from, char to) noexcept {
  if (Find(from) == npos) return *this;
  MakeUnique();
  std::replace(imp_->Text(), imp_->Text() + imp_->length, from, to);
  return *this;
}

AnsiStr& AnsiStr::Trunc(std::uint32_t length) noexcept {
  const std::uint32_t old = GetLength();
  if (length >= old) return *this;
  if (length == 0) {
    Clear();
    return *this;
  }
  // What is cut off is wiped in an unshared block; a shared one belongs to others as well.
  if (Reference::IsShared(imp_->refCount)) return *this = AnsiStr(GetText(), length);
  WipeMemory(imp_->Text() + length, old - length);
  imp_->length = length;
  return *this;
}

std::uint32_t AnsiStr::Find(char character, std::uint32_t start, bool ignoreCase) const noexcept {
  const std::string_view text = View();
  if (start >= text.size()) return npos;
  std::size_t index = std::string_view::npos;
  if (ignoreCase) {
    const auto isWanted = [wanted = LowerASCII(character)](char c) { return LowerASCII(c) == wanted; };
    const auto found = std::find_if(text.begin() + start, text.end(), isWanted);
    if (found != text.end()) index = static_cast<std::size_t>(found - text.begin());
  } else {
    index = text.find(character, start);
  }
  return index != std::string_view::npos ? static_cast<std::uint32_t>(index) : npos;
}

// Where one string is the beginning of the other, the shorter one comes first.
int AnsiStr::Compare(const AnsiStr& a, const AnsiStr& b, bool ignoreCase) noexcept {
  if (!ignoreCase) return a.View().compare(b.View());
  const std::string_view left = a.View();
  const std::string_view right = b.View();
  for (std::size_t i = 0; i < left.size() && i < right.size(); ++i) {
    const auto x = static_cast<unsigned char>(LowerASCII(left[i]));
    const auto y = static_cast<unsigned char>(LowerASCII(right[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  return left.size() == right.size() ? 0 : left.size() < right.size() ? -1 : 1;
}

AnsiStr AnsiStr::FromImp(Imp* imp) noexcept {
  AnsiStr text;
  if (imp != nullptr) Reference::Link(imp->refCount);
  text.imp_ = imp;
  return text;
}

// Several threads that share the string may store the length at once; all store the same number.
std::uint32_t AnsiStr::LengthOf(Imp* imp) noexcept {
  const std::atomic_ref<std::uint32_t> stored(imp->length);
  std::uint32_t length = stored.load(std::memory_order_relaxed);
  if (length != 0 || imp->Text()[0] == '\0') return length;
  length = static_cast<std::uint32_t>(strnlen(imp->Text(), imp->capacity));
  stored.store(length, std::memory_order_relaxed);
  return length;
}

void AnsiStr::MakeUnique() noexcept {
  if (!Reference::IsShared(imp_->refCount)) return;
  const std::uint32_t length = GetLength();
  Drop(std::exchange(imp_, InitOrAbort(length, length, GetText(), length)));
}

}  // namespace OruGuiBase
