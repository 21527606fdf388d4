#include "foundation/file.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <unistd.h>

#include "foundation/encoding.h"
#include "foundation/errorstate.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"

namespace OruGuiBase {
namespace {

using namespace std::string_view_literals;

TEST(DirectoryEntryTest, TailIsTheLastPart) {
  const struct {
    const char* path;
    const char* tail;
  } kRows[] = {{"/a/b/c.txt", "c.txt"},
               {"c.txt", "c.txt"},
               {"/a/b/", "b"},
               {"/a/b///", "b"},
               {"a//b", "b"},
               {"/", ""},
               {"", ""},
               {".", "."},
               {"/a/.hidden", ".hidden"}};
  for (const auto& row : kRows) EXPECT_EQ(DirectoryEntry(AnsiStr(row.path)).GetTail(), row.tail) << row.path;
}

TEST(DirectoryEntryTest, EqualityComparesThePaths) {
  EXPECT_TRUE(DirectoryEntry::IsEqual(File(AnsiStr("/a/b")), File(AnsiStr("/a/b"))));
  EXPECT_FALSE(DirectoryEntry::IsEqual(File(AnsiStr("/a/b")), File(AnsiStr("/a/B"))));
  EXPECT_TRUE(DirectoryEntry::IsEqual(File(), DirectoryEntry()));
}

TEST(DirectoryTest, TheWellKnownOneIsTheTemporaryDirectory) {
  const ScratchDirectory scratch;
  EXPECT_EQ(Directory(DirectoryType::Temporary).GetPath().View(), scratch.GetPath());
  ::setenv("TMPDIR", (scratch.GetPath() + "//").c_str(), 1);
  EXPECT_EQ(Directory(DirectoryType::Temporary).GetPath().View(), scratch.GetPath());
  ::setenv("TMPDIR", "", 1);
  EXPECT_EQ(Directory(DirectoryType::Temporary).GetPath(), "/tmp");
  ::unsetenv("TMPDIR");
  EXPECT_EQ(Directory(DirectoryType::Temporary).GetPath(), "/tmp");
  EXPECT_EQ(static_cast<int>(DirectoryType::Temporary), 27);
}

TEST(FileTest, ANameIsJoinedToItsDirectory) {
  EXPECT_EQ(File(Directory(AnsiStr("/a")), "b").GetPath(), "/a/b");
  EXPECT_EQ(File(Directory(AnsiStr("/a/")), "b").GetPath(), "/a/b");
  EXPECT_EQ(File(Directory(AnsiStr("/")), "b").GetPath(), "/b");
  EXPECT_EQ(File(Directory(AnsiStr("")), "b").GetPath(), "b");
}

TEST(FileTest, AFileThatIsNotPrivateIsOnlyNamed) {
  const ScratchDirectory scratch;
  const File file(FileType::Temporary, "a/b.tmp", false);
  EXPECT_EQ(file.GetPath().View(), scratch / "a_b.tmp");
  EXPECT_EQ(scratch.CountEntries(), 0U);
}

// UTF-8 is kept.
TEST(MakeNameTest, ReplacesUnsafeCharacters) {
  const struct {
    std::string_view name;
    std::string_view safe;
    const char* reason;
  } kRows[] = {
      {"report.pdf", "report.pdf", "an ordinary name"},
      {"a b.txt", "a b.txt", "a blank inside"},
      {"a/b", "a_b", "a separator"},
      {"a\\b", "a_b", "a separator of another system"},
      {"../../etc/passwd", "_._.._etc_passwd", "a way out of the folder"},
      {"..", "__", "the folder above"},
      {".", "_", "the folder itself"},
      {".hidden", "_hidden", "a leading dot"},
      {"C:\\x", "C__x", "a drive"},
      {"a*b?c\"d<e>f|g", "a_b_c_d_e_f_g", "reserved characters"},
      {"a\nb\tc\x01", "a_b_c_", "control characters"},
      {"a\x7F", "a_", "DEL"},
      {"a\0b"sv, "a_b", "a NUL byte"},
      {"name.", "name_", "a trailing dot"},
      {"name. .", "name___", "trailing dots and blanks"},
      {"name ", "name_", "a trailing blank"},
      {"", "_", "nothing"},
      {" ", "_", "a blank alone"},
      {"...", "___", "dots alone"},
      {"a.b.c", "a.b.c", "dots inside"},
      {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80.txt", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80.txt", "UTF-8"},
      {"a\xFF.txt", "a_.txt", "a byte that is not UTF-8"},
      {"a\xC3", "a_", "a cut character"},
      {"a\xC0\xAF"
       "b",
       "a__b", "an overlong separator"},
      {"-rf", "-rf", "a dash stays"},
  };
  for (const auto& row : kRows) {
    const AnsiStr safe = File::MakeName(AnsiStr(row.name));
    EXPECT_EQ(safe.View(), row.safe) << row.reason;
    EXPECT_EQ(File::MakeName(safe), safe) << row.reason;
  }
}

TEST(MakeNameTest, AnyByteGivesASafeName) {
  for (int byte = 0; byte < 256; ++byte) {
    const char text[] = {'a', static_cast<char>(byte), 'b'};
    const AnsiStr safe = File::MakeName(AnsiStr(text, 3));
    EXPECT_EQ(safe.GetLength(), 3U) << byte;
    EXPECT_TRUE(IsValidUTF8(safe.GetText(), safe.GetLength())) << byte;
    EXPECT_EQ(safe.View().find_first_of("/\\:*?\"<>|"), std::string_view::npos) << byte;
  }
}

TEST(FileTest, SizeOfAFileIsItsBytes) {
  const ScratchDirectory scratch;
  EXPECT_EQ(scratch.MakeFile("a", "12345").GetSize(), 5);
  EXPECT_EQ(scratch.MakeFile("empty", "").GetSize(), 0);
}

TEST(FileTest, SizePast32BitsIsExact) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("large", "");
  constexpr std::int64_t kSize = (std::int64_t{5} << 30) + 1;
  ASSERT_EQ(::truncate(file.GetPath().GetText(), kSize), 0);
  EXPECT_EQ(file.GetSize(), kSize);
}

TEST(FileTest, SizeOfNothingIsAFailure) {
  const ScratchDirectory scratch;
  EXPECT_EQ(scratch.FileOf("missing").GetSize(), -1);
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_EQ(File(AnsiStr(scratch.GetPath())).GetSize(), -1);
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_EQ(File().GetSize(), -1);
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
}

TEST(FileTest, CreateMakesAnEmptyFileOfOrdinaryMode) {
  const ScratchDirectory scratch;
  const FileMask mask(027);
  const File file = scratch.FileOf("new");
  EXPECT_TRUE(file.Create());
  EXPECT_EQ(file.GetSize(), 0);
  EXPECT_EQ(ModeOf(file.GetPath()), 0640);
}

TEST(FileTest, CreateNeverTouchesAnExistingFile) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("old", "content");
  EXPECT_FALSE(file.Create());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EEXIST));
  EXPECT_EQ(ContentOf(file), "content");
}

TEST(FileTest, CreateDoesNotFollowALink) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::symlink((scratch / "target").c_str(), (scratch / "link").c_str()), 0);
  EXPECT_FALSE(scratch.FileOf("link").Create());
  EXPECT_FALSE(Exists(AnsiStr(scratch / "target")));
}

TEST(FileTest, CreateInAMissingFolderFails) {
  const ScratchDirectory scratch;
  EXPECT_FALSE(scratch.FileOf("missing/new").Create());
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
}

TEST(FileTest, RemoveRemoves) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("old", "content");
  EXPECT_TRUE(file.Remove(/*mayBeMissing=*/false));
  EXPECT_FALSE(Exists(file.GetPath()));
}

TEST(FileTest, RemovingWhatIsMissingFailsUnlessAllowed) {
  const ScratchDirectory scratch;
  EXPECT_FALSE(scratch.FileOf("missing").Remove(/*mayBeMissing=*/false));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_TRUE(scratch.FileOf("missing").Remove(/*mayBeMissing=*/true));
}

TEST(FileTest, RemoveRefusesADirectory) {
  const ScratchDirectory scratch;
  EXPECT_FALSE(File(AnsiStr(scratch.GetPath())).Remove(/*mayBeMissing=*/true));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_TRUE(Exists(AnsiStr(scratch.GetPath())));
}

TEST(FileTest, APathWithANulByteNamesNoFile) {
  const ScratchDirectory scratch;
  const File victim = scratch.MakeFile("a", "content");
  const File file(AnsiStr((scratch / "a") + std::string("\0.txt", 5)));
  EXPECT_FALSE(file.Remove(/*mayBeMissing=*/true));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EINVAL));
  EXPECT_FALSE(file.Create());
  EXPECT_EQ(file.GetSize(), -1);
  EXPECT_FALSE(file.Move(scratch.FileOf("b"), /*keepTarget=*/false));
  EXPECT_FALSE(victim.Move(file, /*keepTarget=*/false));
  EXPECT_EQ(ContentOf(victim), "content");
}

TEST(FileTest, ASuccessLeavesNoError) {
  const ScratchDirectory scratch;
  SetErrorMessage("stale");
  EXPECT_TRUE(scratch.FileOf("new").Create());
  EXPECT_EQ(GetLastError(), 0U);
}

TEST(FileTest, ANumberedNameKeepsItsEnding) {
  const auto numbered = [](const char* path) { return File(AnsiStr(path)).GetNumbered(2).GetPath(); };
  EXPECT_EQ(numbered("a.csv"), "a 2.csv");
  EXPECT_EQ(numbered("/x.y/a"), "/x.y/a 2");
  EXPECT_EQ(numbered("/x/.hidden"), "/x/.hidden 2");
  EXPECT_EQ(numbered("/x/a.b.csv"), "/x/a.b 2.csv");
}

TEST(FileTest, ADirectoryKnowsItsLongestName) {
  const ScratchDirectory scratch;
  const std::uint32_t longest = Directory(AnsiStr(scratch.GetPath())).GetLongestName();
  EXPECT_TRUE(scratch.FileOf(std::string(longest, 'x')).Create());
  EXPECT_LE(longest, 255U);
  EXPECT_EQ(Directory(AnsiStr(scratch / "missing")).GetLongestName(), 255U);
}

}  // namespace
}  // namespace OruGuiBase
