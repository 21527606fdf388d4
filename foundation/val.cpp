// The value of everything dynamic: JSON, arguments and results of operations, headers. One word that the
// layout fixes; link and release depend on the type, so they are in one place here.

#include "foundation/val.h"

#include <bit>
#include <cstddef>
#include <new>
#include <utility>

#include "foundation/kvmap.h"
#include "foundation/report.h"
#include "foundation/trace.h"

namespace OruGuiBase {

static_assert(offsetof(Val::Box, refCount) == 0 && offsetof(Val::Box, value) == 8);
static_assert(offsetof(Val::BoolBox, value) == 4 && offsetof(Val::DateTimeBox, value) == 4);

namespace {

constexpr std::uint64_t kReferenceFlag = 0x80;

constexpr std::uint64_t TypeBits(ValType type) {
  return static_cast<std::uint64_t>(type);
}

// Whether the 56 bits of the payload are enough: whether the arithmetic shift that reads it gives the same
// word.
constexpr bool FitsPayload(std::uint64_t word) {
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(word << 8) >> 8) == word;
}

template <class BoxType, class Value>
BoxType* MakeBox(const Value& value) {
  void* memory = AllocParticle(sizeof(BoxType));
  if (memory == nullptr) DebugAbort("Could not allocate value");
  return new (memory) BoxType{{1}, value};
}

template <class BoxType>
void DropBox(void* block) {
  auto* const box = static_cast<BoxType*>(block);
  if (!Reference::Unlink(box->refCount)) return;
  box->~BoxType();
  FreeParticle(sizeof(BoxType), box);
}

// Like the Drop functions of AnsiStr and Blob, which take a handle; here there is only the pointer of the
// word.
void DropString(void* block) {
  auto* const imp = static_cast<AnsiStr::Imp*>(block);
  if (Reference::Unlink(imp->refCount)) AnsiStr::Imp::Free(imp);
}

void DropBlob(void* block) {
  auto* const imp = static_cast<Blob::Imp*>(block);
  if (Reference::Unlink(imp->refCount)) Blob::Imp::Free(imp);
}

// An object of type 9 or 10 is a block that begins with its count. Nothing else is known about it.
void DropCarried(void* block) {
  auto* const count = static_cast<Reference::Count*>(block);
  if (Reference::Unlink(*count)) FreeParticle(sizeof(Reference::Count), block);
}

// Dates are not counted: each copy of a Val reads the same box, which the published layout never frees.
void Link(ValType type, void* object) {
  if (object == nullptr || type == ValType::Date || type == ValType::Nil) return;
  if (type == ValType::Object) {
    static_cast<IObject*>(object)->AddRef();
  } else {
    Reference::Link(*static_cast<Reference::Count*>(object));
  }
}

// Without a default case, so that the compiler reports a type that is missing.
void Release(ValType type, void* object) {
  if (object == nullptr) return;
  switch (type) {
    case ValType::Nil:
    case ValType::Date:
      return;
    case ValType::Bool:
      return DropBox<Val::BoolBox>(object);
    case ValType::Integer:
    case ValType::Number:
      return DropBox<Val::Box>(object);
    case ValType::String:
      return DropString(object);
    case ValType::Object:
      return static_cast<void>(static_cast<IObject*>(object)->Release());
    case ValType::Map:
      return KVMap::Drop(static_cast<KVMapImp*>(object));
    case ValType::Array:
      return Array<Val>::Drop(static_cast<Array<Val>::Imp*>(object));
    case ValType::Carried9:
    case ValType::Carried10:
      return DropCarried(object);
    case ValType::Blob:
      return DropBlob(object);
  }
}

// User space addresses of 64-bit systems have at most 56 significant bits; others would lose some.
std::uint64_t ReferenceWord(ValType type, void* object) {
  const auto address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(object));
  if (!FitsPayload(address)) DebugAbort("Pointer value %p not within supported range", object);
  return address << 8 | kReferenceFlag | TypeBits(type);
}

}  // namespace

Val::Val(bool value) noexcept : word_(std::uint64_t{value} << 8 | TypeBits(ValType::Bool)) {}

Val::Val(std::int64_t value) noexcept {
  const auto bits = static_cast<std::uint64_t>(value);
  word_ = FitsPayload(bits) ? bits << 8 | TypeBits(ValType::Integer)
                            : ReferenceWord(ValType::Integer, MakeBox<Box>(value));
}

Val::Val(double value) noexcept
    : word_(ReferenceWord(ValType::Number, MakeBox<Box>(std::bit_cast<std::int64_t>(value)))) {}

Val::Val(const PackedDateTime& value) noexcept {
  SetDateTime(value);
}

Val::Val(const AnsiStr& text) noexcept {
  SetReference(ValType::String, text.GetImp());
}

Val::Val(const char* text) noexcept : Val(AnsiStr(text)) {}

Val::Val(const KVMap& map) noexcept {
  SetReference(ValType::Map, map.GetImp());
}

Val::Val(const Array<Val>& array) noexcept {
  SetReference(ValType::Array, array.GetImp());
}

Val::Val(const Blob& blob) noexcept {
  SetReference(ValType::Blob, blob.GetImp());
}

Val::Val(IObject* object) noexcept {
  SetReference(ValType::Object, object);
}

Val& Val::operator=(const Val& other) noexcept {
  // The copy links before the old content is released, because that may destroy the object that contains
  // `other`.
  Val copy(other);
  std::swap(word_, copy.word_);
  return *this;
}

// By a swap: the old content is released last, when both words are already right.
Val& Val::operator=(Val&& other) noexcept {
  Val moved(std::move(other));
  std::swap(word_, moved.word_);
  return *this;
}

bool Val::AsBool() const noexcept {
  if (!Expect(ValType::Bool, /*reference=*/false)) return false;
  if (!IsReference()) return (word_ >> 8) != 0;
  const auto* const box = static_cast<const BoolBox*>(Pointer());
  return box != nullptr && box->value != 0;
}

std::int64_t Val::AsInteger() const noexcept {
  if (!Expect(ValType::Integer, /*reference=*/false)) return 0;
  // An arithmetic shift, which extends the sign (C++20).
  if (!IsReference()) return static_cast<std::int64_t>(word_) >> 8;
  const auto* const box = static_cast<const Box*>(Pointer());
  return box != nullptr ? box->value : 0;
}

double Val::AsNumber() const noexcept {
  if (!Expect(ValType::Number, /*reference=*/true)) return 0;
  const auto* const box = static_cast<const Box*>(Pointer());
  return box != nullptr ? std::bit_cast<double>(box->value) : 0;
}

AnsiStr Val::AsString() const noexcept {
  if (!Expect(ValType::String, /*reference=*/true)) return {};
  return AnsiStr::FromImp(static_cast<AnsiStr::Imp*>(Pointer()));
}

KVMap Val::AsMap() const noexcept {
  if (!Expect(ValType::Map, /*reference=*/true)) return {};
  return KVMap::FromImp(static_cast<KVMapImp*>(Pointer()));
}

Array<Val> Val::AsArray() const noexcept {
  if (!Expect(ValType::Array, /*reference=*/true)) return {};
  return Array<Val>::FromImp(static_cast<Array<Val>::Imp*>(Pointer()));
}

Blob Val::AsBlob() const noexcept {
  if (!Expect(ValType::Blob, /*reference=*/true)) return {};
  return Blob::FromImp(static_cast<Blob::Imp*>(Pointer()));
}

IObject* Val::AsObject() const noexcept {
  return Expect(ValType::Object, /*reference=*/true) ? static_cast<IObject*>(Pointer()) : nullptr;
}

PackedDateTime Val::AsPackedDateTime() const noexcept {
  if (!Expect(ValType::Date, /*reference=*/false)) return {};
  if (!IsReference()) return PackedDateTime::FromBits(word_ >> 8);
  const auto* const box = static_cast<const DateTimeBox*>(Pointer());
  return box != nullptr ? box->value : PackedDateTime();
}

// Not by Expect(): the caller gets its own fallback and not an unset date.
datetime Val::AsDateTime(const datetime& fallback) const noexcept {
  if (GetType() == ValType::Date) return AsPackedDateTime().Unpack();
  ReportInvalidType(ValType::Date, *this);
  return fallback;
}

void Val::SetDateTime(const PackedDateTime& value) noexcept {
  const std::uint64_t bits = value.ToBits();
  if (FitsPayload(bits)) {
    Val old(std::move(*this));
    word_ = bits << 8 | TypeBits(ValType::Date);
    return;
  }
  auto* const own =
      GetType() == ValType::Date && IsReference() ? static_cast<DateTimeBox*>(Pointer()) : nullptr;
  // A box with another count came from elsewhere and may be read by others.
  if (own != nullptr && own->refCount.load(std::memory_order_acquire) == 1) {
    own->value = value;
    return;
  }
  Val old(std::move(*this));
  word_ = ReferenceWord(ValType::Date, MakeBox<DateTimeBox>(value));
}

// The order matters if the new object is only kept alive by the old content: link first, release then.
void Val::SetReference(ValType type, void* object) noexcept {
  Link(type, object);
  if (IsReference()) ReleaseContent();
  word_ = ReferenceWord(type, object);
}

void Val::ReportInvalidType(ValType wanted, const Val& value) noexcept {
  // Below errors: to read a response as the wrong type is the normal result of a check.
  constexpr std::uint32_t kLevel = 2;
  if (!OruGuiTrace::IsTraced(kLevel)) return;
  const char* const message =
      OruGuiTrace::InitTraceContext("Val::ReportInvalidType: read as type %u, holds type %u",
                                    static_cast<unsigned>(wanted), static_cast<unsigned>(value.GetType()));
  OruGuiTrace::TraceStr(kTraceCategory, kLevel, kTraceSource, __LINE__, message);
  OruGuiTrace::FreeTraceContext();
}

void* Val::Pointer() const noexcept {
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(static_cast<std::int64_t>(word_) >> 8));
}

void Val::LinkContent() const noexcept {
  Link(GetType(), Pointer());
}

void Val::ReleaseContent() noexcept {
  Release(GetType(), Pointer());
}

// Strings, maps, arrays, blobs, objects and numbers are always references; the others may be inline or boxed.
bool Val::Expect(ValType wanted, bool reference) const noexcept {
  if (GetType() == wanted && (IsReference() || !reference)) return true;
  ReportInvalidType(wanted, *this);
  return false;
}

}  // namespace OruGuiBase
