#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/stream.h"
#include "tests/foundation/file_size_limit.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;

// The contents of the target after the lines of a file with `text` were copied to it.
std::string CopyOf(const ScratchDirectory& scratch, std::string_view text) {
  ReadStream reader(scratch.MakeFile("from", text), ReadStreamMode::Text);
  WriteStream writer(scratch.FileOf("to"), WriteStreamMode::Truncate);
  EXPECT_TRUE(reader.CopyLines(writer));
  EXPECT_TRUE(reader.Close());
  EXPECT_TRUE(writer.Close());
  return ContentOf(scratch.FileOf("to"));
}

// The same, a line at a time.
std::string LinesOf(const File& file) {
  ReadStream reader(file, ReadStreamMode::Text);
  std::string lines;
  for (AnsiStr line; reader.ReadLn(line);) lines += std::string(line.View()) + "\n";
  EXPECT_TRUE(reader.Close());
  return lines;
}

const struct {
  std::string_view text;
  std::string_view copy;
  const char* reason;
} kRows[] = {
    {"", "", "no line"},
    {"a", "a\n", "the last line gets the end that it lacks"},
    {"a\nb\n", "a\nb\n", "LF stays"},
    {"a\r\nb\r\n", "a\nb\n", "CR LF becomes LF"},
    {"a\r\nb\nc\r\n", "a\nb\nc\n", "both in one file"},
    {"\n\r\n\n", "\n\n\n", "empty lines stay"},
    {"\n\nb", "\n\nb\n", "empty lines at the beginning stay"},
    {"a\rb\n", "a\rb\n", "CR alone is content"},
    {"a\r", "a\r\n", "CR alone at the end is content"},
    {"\r", "\r\n", "CR alone is a line"},
    {"a\r\r\n", "a\r\n", "only the CR next to the LF belongs to it"},
    {"\r\r\r\n\r", "\r\r\n\r\n", "CRs in a row are content but for the last before the LF"},
    {"a\0b\nc"sv, "a\0b\nc\n"sv, "NUL is content"},
};

// Copied lines end in LF, whatever their ends were.
TEST(ReadStreamLinesTest, CopiesLinesWithOneTypeOfEnding) {
  const ScratchDirectory scratch;
  for (const auto& row : kRows) EXPECT_EQ(CopyOf(scratch, row.text), row.copy) << row.reason;
}

// Wherever line ends are near the end of the buffer.
TEST(ReadStreamLinesTest, CopiesWhatReadingLineByLineGives) {
  const ScratchDirectory scratch;
  for (const char* end : {"\n", "\r\n", "\r\r\n", "\r", "\rx\n", ""}) {
    for (std::uint32_t length = kStreamBuffer - 2; length <= kStreamBuffer + 1; ++length) {
      for (const char* rest : {"", "rest\r\n", "\n"}) {
        const std::string text = std::string(length, 'x') + end + rest;
        const std::string copy = CopyOf(scratch, text);
        EXPECT_TRUE(copy == LinesOf(scratch.FileOf("from")))
            << length << " and " << testing::PrintToString(std::string(end) + rest);
      }
    }
  }
}

TEST(ReadStreamLinesTest, CopiesALineLongerThanTheBuffer) {
  const ScratchDirectory scratch;
  const std::string line(kStreamBuffer * 3 + 17, 'x');
  EXPECT_TRUE(CopyOf(scratch, "first\r\n" + line + "\r\nlast") == "first\n" + line + "\nlast\n");
}

// Copying starts where reading and skipping stopped.
TEST(ReadStreamLinesTest, CopiesTheRemainingLines) {
  const ScratchDirectory scratch;
  ReadStream reader(scratch.MakeFile("from", "one\r\ntwo\nthree\r\nfour"), ReadStreamMode::Text);
  WriteStream writer(scratch.FileOf("to"), WriteStreamMode::Truncate);
  AnsiStr line;
  EXPECT_TRUE(reader.SkipLn());
  EXPECT_TRUE(reader.ReadLn(line));
  EXPECT_EQ(line, "two");
  EXPECT_TRUE(reader.CopyLines(writer));
  EXPECT_FALSE(reader.SkipLn());
  EXPECT_TRUE(writer.Close());
  EXPECT_EQ(ContentOf(scratch.FileOf("to")), "three\nfour\n");
}

// With any line end; after the last line there is none to skip.
TEST(ReadStreamLinesTest, SkipsALineOfAnyLength) {
  const ScratchDirectory scratch;
  for (const std::uint32_t length : {0U, 1U, kStreamBuffer - 1, kStreamBuffer, kStreamBuffer * 2 + 1}) {
    const std::string line(length, 'x');
    ReadStream reader(scratch.MakeFile("a", line + "\nsecond\r\nlast"), ReadStreamMode::Text);
    AnsiStr next;
    EXPECT_TRUE(reader.SkipLn()) << length;
    EXPECT_TRUE(reader.ReadLn(next)) << length;
    EXPECT_EQ(next, "second") << length;
    EXPECT_TRUE(reader.SkipLn()) << length;
    EXPECT_FALSE(reader.SkipLn()) << length;
    EXPECT_FALSE(reader.IsError()) << length;
  }
}

// It has no line to skip or copy, and the reason stays.
TEST(ReadStreamLinesTest, AFileThatCannotBeOpenedIsInError) {
  const ScratchDirectory scratch;
  ReadStream reader(scratch.FileOf("missing"), ReadStreamMode::Text);
  WriteStream writer(scratch.FileOf("to"), WriteStreamMode::Truncate);
  ClearLastError();
  EXPECT_FALSE(reader.SkipLn());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  ClearLastError();
  EXPECT_FALSE(reader.CopyLines(writer));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_FALSE(writer.IsError());
}

TEST(ReadStreamLinesTest, AReadThatFailsIsTheReadersError) {
  const ScratchDirectory scratch;
  // The memory of this process has nothing at its first page: reading it is an I/O error.
  const File unreadable(AnsiStr("/proc/self/mem"));
  ReadStream skipping(unreadable, ReadStreamMode::Text);
  EXPECT_FALSE(skipping.SkipLn());
  EXPECT_TRUE(skipping.IsError());
  ReadStream reader(unreadable, ReadStreamMode::Text);
  WriteStream writer(scratch.FileOf("to"), WriteStreamMode::Truncate);
  EXPECT_FALSE(reader.CopyLines(writer));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EIO));
  EXPECT_TRUE(reader.IsError());
  EXPECT_FALSE(writer.IsError());
}

TEST(ReadStreamLinesTest, ADiskThatFillsUpIsTheWritersError) {
  const ScratchDirectory scratch;
  for (const char* end : {"\n", "\r\n", "\r", ""}) {
    const File from = scratch.MakeFile("from", std::string(std::size_t{kStreamBuffer} * 3, 'x') + end);
    const FileSizeLimit limit(1000);
    ReadStream reader(from, ReadStreamMode::Text);
    WriteStream writer(scratch.FileOf("to"), WriteStreamMode::Truncate);
    EXPECT_FALSE(reader.CopyLines(writer) && writer.Close());
    EXPECT_EQ(GetSystemErrorText(), std::strerror(EFBIG));
    EXPECT_FALSE(reader.IsError());
    EXPECT_TRUE(writer.IsError());
  }
}

TEST(ReadStreamLinesTest, AWriterInErrorTakesNoLine) {
  const ScratchDirectory scratch;
  for (const char* text : {"a\n", "\r\n", "\r"}) {
    ReadStream reader(scratch.MakeFile("from", text), ReadStreamMode::Text);
    WriteStream writer(scratch.FileOf("missing/to"), WriteStreamMode::Append);
    ClearLastError();
    EXPECT_FALSE(reader.CopyLines(writer)) << testing::PrintToString(text);
    EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  }
}

}  // namespace
}  // namespace OruGuiBase
