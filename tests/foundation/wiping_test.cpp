#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "foundation/ansistr.h"
#include "foundation/blob.h"
#include "foundation/file.h"
#include "foundation/format.h"
#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "foundation/stream.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"
#include "tests/support/freed_memory.h"

namespace OruGuiBase {
namespace {

constexpr const char* kSecret = "TopSecretKey0815";

// Runs the work and expects that no block it freed still held the secret.
template <class Work>
void ExpectWiped(Work work) {
  WatchFreedMemory(kSecret);
  work();
  EXPECT_EQ(StopWatching(), 0);
  EXPECT_GT(GetWatchedBlocks(), 0);
}

// Otherwise the tests below would prove nothing.
TEST(WipingTest, TheWatchFindsWhatIsNotWiped) {
  WatchFreedMemory(kSecret);
  void* const block = AllocParticle(64);
  std::strcpy(static_cast<char*>(block) + 5, kSecret);
  FreeParticle(64, block);
  EXPECT_EQ(StopWatching(), 1);
}

TEST(WipingTest, FreedStringsAreWiped) {
  ExpectWiped([] { const AnsiStr text(kSecret); });
}

TEST(WipingTest, StringsThatGrowWipeTheirOldBlocks) {
  ExpectWiped([] {
    AnsiStr text(kSecret);
    for (int i = 0; i < 100; ++i) text += " and more";
  });
}

TEST(WipingTest, StringsThatShrankAreWipedToTheirOldEnd) {
  ExpectWiped([] {
    AnsiStr text = AnsiStr("prefix ") + AnsiStr(kSecret);
    text.Trunc(7);
    // Past its new end the text is gone at once.
    EXPECT_EQ(text.GetText()[8], '\0');
  });
}

TEST(WipingTest, FormattedStringsAreWiped) {
  ExpectWiped([] { FmtArgs("password=%s", kSecret); });
}

TEST(WipingTest, FreedBlobsAreWiped) {
  ExpectWiped([] {
    Blob blob;
    std::memcpy(blob.Alloc(64), kSecret, std::strlen(kSecret));
    blob.Trunc(3);
    blob.Clear();
  });
}

TEST(WipingTest, ValuesReadFromJSONAreWiped) {
  const AnsiStr text(R"({"key":"TopSecretKey0815","list":["TopSecretKey0815"],"TopSecretKey0815":1})");
  ExpectWiped([&text] {
    Val value;
    AnsiStr error;
    EXPECT_TRUE(JSON2Val(text, value, error));
  });
}

TEST(WipingTest, StringsThatComeInPartsAreWiped) {
  // Escapes make the engine hand the text out in parts.
  AnsiStr text("\"");
  for (int i = 0; i < 1000; ++i) text += "TopSecretKey0815\\n";
  text += '"';
  ExpectWiped([&text] {
    Val value;
    AnsiStr error;
    EXPECT_TRUE(JSON2Val(text, value, error));
    EXPECT_EQ(value.AsString().GetLength(), 17000U);
  });
}

TEST(WipingTest, JSONThatIsRefusedIsWiped) {
  const AnsiStr text(R"({"key":"TopSecretKey0815\n","other":"TopSecretKey0815)");
  ExpectWiped([&text] {
    Val value;
    AnsiStr error;
    EXPECT_FALSE(JSON2Val(text, value, error));
  });
}

TEST(WipingTest, WrittenJSONIsWiped) {
  KVMap map;
  for (int i = 0; i < 50; ++i) map.Set(FmtArgs("key%d", i), kSecret);
  const Val value(map);
  ExpectWiped([&value] {
    AnsiStr text;
    AnsiStr error;
    EXPECT_TRUE(Val2JSON(value, text, error, /*pretty=*/false, /*strict=*/true));
  });
}

TEST(WipingTest, BuffersOfStreamsAreWiped) {
  const ScratchDirectory scratch;
  const File file = scratch.FileOf("a");
  const AnsiStr secret(kSecret);
  ExpectWiped([&] {
    WriteStream writer(file, WriteStreamMode::Truncate);
    EXPECT_TRUE(writer.Write(secret));
    EXPECT_TRUE(writer.Close());
    ReadStream reader(file, ReadStreamMode::Text);
    AnsiStr line;
    EXPECT_TRUE(reader.ReadLn(line));
    EXPECT_TRUE(reader.Close());
    FastReadStream whole(file);
    EXPECT_TRUE(whole.Read(line));
  });
}

}  // namespace
}  // namespace OruGuiBase
