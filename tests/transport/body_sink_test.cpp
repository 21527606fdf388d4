#include "transport/body_sink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/text.h"

namespace OruKalvix {
namespace {

using ::testing::IsEmpty;
using TestSupport::Ansi;
using TestSupport::ScratchDirectory;
using TestSupport::Str;

TEST(BodySink, GathersChunksInMemory) {
  BodySink sink(100);
  EXPECT_TRUE(sink.Put("ab", 2));
  EXPECT_TRUE(sink.Put("", 0));
  EXPECT_TRUE(sink.Put("cd", 2));
  EXPECT_TRUE(sink.Finish());
  EXPECT_EQ(Str(sink.TakeBody()), "abcd");
  EXPECT_THAT(Str(sink.GetError()), IsEmpty());
}

TEST(BodySink, AcceptsBodiesUpToTheLimit) {
  BodySink sink(3);
  EXPECT_TRUE(sink.Put("abc", 3));
  EXPECT_FALSE(sink.Put("d", 1));
  EXPECT_EQ(Str(sink.GetError()), "the response is longer than 3 bytes, the limit for a response in memory");
}

TEST(BodySink, WithALimitOfZeroTakesAnEmptyBodyAlone) {
  BodySink sink(0);
  EXPECT_TRUE(sink.Put("", 0));
  EXPECT_FALSE(sink.Put("a", 1));
}

TEST(BodySink, WritesAFileWithoutALimit) {
  const ScratchDirectory scratch;
  BodySink sink(1);
  ASSERT_TRUE(sink.OpenFile(Ansi(scratch.Path("f").string())));
  EXPECT_TRUE(sink.Put("abc", 3));
  EXPECT_TRUE(sink.Put("def", 3));
  EXPECT_TRUE(sink.Finish());
  EXPECT_EQ(scratch.Read("f"), "abcdef");
  EXPECT_THAT(Str(sink.TakeBody()), IsEmpty());
}

TEST(BodySink, AFileThatIsNotFinishedIsEmptied) {
  const ScratchDirectory scratch;
  {
    BodySink sink(1);
    ASSERT_TRUE(sink.OpenFile(Ansi(scratch.Path("f").string())));
    EXPECT_TRUE(sink.Put("half", 4));
  }
  EXPECT_EQ(scratch.Read("f"), "");
}

TEST(BodySink, AFullDiskIsAnError) {
  BodySink sink(1);
  ASSERT_TRUE(sink.OpenFile("/dev/full"));
  EXPECT_FALSE(sink.Put("a", 1));
  EXPECT_EQ(Str(sink.GetError()), "could not write \"/dev/full\": No space left on device");
}

TEST(BodySink, APathWithANulIsRefusedRatherThanCut) {
  const ScratchDirectory scratch;
  const std::string path = scratch.Path("f").string() + std::string("\0g", 2);
  BodySink sink(1);
  EXPECT_FALSE(sink.OpenFile(Ansi(path)));
  EXPECT_FALSE(scratch.Exists("f"));
}

}  // namespace
}  // namespace OruKalvix
