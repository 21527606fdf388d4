#include "foundation/stream.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "tests/foundation/file_size_limit.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;
using Lines = std::vector<std::string>;

Lines ReadLines(const File& file) {
  ReadStream stream(file, ReadStreamMode::Text);
  Lines lines;
  AnsiStr line;
  while (stream.ReadLn(line)) lines.emplace_back(line.View());
  EXPECT_FALSE(stream.IsError());
  EXPECT_TRUE(line.IsEmpty());
  EXPECT_TRUE(stream.Close());
  return lines;
}

Lines IterateLines(std::string_view text) {
  LineIterator iterator{AnsiStr(text)};
  Lines lines;
  while (iterator.ToNext()) {
    EXPECT_EQ(iterator.GetIndex(), lines.size());
    lines.emplace_back(iterator.GetLine().View());
  }
  EXPECT_FALSE(iterator.ToNext());
  return lines;
}

const struct {
  std::string_view text;
  Lines lines;
  const char* reason;
} kLineRows[] = {
    {"", {}, "no text has no line"},
    {"a", {"a"}, "the last may lack its end"},
    {"a\n", {"a"}, "an end makes no further line"},
    {"a\nb", {"a", "b"}, "LF"},
    {"a\r\nb\r\n", {"a", "b"}, "CR LF"},
    {"\n", {""}, "one empty line"},
    {"\r\n", {""}, "one empty line with CR LF"},
    {"\n\n", {"", ""}, "two empty lines"},
    {"a\n\nb", {"a", "", "b"}, "an empty line between"},
    {"a\rb", {"a\rb"}, "CR alone is content"},
    {"a\r", {"a\r"}, "CR alone at the end is content"},
    {"a\r\r\n", {"a\r"}, "only the CR next to the LF belongs to it"},
    {"a\0b\nc"sv, {std::string("a\0b", 3), "c"}, "NUL is content"},
};

// Lines end in LF or CR LF; the last may have no end.
TEST(LineIteratorTest, StepsThroughTheLines) {
  for (const auto& row : kLineRows) EXPECT_EQ(IterateLines(row.text), row.lines) << row.reason;
}

// Lines end in LF or CR LF; the last may have no end.
TEST(ReadStreamTest, ReadsTheLines) {
  const ScratchDirectory scratch;
  for (const auto& row : kLineRows) {
    EXPECT_EQ(ReadLines(scratch.MakeFile("a", row.text)), row.lines) << row.reason;
  }
}

TEST(ReadStreamTest, LineEndsAcrossTheBufferAreFound) {
  const ScratchDirectory scratch;
  for (const std::uint32_t length :
       {kStreamBuffer - 2, kStreamBuffer - 1, kStreamBuffer, kStreamBuffer + 1}) {
    const std::string line(length, 'x');
    EXPECT_EQ(ReadLines(scratch.MakeFile("a", line + "\r\nrest\r\n")), (Lines{line, "rest"})) << length;
  }
}

TEST(ReadStreamTest, ALineLongerThanTheBufferComesWhole) {
  const ScratchDirectory scratch;
  const std::string line(kStreamBuffer * 3 + 17, 'x');
  EXPECT_EQ(ReadLines(scratch.MakeFile("a", "first\n" + line + "\nlast")), (Lines{"first", line, "last"}));
}

TEST(ReadStreamTest, AFileThatCannotBeOpenedIsInError) {
  const ScratchDirectory scratch;
  ReadStream stream(scratch.FileOf("missing"), ReadStreamMode::Text);
  EXPECT_TRUE(stream.IsError());
  ClearLastError();
  AnsiStr line("old");
  EXPECT_FALSE(stream.ReadLn(line));
  EXPECT_TRUE(line.IsEmpty());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  ClearLastError();
  EXPECT_FALSE(stream.Close());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
}

TEST(ReadStreamTest, ADirectoryIsInError) {
  const ScratchDirectory scratch;
  ReadStream stream(File(AnsiStr(scratch.GetPath())), ReadStreamMode::Text);
  EXPECT_TRUE(stream.IsError());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
}

TEST(ReadStreamTest, AReadThatFailsIsAnErrorAndNoEnd) {
  // The memory of this process has nothing at its first page: reading it is an I/O error.
  ReadStream stream(File(AnsiStr("/proc/self/mem")), ReadStreamMode::Text);
  ASSERT_FALSE(stream.IsError());
  AnsiStr line;
  EXPECT_FALSE(stream.ReadLn(line));
  EXPECT_TRUE(stream.IsError());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EIO));
  EXPECT_FALSE(stream.Close());
}

TEST(ReadStreamTest, AClosedStreamIsAtItsEnd) {
  const ScratchDirectory scratch;
  ReadStream stream(scratch.MakeFile("a", "one\ntwo\n"), ReadStreamMode::Text);
  AnsiStr line;
  EXPECT_TRUE(stream.ReadLn(line));
  EXPECT_TRUE(stream.Close());
  EXPECT_FALSE(stream.ReadLn(line));
  EXPECT_TRUE(stream.Close());
}

TEST(WriteStreamTest, WritesStringsAndCharacters) {
  const ScratchDirectory scratch;
  WriteStream stream(scratch.FileOf("a"), WriteStreamMode::Truncate);
  EXPECT_TRUE(stream.Write(AnsiStr("text")));
  EXPECT_TRUE(stream.Write(';'));
  EXPECT_TRUE(stream.Write(AnsiStr()));
  EXPECT_TRUE(stream.Write(AnsiStr("a\0b"sv)));
  EXPECT_TRUE(stream.Close());
  EXPECT_EQ(ContentOf(scratch.FileOf("a")), "text;a\0b"sv);
}

TEST(WriteStreamTest, AppendModeAddsAtTheEndOfAFileThatHasContent) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("a", "old;");
  for (const char* text : {"added;", "once more"}) {
    WriteStream stream(file, static_cast<WriteStreamMode>(1));
    EXPECT_TRUE(stream.Write(AnsiStr(text)));
    EXPECT_TRUE(stream.Close());
  }
  EXPECT_EQ(ContentOf(file), "old;added;once more");
}

TEST(WriteStreamTest, TruncateModeDropsTheContent) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("a", "old and longer");
  WriteStream stream(file, WriteStreamMode::Truncate);
  EXPECT_TRUE(stream.Write(AnsiStr("new")));
  EXPECT_TRUE(stream.Close());
  EXPECT_EQ(ContentOf(file), "new");
}

TEST(WriteStreamTest, AppendModeMakesAMissingFile) {
  const ScratchDirectory scratch;
  WriteStream stream(scratch.FileOf("a"), WriteStreamMode::Append);
  EXPECT_TRUE(stream.Write('x'));
  EXPECT_TRUE(stream.Close());
  EXPECT_EQ(ContentOf(scratch.FileOf("a")), "x");
}

TEST(WriteStreamTest, StringsOfAnySizeKeepTheirOrder) {
  const ScratchDirectory scratch;
  std::string expected;
  WriteStream stream(scratch.FileOf("a"), WriteStreamMode::Truncate);
  for (const std::uint32_t size :
       {1U, kStreamBuffer - 1, 2U, kStreamBuffer, kStreamBuffer + 1, 3U, 5 * kStreamBuffer}) {
    const std::string text(size, static_cast<char>('a' + size % 26));
    EXPECT_TRUE(stream.Write(AnsiStr(text)));
    expected += text;
  }
  EXPECT_TRUE(stream.Close());
  EXPECT_TRUE(ContentOf(scratch.FileOf("a")) == expected);
}

TEST(WriteStreamTest, DestructorWritesTheBuffer) {
  const ScratchDirectory scratch;
  {
    WriteStream stream(scratch.FileOf("a"), WriteStreamMode::Truncate);
    EXPECT_TRUE(stream.Write(AnsiStr("held")));
  }
  EXPECT_EQ(ContentOf(scratch.FileOf("a")), "held");
}

TEST(WriteStreamTest, AFullDiskIsReportedOnCloseAtTheLatest) {
  WriteStream stream(File(AnsiStr("/dev/full")), WriteStreamMode::Truncate);
  EXPECT_TRUE(stream.Write(AnsiStr("held")));
  EXPECT_FALSE(stream.Close());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOSPC));
  EXPECT_TRUE(stream.IsError());
}

TEST(WriteStreamTest, StaysInErrorAfterAFailure) {
  WriteStream stream(File(AnsiStr("/dev/full")), WriteStreamMode::Append);
  EXPECT_FALSE(stream.Write(AnsiStr(std::string(std::size_t{kStreamBuffer} * 2, 'x'))));
  for (int i = 0; i < 2; ++i) {
    ClearLastError();
    EXPECT_FALSE(stream.Write('x'));
    EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOSPC));
  }
  ClearLastError();
  EXPECT_FALSE(stream.Close());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOSPC));
}

TEST(WriteStreamTest, ADiskThatFillsUpIsAFailure) {
  const ScratchDirectory scratch;
  const FileSizeLimit limit(kStreamBuffer);
  WriteStream stream(scratch.FileOf("a"), WriteStreamMode::Truncate);
  const AnsiStr chunk(std::string(100000, 'x'));
  bool good = true;
  for (int i = 0; i < 10; ++i) good = stream.Write(chunk) && good;
  EXPECT_FALSE(good && stream.Close());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EFBIG));
}

TEST(WriteStreamTest, AMissingFolderIsInError) {
  const ScratchDirectory scratch;
  WriteStream stream(scratch.FileOf("missing/a"), WriteStreamMode::Append);
  EXPECT_TRUE(stream.IsError());
  EXPECT_FALSE(stream.Write('x'));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
}

TEST(WriteStreamTest, WritingAfterCloseIsAnError) {
  const ScratchDirectory scratch;
  WriteStream stream(scratch.FileOf("a"), WriteStreamMode::Truncate);
  EXPECT_TRUE(stream.Close());
  EXPECT_FALSE(stream.Write('x'));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EBADF));
  EXPECT_FALSE(stream.Close());
}

TEST(FastReadStreamTest, ReadsTheWholeFile) {
  const ScratchDirectory scratch;
  for (const std::string& content :
       {std::string(), std::string("a\0b\r\n", 5), std::string(kStreamBuffer * 2 + 1, 'x')}) {
    FastReadStream stream(scratch.MakeFile("a", content));
    AnsiStr text("old");
    EXPECT_TRUE(stream.Read(text));
    EXPECT_TRUE(text.View() == content);
    EXPECT_TRUE(stream.Close());
  }
}

TEST(FastReadStreamTest, ReadsASourceOfUnknownSize) {
  FastReadStream stream(File(AnsiStr("/proc/self/status")));
  AnsiStr text;
  EXPECT_TRUE(stream.Read(text));
  EXPECT_TRUE(text.View().starts_with("Name:"));
}

TEST(FastReadStreamTest, ReadsWhatWasAddedSinceItWasOpened) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("a", "old");
  FastReadStream stream(file);
  std::ofstream(file.GetPath().GetText(), std::ios::app) << " new";
  AnsiStr text;
  EXPECT_TRUE(stream.Read(text));
  EXPECT_EQ(text, "old new");
}

TEST(FastReadStreamTest, AFileLargerThanAStringIsAFailure) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("large", "");
  ASSERT_EQ(::truncate(file.GetPath().GetText(), std::int64_t{1} << 32), 0);
  FastReadStream stream(file);
  AnsiStr text("old");
  EXPECT_FALSE(stream.Read(text));
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EFBIG));
  EXPECT_TRUE(stream.IsError());
}

TEST(FastReadStreamTest, FailuresCarryTheSystemsReason) {
  const ScratchDirectory scratch;
  AnsiStr text;
  FastReadStream missing(scratch.FileOf("missing"));
  EXPECT_FALSE(missing.Read(text));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  FastReadStream directory(File(AnsiStr(scratch.GetPath())));
  EXPECT_FALSE(directory.Read(text));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_FALSE(directory.Close());
}

}  // namespace
}  // namespace OruGuiBase
