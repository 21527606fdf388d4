#include "stand/recording.h"

#include <fstream>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <thread>

#include "stand/recording_lines.h"
#include "tests/foundation/file_size_limit.h"
#include "tests/stand/folder.h"

namespace CryptStand {
namespace {

using testing::EndsWith;
using testing::StartsWith;

std::string Slurp(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

mode_t ModeOf(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

class RecordingFileTest : public testing::Test {
 protected:
  std::string Path() const { return folder.Path("recording"); }
  void Make(const std::string& text) const { std::ofstream(Path()) << text; }
  bool Open(Recording& recording) { return recording.Open(Path(), start, error); }

  const Folder folder;
  const std::string start = MakeStartLine("http://127.0.0.1:1/", {"http://127.0.0.1:2"});
  std::string error;
};

TEST_F(RecordingFileTest, ContinuesARecording) {
  for (int i = 0; i < 2; ++i) {
    Recording recording;
    ASSERT_TRUE(Open(recording)) << error;
    recording.Write("{}");
  }
  EXPECT_EQ(Slurp(Path()), start + "\n{}\n" + start + "\n{}\n");
}

TEST_F(RecordingFileTest, ContinuesAfterALineThatIsNotWhole) {
  Make(start + "\n{\"numb");
  Recording recording;
  ASSERT_TRUE(Open(recording)) << error;
  EXPECT_EQ(Slurp(Path()), start + "\n{\"numb\n" + start + "\n");
}

TEST_F(RecordingFileTest, ClosesAnEmptyFileToOthers) {
  Make("");
  std::filesystem::permissions(Path(), std::filesystem::perms::all);
  Recording recording;
  ASSERT_TRUE(Open(recording)) << error;
  EXPECT_EQ(ModeOf(Path()), 0600U);
}

TEST_F(RecordingFileTest, RefusesAFileThatAnotherProcessWrites) {
  Recording first;
  ASSERT_TRUE(Open(first)) << error;
  Recording second;
  EXPECT_FALSE(Open(second));
  EXPECT_EQ(error, Path() + " is being written by another process");
  EXPECT_EQ(Slurp(Path()), start + "\n");
}

TEST_F(RecordingFileTest, RefusesAFileWithOtherContents) {
  for (const char* text : {"a letter\n", "\n", "{}\n", R"({"recording":"cryptstand","version":2})"}) {
    Make(text);
    Recording recording;
    EXPECT_FALSE(Open(recording)) << text;
    EXPECT_THAT(error, EndsWith(" is neither empty nor a recording of version 1"));
    EXPECT_EQ(Slurp(Path()), text);
  }
}

TEST_F(RecordingFileTest, RefusesWhatIsNoFile) {
  Recording recording;
  EXPECT_FALSE(recording.Open("/dev/null", start, error));
  EXPECT_THAT(error, StartsWith("/dev/null is neither"));
  Recording other;
  EXPECT_FALSE(other.Open(folder.Path("a/b"), start, error));
  EXPECT_EQ(error, folder.Path("a/b") + ": No such file or directory");
}

TEST_F(RecordingFileTest, KeepsLinesOfSeveralThreadsWhole) {
  Recording recording;
  ASSERT_TRUE(Open(recording)) << error;
  constexpr std::size_t kLines = 200;
  std::vector<std::thread> threads;
  for (char letter = 'a'; letter < 'i'; ++letter) {
    threads.emplace_back([&recording, letter] {
      for (std::size_t i = 0; i < kLines; ++i) recording.Write(std::string(5000, letter));
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::istringstream text(Slurp(Path()));
  std::map<std::string, std::size_t> lines;
  for (std::string line; std::getline(text, line);) ++lines[line];
  EXPECT_EQ(lines.size(), threads.size() + 1);
  for (char letter = 'a'; letter < 'i'; ++letter) EXPECT_EQ(lines[std::string(5000, letter)], kLines);
}

TEST_F(RecordingFileTest, ReportsAWriteFailureOnceAndEnds) {
  Recording recording;
  ASSERT_TRUE(Open(recording)) << error;
  const std::string before = Slurp(Path());
  testing::internal::CaptureStderr();
  {
    const OruGuiBase::FileSizeLimit limit(before.size());
    recording.Write("{}");
    recording.Write("{}");
  }
  recording.Write("{}");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "cryptstand: " + Path() + ": File too large; the recording ends here\n");
  EXPECT_EQ(Slurp(Path()), before);
}

}  // namespace
}  // namespace CryptStand
