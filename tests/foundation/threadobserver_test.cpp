#include "foundation/threadobserver.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "foundation/errorstate.h"
#include "foundation/file.h"
#include "foundation/filehandle.h"
#include "foundation/trace.h"
#include "tests/foundation/recording_sink.h"
#include "tests/foundation/scratch_directory.h"

namespace OruGuiBase {
namespace {

/// Installs itself as the observer of the calling thread and records its calls. The destructor
/// installs the observer from before again.
class Recorder final : public IThreadObserver {
 public:
  Recorder() : before_(SetThreadObserver(this)) {}
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  ~Recorder() { SetThreadObserver(before_); }

  std::uint32_t GetTraceLevel() const noexcept override { return level; }
  bool WantsBodies() const noexcept override { return wantsBodies; }
  void OnTrace(std::uint32_t, std::uint32_t, const char*, std::uint32_t, const char* text) noexcept override {
    texts.emplace_back(text);
  }
  void OnRead(std::uint64_t bytes) noexcept override { read += bytes; }
  bool IsCancelled() noexcept override { return cancelled; }
  const char* GetTemporaryDirectory() const noexcept override {
    return directory.empty() ? nullptr : directory.c_str();
  }

  std::uint32_t level = 0;
  bool wantsBodies = false;
  std::uint64_t read = 0;
  bool cancelled = false;
  std::string directory;
  std::vector<std::string> texts;

 private:
  IThreadObserver* before_;
};

TEST(ThreadObserverTest, InstallingGivesTheOneBefore) {
  EXPECT_EQ(GetThreadObserver(), nullptr);
  {
    Recorder outer;
    EXPECT_EQ(GetThreadObserver(), &outer);
    {
      const Recorder inner;
      EXPECT_EQ(GetThreadObserver(), &inner);
    }
    EXPECT_EQ(GetThreadObserver(), &outer);
  }
  EXPECT_EQ(GetThreadObserver(), nullptr);
}

TEST(ThreadObserverTest, GetsTracesOfItsLevelWithoutASink) {
  Recorder recorder;
  recorder.level = 2;
  EXPECT_TRUE(OruGuiTrace::IsTraced(2));
  EXPECT_FALSE(OruGuiTrace::IsTraced(1));
  OruGuiTrace::TraceStr(1, 1, "source", 1, "line");
  OruGuiTrace::TraceStr(1, 2, "source", 1, OruGuiTrace::InitTraceContext("body %d", 7));
  OruGuiTrace::FreeTraceContext();
  EXPECT_EQ(recorder.texts, std::vector<std::string>{"body 7"});
}

TEST(ThreadObserverTest, GetsBodiesOnlyWhereItWantsThem) {
  Recorder recorder;
  recorder.level = 2;
  EXPECT_FALSE(OruGuiTrace::IsBodyTraced());
  recorder.wantsBodies = true;
  EXPECT_TRUE(OruGuiTrace::IsBodyTraced());
  recorder.level = 4;
  EXPECT_FALSE(OruGuiTrace::IsBodyTraced());
  const RecordingSink sink(2);
  EXPECT_TRUE(OruGuiTrace::IsBodyTraced());
}

TEST(ThreadObserverTest, LevelZeroTracesNothing) {
  const Recorder recorder;
  EXPECT_FALSE(OruGuiTrace::IsTraced(4));
}

TEST(ThreadObserverTest, StandsBesideTheSinkOfTheProcess) {
  RecordingSink sink(4);
  Recorder recorder;
  recorder.level = 2;
  OruGuiTrace::TraceStr(1, 2, "source", 1, "body");
  OruGuiTrace::TraceMsg(1, 4, "source", 1, "error");
  EXPECT_EQ(sink.events.size(), 1U);
  EXPECT_EQ(recorder.texts, (std::vector<std::string>{"body", "error"}));
}

TEST(ThreadObserverTest, SeesItsOwnThreadAlone) {
  Recorder recorder;
  recorder.level = 1;
  std::thread([] {
    EXPECT_EQ(GetThreadObserver(), nullptr);
    OruGuiTrace::TraceMsg(1, 4, "source", 1, "elsewhere");
  }).join();
  EXPECT_TRUE(recorder.texts.empty());
}

TEST(ThreadObserverTest, CountsTheBytesThatAreRead) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("file", "0123456789");
  FileReader reader;
  ASSERT_TRUE(reader.Open(file));
  Recorder recorder;
  char buffer[8];
  EXPECT_EQ(reader.Read(buffer, 8), 8);
  EXPECT_EQ(reader.Read(buffer, 8), 2);
  EXPECT_EQ(reader.Read(buffer, 8), 0);
  EXPECT_EQ(reader.ReadAt(4, buffer, 3), 3);
  EXPECT_EQ(recorder.read, 13U);
}

TEST(ThreadObserverTest, CancellingFailsReadingAndWriting) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("file", "content");
  FileReader reader;
  FileWriter writer;
  ASSERT_TRUE(reader.Open(file));
  ASSERT_TRUE(writer.Open(scratch.FileOf("target")));
  Recorder recorder;
  recorder.cancelled = true;
  char buffer[8];
  EXPECT_EQ(reader.Read(buffer, 8), -1);
  EXPECT_EQ(GetLastError(), static_cast<std::uint32_t>(ECANCELED));
  EXPECT_EQ(reader.ReadAt(0, buffer, 1), -1);
  EXPECT_FALSE(writer.Write("x", 1));
  EXPECT_EQ(GetLastError(), static_cast<std::uint32_t>(ECANCELED));
  EXPECT_EQ(recorder.read, 0U);
}

TEST(ThreadObserverTest, ChoosesTheTemporaryDirectory) {
  const ScratchDirectory scratch;
  const ScratchDirectory other;
  Recorder recorder;
  recorder.directory = scratch.GetPath();
  TempFile file;
  file.Take(File(FileType::Temporary, "name", /*isPrivate=*/true));
  EXPECT_TRUE(file.GetPath().View().starts_with(scratch.GetPath())) << file.GetPath().GetText();
}

}  // namespace
}  // namespace OruGuiBase
