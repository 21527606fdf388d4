#pragma once

#include <cstdint>

#include "foundation/ansistr.h"
#include "foundation/array.h"
#include "foundation/blob.h"
#include "foundation/datetime.h"
#include "foundation/export.h"

namespace OruGuiBase {

class KVMap;
class KVMapImp;

/// The types of content of a Val. 9 and 10 are copied and counted, never read.
enum class ValType : std::uint8_t {
  Nil = 0,
  Bool = 1,
  Integer = 2,  ///< signed 64-bit
  Number = 3,   ///< a number with a fraction or an exponent, as a double; always boxed
  Date = 4,     ///< PackedDateTime
  String = 5,
  Object = 6,
  Map = 7,
  Array = 8,
  Carried9 = 9,
  Carried10 = 10,
  Blob = 11,
};

/// An object with a table of virtual operations. It counts its own references and destroys itself with the
/// last one.
class IObject {
 public:
  /// Another interface of the object, or null. Its place in the table is fixed; nothing here calls it.
  virtual void* QueryInterface(const char* name) = 0;
  /// Takes a reference; the result is ignored.
  virtual std::uint32_t AddRef() = 0;
  /// Gives back a reference. The result is ignored.
  virtual std::uint32_t Release() = 0;

 protected:
  ~IObject() = default;
};

/// A value of any type in one 64-bit word: the type in bits 0 to 6, the reference flag in bit 7, the payload
/// above.
///
/// Without the flag the payload is the value itself, with it a pointer to a counted object. To read a Val as
/// another type is no failure: it is traced (ReportInvalidType), and the result is empty or 0.
class ORUGUI_EXPORT Val {
 public:
  /// A counted 64-bit value that does not fit the word.
  struct Box {
    Reference::Count refCount;
    std::int64_t value;
  };
  /// A counted boolean. This library never makes one, but reads those of others.
  struct BoolBox {
    Reference::Count refCount;
    std::int32_t value;
  };
  /// A date and time whose spare bit does not fit the word. Copies do not count it, so its count stays 1.
  struct DateTimeBox {
    Reference::Count refCount;
    PackedDateTime value;
  };

  Val() noexcept = default;
  explicit Val(bool value) noexcept;
  explicit Val(std::int64_t value) noexcept;
  explicit Val(double value) noexcept;
  explicit Val(const PackedDateTime& value) noexcept;
  explicit Val(const AnsiStr& text) noexcept;
  explicit Val(const char* text) noexcept;
  explicit Val(const KVMap& map) noexcept;
  explicit Val(const Array<Val>& array) noexcept;
  explicit Val(const Blob& blob) noexcept;
  /// Takes a reference through AddRef. Null makes a value of type 6 with no object.
  explicit Val(IObject* object) noexcept;
  Val(const Val& other) noexcept : word_(other.word_) {
    if (IsReference()) LinkContent();
  }
  Val(Val&& other) noexcept : word_(other.word_) { other.word_ = 0; }
  ~Val() {
    if (IsReference()) ReleaseContent();
  }
  Val& operator=(const Val& other) noexcept;
  Val& operator=(Val&& other) noexcept;

  ValType GetType() const noexcept { return static_cast<ValType>(word_ & 0x7F); }
  bool IsNil() const noexcept { return word_ == 0; }
  bool IsReference() const noexcept { return (word_ & 0x80) != 0; }

  /// The content as the type in the name. If it is of another type, that is traced and the result is empty or
  /// 0.
  bool AsBool() const noexcept;
  std::int64_t AsInteger() const noexcept;
  double AsNumber() const noexcept;
  AnsiStr AsString() const noexcept;
  KVMap AsMap() const noexcept;
  Array<Val> AsArray() const noexcept;
  PackedDateTime AsPackedDateTime() const noexcept;
  /// The same for types that the published layout has, but of which nothing here reads the content.
  Blob AsBlob() const noexcept;
  IObject* AsObject() const noexcept;
  /// Year to second of a date and time, without milliseconds and zone. `fallback` if it is of another type.
  datetime AsDateTime(const datetime& fallback = {}) const noexcept;

  /// Replaces the content by a date and time. A box that this Val already has, with the count 1, is
  /// overwritten in place.
  void SetDateTime(const PackedDateTime& value) noexcept;
  /// Replaces the content by a counted object: links the new one, releases the old one, then writes. `object`
  /// is the address of the block that belongs to the type. Aborts if the pointer does not fit 56 signed bits.
  void SetReference(ValType type, void* object) noexcept;

  /// Traces that a value was read as another type than its own.
  static void ReportInvalidType(ValType wanted, const Val& value) noexcept;

 private:
  void* Pointer() const noexcept;
  void LinkContent() const noexcept;
  void ReleaseContent() noexcept;
  bool Expect(ValType wanted, bool reference) const noexcept;

  std::uint64_t word_ = 0;
};

static_assert(sizeof(Val) == 8);
static_assert(sizeof(Val::Box) == 16 && sizeof(Val::BoolBox) == 8 && sizeof(Val::DateTimeBox) == 12);

}  // namespace OruGuiBase
