#include "foundation/blob.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <utility>

#include "tests/foundation/memory_limit.h"

namespace OruGuiBase {
namespace {

Blob MakeBlob(const char* text) {
  return Blob(
      BlobConst{reinterpret_cast<const std::uint8_t*>(text), static_cast<std::uint32_t>(strlen(text))});
}

TEST(BlobTest, EmptyBlobAllocatesNothing) {
  EXPECT_EQ(Blob().GetImp(), nullptr);
  EXPECT_EQ(Blob(BlobConst{}).GetImp(), nullptr);
  EXPECT_EQ(Blob().GetData(), nullptr);
  EXPECT_EQ(Blob().GetSize(), 0U);
  EXPECT_TRUE(Blob().IsEmpty());
}

TEST(BlobTest, KeepsItsBytes) {
  const Blob blob = MakeBlob("abc");
  EXPECT_EQ(blob.GetSize(), 3U);
  EXPECT_EQ(std::memcmp(blob.GetData(), "abc", 3), 0);
  EXPECT_EQ(blob.View().size, 3U);
}

TEST(BlobTest, CopiesShareAndAssignmentsRelease) {
  const Blob blob = MakeBlob("abc");
  Blob copy(blob);
  EXPECT_EQ(blob.GetImp()->refCount, 2U);
  const Blob& alias = copy;
  copy = alias;
  EXPECT_EQ(blob.GetImp()->refCount, 2U);
  copy = MakeBlob("def");
  EXPECT_EQ(blob.GetImp()->refCount, 1U);
  copy = blob;
  const Blob moved(std::move(copy));
  EXPECT_EQ(moved.GetImp(), blob.GetImp());
  EXPECT_EQ(blob.GetImp()->refCount, 2U);
}

TEST(BlobTest, EqualityComparesBytes) {
  EXPECT_EQ(MakeBlob("abc"), MakeBlob("abc"));
  EXPECT_FALSE(MakeBlob("abc") == MakeBlob("abd"));
  EXPECT_FALSE(MakeBlob("abc") == MakeBlob("ab"));
  EXPECT_EQ(Blob(), Blob());
}

TEST(BlobTest, AllocGivesZeroedBytes) {
  Blob blob;
  const std::uint8_t* const bytes = blob.Alloc(16);
  ASSERT_NE(bytes, nullptr);
  EXPECT_TRUE(std::all_of(bytes, bytes + 16, [](std::uint8_t b) { return b == 0; }));
  EXPECT_EQ(blob.GetSize(), 16U);
}

TEST(BlobTest, AllocOfNothingEmptiesTheBlob) {
  Blob blob = MakeBlob("abc");
  EXPECT_EQ(blob.Alloc(0), nullptr);
  EXPECT_TRUE(blob.IsEmpty());
  EXPECT_EQ(Blob().Alloc(0), nullptr);
}

TEST(BlobTest, AllocWithinTheCapacityKeepsTheStorage) {
  Blob blob;
  const std::uint8_t* const bytes = blob.Alloc(16);
  EXPECT_EQ(blob.Alloc(8), bytes);
  EXPECT_EQ(blob.GetSize(), 8U);
  EXPECT_EQ(blob.Alloc(16), bytes);
}

TEST(BlobTest, AllocOfASharedBlobLeavesTheOtherAlone) {
  Blob blob = MakeBlob("abc");
  const Blob copy(blob);
  std::uint8_t* const bytes = blob.Alloc(3);
  ASSERT_NE(bytes, nullptr);
  EXPECT_NE(bytes, copy.GetData());
  std::copy_n("xyz", 3, bytes);
  EXPECT_EQ(copy, MakeBlob("abc"));
}

TEST(BlobTest, TruncCutsAndNeverLengthens) {
  Blob blob = MakeBlob("abcdef");
  blob.Trunc(10);
  EXPECT_EQ(blob.GetSize(), 6U);
  blob.Trunc(2);
  EXPECT_EQ(blob, MakeBlob("ab"));
}

TEST(BlobTest, TruncOfASharedBlobCopiesFirst) {
  Blob blob = MakeBlob("abcdef");
  const Blob copy(blob);
  blob.Trunc(3);
  EXPECT_EQ(blob, MakeBlob("abc"));
  EXPECT_EQ(copy, MakeBlob("abcdef"));
  Blob other(copy);
  other.Trunc(0);
  EXPECT_TRUE(other.IsEmpty());
  EXPECT_EQ(copy.GetSize(), 6U);
}

TEST(BlobTest, ClearKeepsTheStorageOfAnUnsharedBlob) {
  Blob blob = MakeBlob("abc");
  const std::uint8_t* const bytes = blob.GetData();
  blob.Clear();
  EXPECT_TRUE(blob.IsEmpty());
  EXPECT_EQ(blob.Alloc(3), bytes);
}

TEST(BlobTest, ClearReleasesASharedBlob) {
  Blob blob = MakeBlob("abc");
  const Blob copy(blob);
  blob.Clear();
  EXPECT_EQ(blob.GetImp(), nullptr);
  EXPECT_EQ(copy, MakeBlob("abc"));
  Blob().Clear();
}

TEST(BlobTest, FromImpTakesAReference) {
  const Blob blob = MakeBlob("abc");
  const Blob other = Blob::FromImp(blob.GetImp());
  EXPECT_EQ(blob.GetImp()->refCount, 2U);
  EXPECT_EQ(Blob::FromImp(nullptr).GetImp(), nullptr);
}

TEST(BlobDeathTest, AllocReturnsNullOnAllocationFailure) {
  const auto run = [] {
    LimitMemory();
    Blob blob = MakeBlob("abc");
    std::_Exit(blob.Alloc(kTooMuch) == nullptr && blob.IsEmpty() ? 0 : 1);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace OruGuiBase
