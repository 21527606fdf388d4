#include "foundation/kvmap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/format.h"
#include "tests/foundation/failing_memory.h"
#include "tests/foundation/printing.h"

namespace OruGuiBase {
namespace {

KVMap MakeMap(std::uint32_t count) {
  KVMap map;
  for (std::uint32_t i = 0; i < count; ++i) map.Set(FmtArgs("key%u", i), Val(std::int64_t{i}));
  return map;
}

TEST(KVMapTest, NullMapReadsAsEmpty) {
  const KVMap map;
  EXPECT_EQ(map.GetImp(), nullptr);
  EXPECT_EQ(map.GetCount(), 0U);
  EXPECT_TRUE(map.IsEmpty());
  EXPECT_EQ(map.Find("key"), 0U);
  EXPECT_TRUE(map.Get("key").IsNil());
}

TEST(KVMapTest, FirstSetOnANullMapMakesTheObject) {
  KVMap map;
  EXPECT_TRUE(map.Set("key", "value"));
  ASSERT_NE(map.GetImp(), nullptr);
  EXPECT_EQ(map.GetImp()->refCount, 1U);
  EXPECT_EQ(map.Get("key").AsString(), "value");
}

TEST(KVMapTest, SetOnASharedMapClonesItAndTheOtherHandleDoesNotSeeTheChange) {
  KVMap map = MakeMap(2);
  const KVMap other(map);
  EXPECT_EQ(map.GetImp(), other.GetImp());
  map.Set("key0", "changed");
  map.Set("added", "new");
  EXPECT_NE(map.GetImp(), other.GetImp());
  EXPECT_EQ(map.GetCount(), 3U);
  EXPECT_EQ(other.GetCount(), 2U);
  EXPECT_EQ(other.Get("key0").AsInteger(), 0);
  EXPECT_EQ(other.Find("added"), 2U);
}

TEST(KVMapTest, ACloneSharesWhatWasNotChanged) {
  KVMap map = MakeMap(20);
  const KVMap other(map);
  map.Set("key0", "changed");
  EXPECT_EQ(map.GetKeys().GetImp(), other.GetKeys().GetImp());
  EXPECT_NE(map.GetValues().GetImp(), other.GetValues().GetImp());
  for (std::uint32_t i = 0; i < KVMapImp::kBuckets; ++i) {
    EXPECT_EQ(map.GetImp()->buckets[i].GetImp(), other.GetImp()->buckets[i].GetImp());
  }
}

TEST(KVMapTest, SetOnAnUnsharedMapStaysInPlace) {
  KVMap map = MakeMap(1);
  const KVMapImp* const object = map.GetImp();
  map.Set("other", "value");
  EXPECT_EQ(map.GetImp(), object);
}

TEST(KVMapTest, SetOfAnExistingKeyReplacesItsValueAtItsPlace) {
  KVMap map = MakeMap(3);
  const AnsiStr old("old value");
  map.Set("key1", old);
  EXPECT_EQ(old.GetImp()->refCount, 2U);
  map.Set("key1", "new value");
  EXPECT_EQ(old.GetImp()->refCount, 1U);
  EXPECT_EQ(map.GetCount(), 3U);
  EXPECT_EQ(map.Find("key1"), 1U);
  EXPECT_EQ(map.Get("key1").AsString(), "new value");
}

TEST(KVMapTest, KeysAndValuesKeepTheOrderOfFirstInsertion) {
  KVMap map;
  map.Set("zebra", "1");
  map.Set("apple", "2");
  map.Set("mango", "3");
  map.Set("zebra", "4");
  EXPECT_THAT(ElementsOf(map.GetKeys()),
              testing::ElementsAre(AnsiStr("zebra"), AnsiStr("apple"), AnsiStr("mango")));
  EXPECT_EQ(map.GetValues()[0].AsString(), "4");
  EXPECT_EQ(map.GetValues()[2].AsString(), "3");
}

std::string Listed(const KVMap& map) {
  std::string listed;
  for (const auto& [key, value] : map) {
    listed += std::string(key.View()) + "=" + std::to_string(value.AsInteger()) + ";";
  }
  return listed;
}

TEST(KVMapTest, IterationVisitsMembersInOrderOfInsertion) {
  KVMap map;
  map.Set("zebra", Val(std::int64_t{1}));
  map.Set("apple", Val(std::int64_t{2}));
  map.Set("zebra", Val(std::int64_t{3}));
  EXPECT_EQ(Listed(map), "zebra=3;apple=2;");
}

TEST(KVMapTest, IterationOfANullMapVisitsNothing) {
  const KVMap map;
  EXPECT_EQ(map.begin(), map.end());
  EXPECT_EQ(Listed(map), "");
}

TEST(KVMapTest, IterationYieldsReferencesIntoTheMap) {
  const KVMap map = MakeMap(3);
  std::uint32_t index = 0;
  for (const auto& [key, value] : map) {
    EXPECT_EQ(&key, &map.GetKeys()[index]);
    EXPECT_EQ(&value, &map.GetValues()[index]);
    ++index;
  }
  EXPECT_EQ(index, 3U);
}

TEST(KVMapTest, IterationStaysValidWhileACopyIsChanged) {
  const KVMap map = MakeMap(2);
  KVMap copy(map);
  std::string listed;
  for (const auto& [key, value] : map) {
    copy.Set(key, "changed");
    copy.Set(FmtArgs("added%s", key.GetText()), "new");
    listed += std::string(key.View()) + "=" + std::to_string(value.AsInteger()) + ";";
  }
  EXPECT_EQ(listed, "key0=0;key1=1;");
  EXPECT_EQ(copy.GetCount(), 4U);
}

TEST(KVMapTest, ContainsFindsKeysWhateverTheirValue) {
  KVMap map;
  EXPECT_FALSE(map.Contains("key"));
  map.Set("key", Val());
  EXPECT_TRUE(map.Contains("key"));
  EXPECT_TRUE(map.Contains(AnsiStr("key")));
  EXPECT_TRUE(map.Contains(std::string_view("key of another").substr(0, 3)));
  EXPECT_FALSE(map.Contains("KEY"));
  EXPECT_FALSE(map.Contains(""));
}

TEST(KVMapTest, SetOfAValueOfItsOwnIsSafe) {
  KVMap map;
  map.Set("key", "value");
  for (int i = 0; i < 30; ++i) map.Set(FmtArgs("copy%d", i), map.GetValues()[0]);
  EXPECT_EQ(map.Get("copy29").AsString(), "value");
  map.Set(map.GetKeys()[0], map.GetValues()[0]);
  EXPECT_EQ(map.Get("key").AsString(), "value");
}

// Whichever of the allocations fails.
TEST(KVMapTest, SetReportsFalseAndChangesNothingOnAllocationFailure) {
  const Val value("new");
  for (const AnsiStr key : {"key1", "added"}) {
    std::uint32_t blocks = 0;
    for (bool isSet = false; !isSet; ++blocks) {
      KVMap map = MakeMap(2);
      const KVMap other(map);
      {
        const FailingMemory memory(blocks);
        isSet = map.Set(key, value);
      }
      EXPECT_EQ(map.Get(key).AsString(), isSet ? "new" : "");
      EXPECT_EQ(map.GetCount(), isSet && key == "added" ? 3U : 2U);
      EXPECT_EQ(map.Get("key0").AsInteger(), 0);
      EXPECT_EQ(other.Get("key1").AsInteger(), 1);
    }
    EXPECT_EQ(blocks, key == "added" ? 5U : 3U) << key.View();
  }
}

TEST(KVMapTest, PutSetsAsSetDoes) {
  KVMap map;
  map.Put("text", "characters");
  map.Put("string", AnsiStr("string"));
  map.Put("value", Val(std::int64_t{7}));
  map.Put("text", "replaced");
  EXPECT_EQ(map.GetCount(), 3U);
  EXPECT_EQ(map.Get("text").AsString(), "replaced");
  EXPECT_EQ(map.Get("string").AsString(), "string");
  EXPECT_EQ(map.Get("value").AsInteger(), 7);
}

// Rather than leave out a member.
TEST(KVMapDeathTest, PutAbortsOnAllocationFailure) {
  const auto run = [] {
    const AnsiStr key("key");
    const Val value("value");
    KVMap map;
    const FailingMemory memory(0);
    map.Put(key, value);
  };
  EXPECT_DEATH(run(), "^Could not allocate map\n$");
}

TEST(KVMapTest, HashMultipliesBy31OverSignedBytes) {
  EXPECT_EQ(KVMap::Hash(""), 0U);
  EXPECT_EQ(KVMap::Hash("a"), 97U);
  EXPECT_EQ(KVMap::Hash("ab"), 97U * 31 + 98);
  EXPECT_EQ(KVMap::Hash("statustimeout"), 3697740079U);
}

TEST(KVMapTest, AByteAbove7FHashesAsNegative) {
  EXPECT_EQ(KVMap::Hash("\xFF"), 0xFFFFFFFFU);
  EXPECT_EQ(KVMap::Hash("\x80"), static_cast<std::uint32_t>(-128));
  EXPECT_EQ(KVMap::Hash("\xC3\xA4"), static_cast<std::uint32_t>(-61 * 31 - 92));
  KVMap map;
  map.Set("\xC3\xA4", "found");
  EXPECT_EQ(map.GetImp()->buckets[static_cast<std::uint32_t>(-61 * 31 - 92) % 13].GetCount(), 1U);
  EXPECT_EQ(map.Get("\xC3\xA4").AsString(), "found");
}

TEST(KVMapTest, KeysOfOneBucketAreFoundInOrderOfInsertion) {
  ASSERT_EQ(KVMap::Hash("Aa"), KVMap::Hash("BB"));
  KVMap map;
  map.Set("between", "0");
  map.Set("BB", "1");
  map.Set("Aa", "2");
  const std::uint32_t bucket = KVMap::Hash("Aa") % 13;
  EXPECT_THAT(ElementsOf(map.GetImp()->buckets[bucket]), testing::ElementsAre(1U, 2U));
  EXPECT_EQ(map.Get("BB").AsString(), "1");
  EXPECT_EQ(map.Get("Aa").AsString(), "2");
}

TEST(KVMapTest, EveryBucketFindsItsKeys) {
  const KVMap map = MakeMap(500);
  for (std::uint32_t i = 0; i < 500; ++i) {
    EXPECT_EQ(map.Find(FmtArgs("key%u", i)), i);
    EXPECT_EQ(map.Get(FmtArgs("key%u", i)).AsInteger(), i);
  }
  EXPECT_EQ(map.Find("key500"), 500U);
}

TEST(KVMapTest, KeysCompareExactly) {
  KVMap map;
  map.Set("Key", "1");
  EXPECT_TRUE(map.Get("key").IsNil());
  EXPECT_TRUE(map.Get("Ke").IsNil());
  EXPECT_TRUE(map.Get("Key ").IsNil());
  EXPECT_TRUE(map.Get(AnsiStr(std::string_view("Key\0", 4))).IsNil());
}

TEST(KVMapTest, TheEmptyKeyIsAKey) {
  KVMap map;
  map.Set("", "nothing");
  EXPECT_EQ(map.GetCount(), 1U);
  EXPECT_EQ(map.Get("").AsString(), "nothing");
}

TEST(KVMapTest, ANilValueCountsAsAnEntry) {
  KVMap map;
  map.Set("nil", Val());
  EXPECT_EQ(map.GetCount(), 1U);
  EXPECT_EQ(map.Find("nil"), 0U);
}

TEST(KVMapTest, GetSharesTheValue) {
  KVMap map;
  const AnsiStr text("text");
  map.Set("key", text);
  const Val value = map.Get("key");
  EXPECT_EQ(text.GetImp()->refCount, 3U);
}

TEST(KVMapTest, IteratingANullMapGivesTheSameEmptyArrays) {
  EXPECT_EQ(KVMap::GetKeys(nullptr).GetCount(), 0U);
  EXPECT_EQ(KVMap::GetValues(nullptr).GetCount(), 0U);
  EXPECT_EQ(&KVMap::GetKeys(nullptr), &KVMap::GetKeys(nullptr));
  EXPECT_EQ(&KVMap::GetValues(nullptr), &KVMap::GetValues(nullptr));
}

TEST(KVMapTest, AssignmentLinksAndReleases) {
  KVMap map = MakeMap(1);
  const KVMap copy = map;
  const KVMap& alias = map;
  map = alias;
  EXPECT_EQ(copy.GetImp()->refCount, 2U);
  map = KVMap();
  EXPECT_EQ(copy.GetImp()->refCount, 1U);
  map = copy;
  const KVMap moved(std::move(map));
  EXPECT_EQ(copy.GetImp()->refCount, 2U);
  EXPECT_EQ(KVMap::FromImp(nullptr).GetImp(), nullptr);
}

TEST(KVMapTest, FreeingTheObjectReleasesItsContent) {
  const AnsiStr text("text");
  {
    KVMap map;
    map.Set(text, text);
    EXPECT_EQ(text.GetImp()->refCount, 3U);
  }
  EXPECT_EQ(text.GetImp()->refCount, 1U);
}

TEST(KVMapTest, FromDistinctMakesTheSameMapAsSetting) {
  const KVMap set = MakeMap(100);
  const KVMap loaded = KVMap::FromDistinct(set.GetKeys(), set.GetValues());
  EXPECT_EQ(loaded.GetKeys().GetImp(), set.GetKeys().GetImp());
  for (std::uint32_t i = 0; i < KVMapImp::kBuckets; ++i) {
    EXPECT_EQ(ElementsOf(loaded.GetImp()->buckets[i]), ElementsOf(set.GetImp()->buckets[i]));
  }
  EXPECT_EQ(loaded.Get("key99").AsInteger(), 99);
}

TEST(KVMapTest, FromDistinctSizesTheBucketsExactly) {
  const KVMap set = MakeMap(30);
  const KVMap loaded = KVMap::FromDistinct(set.GetKeys(), set.GetValues());
  for (const Array<std::uint32_t>& bucket : loaded.GetImp()->buckets) {
    EXPECT_EQ(CapacityOf(bucket), bucket.GetCount());
  }
}

// By a literal, by a view and by a string.
TEST(KVMapTest, LookupAllocatesNothing) {
  const KVMap map = MakeMap(3);
  const AnsiStr key("key1");
  const FailingMemory memory(0);
  EXPECT_EQ(map.Find("key2"), 2U);
  EXPECT_EQ(map.Get("key1").AsInteger(), 1);
  EXPECT_EQ(map.Get(key).AsInteger(), 1);
  EXPECT_EQ(map.Get(std::string_view("key1 and more", 4)).AsInteger(), 1);
  EXPECT_TRUE(map.Get("no key").IsNil());
}

// Repeated keys included.
TEST(KVMapTest, FromPairsMakesTheSameMapAsSetting) {
  for (const std::uint32_t count : {0U, 1U, 3U, 16U, 17U, 1000U}) {
    for (const std::uint32_t distinct : {1U, 2U, 15U, 999U, 2000U}) {
      KVMap set;
      Array<AnsiStr> keys;
      Array<Val> values;
      for (std::uint32_t i = 0; i < count; ++i) {
        keys.Append(FmtArgs("key%u", i * 7919 % distinct));
        values.Append(Val(std::int64_t{i}));
        set.Set(keys[i], values[i]);
      }
      const KVMap loaded = KVMap::FromPairs(keys, values);
      EXPECT_EQ(ElementsOf(loaded.GetKeys()), ElementsOf(set.GetKeys())) << count << " of " << distinct;
      for (std::uint32_t i = 0; i < set.GetCount(); ++i) {
        EXPECT_EQ(loaded.Find(set.GetKeys()[i]), i);
        EXPECT_EQ(loaded.GetValues()[i].AsInteger(), set.GetValues()[i].AsInteger());
      }
    }
  }
}

TEST(KVMapTest, FromDistinctOfNothingIsTheNullMap) {
  EXPECT_EQ(KVMap::FromDistinct({}, {}).GetImp(), nullptr);
}

}  // namespace
}  // namespace OruGuiBase
