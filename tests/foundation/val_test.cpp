#include "foundation/val.h"

#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <utility>

#include "foundation/kvmap.h"
#include "foundation/trace.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/recording_sink.h"

namespace OruGuiBase {
namespace {

constexpr std::int64_t kLargestInline = (std::int64_t{1} << 55) - 1;
constexpr std::int64_t kLeastInline = -(std::int64_t{1} << 55);

template <class BoxType, class Value>
BoxType* NewBox(const Value& value) {
  return new (AllocParticle(sizeof(BoxType))) BoxType{{1}, value};
}

std::uint64_t WordOf(const Val& value) {
  std::uint64_t word = 0;
  std::memcpy(&word, &value, sizeof word);
  return word;
}

void* PointerOf(const Val& value) {
  return reinterpret_cast<void*>(static_cast<std::intptr_t>(WordOf(value)) >> 8);
}

// A date that the spare bit keeps out of the word.
PackedDateTime MakeSpareDate(std::uint32_t second) {
  PackedDateTime date = PackedDateTime::FromBits(std::uint64_t{0x80} << 48);
  EXPECT_TRUE(date.Pack(2024, 2, 29, 23, 59, second, 123, 60));
  return date;
}

void FreeDateBox(const Val& value) {
  FreeParticle(sizeof(Val::DateTimeBox), PointerOf(value));
}

TEST(ValTest, NilIsTheZeroWord) {
  const Val value;
  EXPECT_EQ(WordOf(value), 0U);
  EXPECT_TRUE(value.IsNil());
  EXPECT_EQ(value.GetType(), ValType::Nil);
  EXPECT_FALSE(value.IsReference());
}

TEST(ValTest, BooleanIsInTheWord) {
  EXPECT_EQ(WordOf(Val(true)), 0x101U);
  EXPECT_EQ(WordOf(Val(false)), 0x001U);
  EXPECT_TRUE(Val(true).AsBool());
  EXPECT_FALSE(Val(false).AsBool());
  EXPECT_FALSE(Val(false).IsNil());
}

TEST(ValTest, BoxedBooleanReadsTheSame) {
  auto* const box = NewBox<Val::BoolBox>(1);
  Val value;
  value.SetReference(ValType::Bool, box);
  EXPECT_EQ(box->refCount, 2U);
  EXPECT_TRUE(value.AsBool());
  const Val copy(value);
  EXPECT_EQ(box->refCount, 3U);
  box->value = 0;
  EXPECT_FALSE(copy.AsBool());
  EXPECT_FALSE(Reference::Unlink(box->refCount));
}

TEST(ValTest, IntegersOf56BitsAreInTheWord) {
  for (const std::int64_t number :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, kLargestInline, kLeastInline}) {
    const Val value(number);
    EXPECT_FALSE(value.IsReference()) << number;
    EXPECT_EQ(value.AsInteger(), number);
    EXPECT_EQ(WordOf(value), static_cast<std::uint64_t>(number) << 8 | 2);
  }
}

TEST(ValTest, LargerIntegersAreBoxed) {
  for (const std::int64_t number :
       {kLargestInline + 1, kLeastInline - 1, std::numeric_limits<std::int64_t>::max(),
        std::numeric_limits<std::int64_t>::min()}) {
    const Val value(number);
    EXPECT_TRUE(value.IsReference()) << number;
    EXPECT_EQ(value.GetType(), ValType::Integer);
    EXPECT_EQ(value.AsInteger(), number);
  }
}

TEST(ValTest, AnIntegerReadsTheSameFromItsInlineAndItsBoxedForm) {
  Val boxed;
  auto* const box = NewBox<Val::Box>(std::int64_t{-42});
  boxed.SetReference(ValType::Integer, box);
  EXPECT_FALSE(Reference::Unlink(box->refCount));
  EXPECT_EQ(boxed.AsInteger(), Val(std::int64_t{-42}).AsInteger());
}

TEST(ValTest, CopiesOfABoxedIntegerShareIt) {
  const Val value(std::numeric_limits<std::int64_t>::max());
  auto* const box = static_cast<Val::Box*>(PointerOf(value));
  {
    const Val copy(value);
    EXPECT_EQ(WordOf(copy), WordOf(value));
    EXPECT_EQ(box->refCount, 2U);
  }
  EXPECT_EQ(box->refCount, 1U);
}

TEST(ValTest, NumbersAreBoxed) {
  for (const double number : {0.0, -0.5, 1e300, std::numeric_limits<double>::denorm_min()}) {
    const Val value(number);
    EXPECT_EQ(value.GetType(), ValType::Number);
    EXPECT_TRUE(value.IsReference());
    EXPECT_EQ(value.AsNumber(), number);
  }
}

TEST(ValTest, StringsShareTheirRepresentation) {
  const AnsiStr text("text");
  const Val value(text);
  EXPECT_EQ(value.GetType(), ValType::String);
  EXPECT_TRUE(value.IsReference());
  EXPECT_EQ(PointerOf(value), text.GetImp());
  EXPECT_EQ(text.GetImp()->refCount, 2U);
  EXPECT_EQ(value.AsString().GetImp(), text.GetImp());
}

TEST(ValTest, EmptyReferencesKeepTheirType) {
  EXPECT_EQ(WordOf(Val("")), 0x85U);
  EXPECT_TRUE(Val(AnsiStr()).AsString().IsEmpty());
  EXPECT_EQ(Val(KVMap()).GetType(), ValType::Map);
  EXPECT_TRUE(Val(KVMap()).AsMap().IsEmpty());
  EXPECT_EQ(Val(Array<Val>()).GetType(), ValType::Array);
  EXPECT_TRUE(Val(Array<Val>()).AsArray().IsEmpty());
  EXPECT_EQ(Val(Blob()).GetType(), ValType::Blob);
  EXPECT_TRUE(Val(Blob()).AsBlob().IsEmpty());
  EXPECT_FALSE(Val("").IsNil());
  const Val copy = Val("");
  EXPECT_EQ(WordOf(copy), 0x85U);
}

TEST(ValTest, MapsArraysAndBlobsAreCounted) {
  KVMap map;
  map.Set("key", "value");
  Array<Val> array;
  array.Append(Val("element"));
  Blob blob;
  blob.Alloc(4);
  {
    const Val values[] = {Val(map), Val(array), Val(blob)};
    EXPECT_EQ(map.GetImp()->refCount, 2U);
    EXPECT_EQ(array.GetImp()->refCount, 2U);
    EXPECT_EQ(blob.GetImp()->refCount, 2U);
    EXPECT_EQ(values[0].AsMap().Get("key").AsString(), "value");
    EXPECT_EQ(values[1].AsArray()[0].AsString(), "element");
    EXPECT_EQ(values[2].AsBlob().GetSize(), 4U);
  }
  EXPECT_EQ(map.GetImp()->refCount, 1U);
  EXPECT_EQ(array.GetImp()->refCount, 1U);
  EXPECT_EQ(blob.GetImp()->refCount, 1U);
}

TEST(ValTest, TheLastReferenceFreesNestedContent) {
  const AnsiStr text("innermost");
  {
    Val value(text);
    for (int i = 0; i < 100; ++i) {
      KVMap map;
      map.Set("inner", value);
      Array<Val> array;
      array.Append(Val(map));
      value = Val(array);
    }
    EXPECT_EQ(text.GetImp()->refCount, 2U);
  }
  EXPECT_EQ(text.GetImp()->refCount, 1U);
}

TEST(ValTest, AssignmentLinksTheNewAndReleasesTheOld) {
  const AnsiStr first("first");
  const AnsiStr second("second");
  Val value(first);
  value = Val(second);
  EXPECT_EQ(first.GetImp()->refCount, 1U);
  EXPECT_EQ(second.GetImp()->refCount, 2U);
  const Val& alias = value;
  value = alias;
  EXPECT_EQ(second.GetImp()->refCount, 2U);
  value = std::move(const_cast<Val&>(alias));
  EXPECT_EQ(value.AsString(), "second");
  value = Val();
  EXPECT_EQ(second.GetImp()->refCount, 1U);
}

TEST(ValTest, AssigningAnElementOfItsOwnArrayIsSafe) {
  Array<Val> array;
  array.Append(Val("inner"));
  Val value(array);
  array.Clear();
  value = value.AsArray()[0];
  EXPECT_EQ(value.AsString(), "inner");
}

TEST(ValTest, MovingLeavesNil) {
  Val value("text");
  const Val moved(std::move(value));
  EXPECT_EQ(moved.AsString(), "text");
  EXPECT_TRUE(value.IsNil());  // NOLINT(bugprone-use-after-move): that is what is tested
}

TEST(ValTest, SetReferenceLinksBeforeItReleases) {
  const AnsiStr text("text");
  Val value(text);
  value.SetReference(ValType::String, text.GetImp());
  EXPECT_EQ(text.GetImp()->refCount, 2U);
}

TEST(ValTest, PointersWithTheTopNineBitsAllOneFit) {
  // Type 4 is neither linked nor released, so that the pointer may lead nowhere.
  Val value;
  value.SetReference(ValType::Date, reinterpret_cast<void*>(0xFF80000000000000U));
  EXPECT_EQ(WordOf(value), 0x8000000000000084U);
  value.SetReference(ValType::Date, reinterpret_cast<void*>(0x007FFFFFFFFFFFFFU));
  EXPECT_EQ(WordOf(value), 0x7FFFFFFFFFFFFF84U);
}

TEST(ValDeathTest, AbortsOnAPointerOutOfRange) {
  Val value;
  EXPECT_DEATH(value.SetReference(ValType::Date, reinterpret_cast<void*>(0x0080000000000000U)),
               "^Pointer value 0x80000000000000 not within supported range\n$");
  EXPECT_DEATH(value.SetReference(ValType::Date, reinterpret_cast<void*>(0xFF7FFFFFFFFFFFFFU)),
               "not within supported range");
}

TEST(ValTest, DateWithoutTheSpareBitIsInTheWord) {
  PackedDateTime date;
  ASSERT_TRUE(date.Pack(4095, 12, 31, 23, 59, 59, 999, -720));
  const Val value(date);
  EXPECT_FALSE(value.IsReference());
  EXPECT_EQ(WordOf(value), date.ToBits() << 8 | 4);
  EXPECT_EQ(value.AsPackedDateTime().ToBits(), date.ToBits());
  EXPECT_EQ(value.AsDateTime(), (datetime{4095, 12, 31, 23, 59, 59}));
}

TEST(ValTest, DateWithTheSpareBitIsBoxed) {
  const PackedDateTime date = MakeSpareDate(58);
  const Val value(date);
  ASSERT_TRUE(value.IsReference());
  EXPECT_EQ(value.GetType(), ValType::Date);
  EXPECT_EQ(value.AsPackedDateTime().ToBits(), date.ToBits());
  EXPECT_EQ(value.AsDateTime(), (datetime{2024, 2, 29, 23, 59, 58}));
  FreeDateBox(value);
}

TEST(ValTest, CopiesDoNotCountADateBox) {
  const Val value(MakeSpareDate(1));
  const auto* const box = static_cast<const Val::DateTimeBox*>(PointerOf(value));
  {
    const Val copy(value);
    EXPECT_EQ(box->refCount, 1U);
  }
  EXPECT_EQ(box->refCount, 1U);
  EXPECT_EQ(value.AsDateTime().second, 1);
  FreeDateBox(value);
}

TEST(ValTest, ADateBoxOfItsOwnIsOverwrittenInPlace) {
  Val value(MakeSpareDate(1));
  const void* const box = PointerOf(value);
  value.SetDateTime(MakeSpareDate(2));
  EXPECT_EQ(PointerOf(value), box);
  EXPECT_EQ(value.AsDateTime().second, 2);
  FreeDateBox(value);
}

TEST(ValTest, ADateBoxOfSeveralOwnersIsLeftAlone) {
  Val value(MakeSpareDate(1));
  const Val old(value);
  static_cast<Val::DateTimeBox*>(PointerOf(value))->refCount = 2;
  value.SetDateTime(MakeSpareDate(2));
  EXPECT_NE(PointerOf(value), PointerOf(old));
  EXPECT_EQ(old.AsDateTime().second, 1);
  FreeDateBox(value);
  FreeDateBox(old);
}

TEST(ValTest, SettingADateReleasesOtherContent) {
  const AnsiStr text("text");
  PackedDateTime date;
  ASSERT_TRUE(date.Pack(2024, 1, 1, 0, 0, 0, 0, 0));
  Val plain(text);
  plain.SetDateTime(date);
  Val boxed(text);
  boxed.SetDateTime(MakeSpareDate(0));
  EXPECT_EQ(text.GetImp()->refCount, 1U);
  FreeDateBox(boxed);
}

TEST(ValTest, DateOfAnotherTypeGivesTheFallback) {
  const datetime fallback{1, 2, 3, 4, 5, 6};
  EXPECT_EQ(Val("text").AsDateTime(fallback), fallback);
  EXPECT_EQ(Val().AsDateTime(), datetime());
}

class CountedObject final : public IObject {
 public:
  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return ++links; }
  std::uint32_t Release() override { return --links; }
  std::uint32_t links = 0;
};

TEST(ValTest, ObjectsAreLinkedAndReleasedThroughTheirTable) {
  CountedObject object;
  {
    const Val value(&object);
    EXPECT_EQ(value.GetType(), ValType::Object);
    EXPECT_EQ(object.links, 1U);
    const Val copy(value);
    EXPECT_EQ(object.links, 2U);
    EXPECT_EQ(copy.AsObject(), &object);
  }
  EXPECT_EQ(object.links, 0U);
}

TEST(ValTest, ObjectsLinkBySecondAndReleaseByThirdOperation) {
  CountedObject object;
  IObject* const base = &object;
  using Operation = std::uint32_t (*)(IObject*);
  void* const* table = nullptr;
  std::memcpy(&table, static_cast<const void*>(base), sizeof table);
  reinterpret_cast<Operation>(table[1])(base);
  EXPECT_EQ(object.links, 1U);
  reinterpret_cast<Operation>(table[2])(base);
  EXPECT_EQ(object.links, 0U);
}

TEST(ValTest, ANullObjectKeepsItsType) {
  const Val value(static_cast<IObject*>(nullptr));
  const Val copy(value);
  EXPECT_EQ(copy.GetType(), ValType::Object);
  EXPECT_EQ(copy.AsObject(), nullptr);
}

TEST(ValTest, CarriedTypesAreCountedAndFreed) {
  for (const ValType type : {ValType::Carried9, ValType::Carried10}) {
    auto* const count = new (AllocParticle(sizeof(Reference::Count))) Reference::Count{1};
    Val value;
    value.SetReference(type, count);
    const Val copy(value);
    EXPECT_EQ(*count, 3U);
    EXPECT_FALSE(Reference::Unlink(*count));
  }
}

// Empty, false or 0.
TEST(ValTest, ReadingAnotherTypeGivesTheEmptyValue) {
  const Val text("5");
  EXPECT_FALSE(text.AsBool());
  EXPECT_EQ(text.AsInteger(), 0);
  EXPECT_EQ(text.AsNumber(), 0);
  EXPECT_TRUE(text.AsMap().IsEmpty());
  EXPECT_TRUE(text.AsArray().IsEmpty());
  EXPECT_TRUE(text.AsBlob().IsEmpty());
  EXPECT_EQ(text.AsObject(), nullptr);
  EXPECT_EQ(text.AsPackedDateTime().ToBits(), 0U);
  EXPECT_TRUE(Val(std::int64_t{5}).AsString().IsEmpty());
  EXPECT_EQ(Val(true).AsInteger(), 0);
  EXPECT_FALSE(Val(std::int64_t{1}).AsBool());
}

TEST(ValTest, ReadingNilAsAStringIsReportedAndGivesTheEmptyString) {
  RecordingSink sink(0);
  EXPECT_TRUE(Val().AsString().IsEmpty());
  ASSERT_EQ(sink.events.size(), 1U);
  EXPECT_EQ(sink.events[0].category, 4096U);
  EXPECT_EQ(sink.events[0].level, 2U);
  EXPECT_EQ(sink.events[0].source, "orugui");
  EXPECT_EQ(sink.events[0].text, "Val::ReportInvalidType: read as type 5, holds type 0");
}

TEST(ValTest, ReadingTheRightTypeReportsNothing) {
  RecordingSink sink(0);
  EXPECT_EQ(Val("text").AsString(), "text");
  EXPECT_TRUE(Val(true).AsBool());
  EXPECT_EQ(Val(1.5).AsNumber(), 1.5);
  EXPECT_TRUE(sink.events.empty());
}

// The report has the type that was asked for.
TEST(ValTest, EachReaderReportsItsType) {
  const struct {
    void (*read)(const Val&);
    ValType type;
  } kRows[] = {
      {[](const Val& v) { v.AsBool(); }, ValType::Bool},
      {[](const Val& v) { v.AsInteger(); }, ValType::Integer},
      {[](const Val& v) { v.AsNumber(); }, ValType::Number},
      {[](const Val& v) { v.AsPackedDateTime(); }, ValType::Date},
      {[](const Val& v) { v.AsDateTime(); }, ValType::Date},
      {[](const Val& v) { v.AsString(); }, ValType::String},
      {[](const Val& v) { v.AsObject(); }, ValType::Object},
      {[](const Val& v) { v.AsMap(); }, ValType::Map},
      {[](const Val& v) { v.AsArray(); }, ValType::Array},
      {[](const Val& v) { v.AsBlob(); }, ValType::Blob},
  };
  for (const auto& row : kRows) {
    RecordingSink sink(0);
    row.read(Val());
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_NE(sink.events[0].text.find("read as type " + std::to_string(static_cast<int>(row.type)) + ","),
              std::string::npos);
  }
}

}  // namespace
}  // namespace OruGuiBase
