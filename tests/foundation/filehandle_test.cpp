#include "foundation/filehandle.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <string>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>

#include "foundation/errorstate.h"
#include "tests/foundation/file_size_limit.h"
#include "tests/foundation/printing.h"
#include "tests/foundation/scratch_directory.h"

namespace OruGuiBase {
namespace {

// Reading at an offset does not change the current position.
TEST(FileReaderTest, ReadsSequentiallyAndAtAnOffset) {
  const ScratchDirectory scratch;
  FileReader reader;
  ASSERT_TRUE(reader.Open(scratch.MakeFile("a", "0123456789")));
  EXPECT_TRUE(reader.IsOpen());
  EXPECT_EQ(reader.GetSize(), 10);
  char buffer[16] = {};
  EXPECT_EQ(reader.Read(buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 4), "0123");
  EXPECT_EQ(reader.ReadAt(8, buffer, 16), 2);
  EXPECT_EQ(std::string(buffer, 2), "89");
  EXPECT_EQ(reader.Read(buffer, 16), 6);
  EXPECT_EQ(std::string(buffer, 6), "456789");
  EXPECT_EQ(reader.Read(buffer, 16), 0);
  EXPECT_EQ(reader.ReadAt(100, buffer, 16), 0);
  EXPECT_TRUE(reader.Close());
  EXPECT_FALSE(reader.IsOpen());
}

TEST(FileReaderTest, ReadsPast32Bits) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("large", "");
  constexpr std::int64_t kPlace = std::int64_t{5} << 30;
  ASSERT_EQ(::truncate(file.GetPath().GetText(), kPlace + 3), 0);
  FileReader reader;
  ASSERT_TRUE(reader.Open(file));
  EXPECT_EQ(reader.GetSize(), kPlace + 3);
  char buffer[16];
  EXPECT_EQ(reader.ReadAt(kPlace, buffer, 16), 3);
}

TEST(FileReaderTest, OpenFailsWithTheSystemsReason) {
  const ScratchDirectory scratch;
  FileReader reader;
  EXPECT_FALSE(reader.Open(scratch.FileOf("missing")));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_FALSE(reader.Open(scratch.FileOf("missing/below")));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_FALSE(reader.Open(File()));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_FALSE(reader.IsOpen());
}

TEST(FileReaderTest, ADirectoryIsNoFile) {
  const ScratchDirectory scratch;
  FileReader reader;
  EXPECT_FALSE(reader.Open(File(AnsiStr(scratch.GetPath()))));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_FALSE(reader.IsOpen());
}

TEST(FileReaderTest, AClosedReaderFails) {
  FileReader reader;
  char buffer[4];
  EXPECT_EQ(reader.Read(buffer, 4), -1);
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EBADF));
  EXPECT_EQ(reader.ReadAt(0, buffer, 4), -1);
  EXPECT_EQ(reader.GetSize(), -1);
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EBADF));
  EXPECT_TRUE(reader.Close());
}

TEST(FileReaderTest, ANegativeOffsetIsAFailure) {
  const ScratchDirectory scratch;
  FileReader reader;
  ASSERT_TRUE(reader.Open(scratch.MakeFile("a", "0123")));
  char buffer[4];
  EXPECT_EQ(reader.ReadAt(-1, buffer, 4), -1);
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EINVAL));
}

TEST(FileReaderTest, OpeningAgainClosesTheFirst) {
  const ScratchDirectory scratch;
  FileReader reader;
  ASSERT_TRUE(reader.Open(scratch.MakeFile("a", "first")));
  ASSERT_TRUE(reader.Open(scratch.MakeFile("b", "second")));
  char buffer[16];
  EXPECT_EQ(reader.Read(buffer, 16), 6);
}

TEST(FileReaderTest, DestructorKeepsTheReasonOfAFailure) {
  const ScratchDirectory scratch;
  {
    FileReader reader;
    ASSERT_TRUE(reader.Open(scratch.MakeFile("a", "content")));
    FileWriter writer;
    ASSERT_TRUE(writer.Open(scratch.FileOf("b")));
    SetErrorMessage("reason");
  }
  EXPECT_EQ(GetSystemErrorText(), "reason");
}

void OnAlarm(int) {}

// Interrupts the process's system calls every millisecond for a scope.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = OnAlarm;
    ::sigaction(SIGALRM, &action, &before_);
    Set(1000);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;
  ~Interruptions() {
    Set(0);
    ::sigaction(SIGALRM, &before_, nullptr);
  }

 private:
  static void Set(suseconds_t period) {
    const itimerval timer{{0, period}, {0, period}};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
  }
  struct sigaction before_ {};
};

TEST(FileReaderTest, SignalsAndShortTransfersDoNotShortenARead) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::mkfifo((scratch / "pipe").c_str(), 0600), 0);
  const File pipe = scratch.FileOf("pipe");
  std::thread source([&pipe] {
    FileWriter writer;
    EXPECT_TRUE(writer.Open(pipe));
    for (int i = 0; i < 10; ++i) {
      EXPECT_TRUE(writer.Write("0123456789", 10));
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  const Interruptions interruptions;
  FileReader reader;
  EXPECT_TRUE(reader.Open(pipe));
  char buffer[200];
  EXPECT_EQ(reader.Read(buffer, sizeof buffer), 100);
  source.join();
}

TEST(FileWriterTest, SignalsAndShortTransfersDoNotShortenAWrite) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::mkfifo((scratch / "pipe").c_str(), 0600), 0);
  const File pipe = scratch.FileOf("pipe");
  // More than a pipe holds, so that the writer waits for the reader.
  const std::string content(300000, 'x');
  std::string received;
  std::thread sink([&pipe, &received] {
    FileReader reader;
    EXPECT_TRUE(reader.Open(pipe));
    char buffer[20000];
    std::int64_t got = 0;
    while ((got = reader.Read(buffer, sizeof buffer)) > 0) {
      received.append(buffer, static_cast<std::size_t>(got));
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  {
    const Interruptions interruptions;
    FileWriter writer;
    EXPECT_TRUE(writer.Open(pipe));
    EXPECT_TRUE(writer.Write(content.data(), static_cast<std::uint32_t>(content.size())));
    EXPECT_TRUE(writer.Close());
    sink.join();
  }
  EXPECT_EQ(received, content);
}

TEST(FileWriterTest, MakesTheFileOrEmptiesIt) {
  const ScratchDirectory scratch;
  const FileMask mask(022);
  FileWriter writer;
  ASSERT_TRUE(writer.Open(scratch.FileOf("new")));
  EXPECT_TRUE(writer.Write("abc", 3));
  EXPECT_TRUE(writer.Write("", 0));
  EXPECT_TRUE(writer.Close());
  EXPECT_EQ(ContentOf(scratch.FileOf("new")), "abc");
  EXPECT_EQ(ModeOf(AnsiStr(scratch / "new")), 0644);
  ASSERT_TRUE(writer.Open(scratch.FileOf("new")));
  EXPECT_TRUE(writer.Close());
  EXPECT_EQ(scratch.FileOf("new").GetSize(), 0);
}

TEST(FileWriterTest, AppendsOnRequest) {
  const ScratchDirectory scratch;
  FileWriter writer;
  ASSERT_TRUE(writer.OpenAppend(scratch.MakeFile("a", "old")));
  EXPECT_TRUE(writer.Write(" new", 4));
  EXPECT_TRUE(writer.Close());
  EXPECT_EQ(ContentOf(scratch.FileOf("a")), "old new");
}

TEST(FileWriterTest, OpenFailsWithTheSystemsReason) {
  const ScratchDirectory scratch;
  FileWriter writer;
  EXPECT_FALSE(writer.Open(scratch.FileOf("missing/a")));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOENT));
  EXPECT_FALSE(writer.OpenAppend(File(AnsiStr(scratch.GetPath()))));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EISDIR));
  EXPECT_FALSE(writer.IsOpen());
}

TEST(FileWriterTest, AFullDiskIsAFailure) {
  FileWriter writer;
  ASSERT_TRUE(writer.Open(File(AnsiStr("/dev/full"))));
  EXPECT_FALSE(writer.Write("abc", 3));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOSPC));
}

TEST(FileWriterTest, ADiskThatFillsUpInMidWriteIsAFailure) {
  const ScratchDirectory scratch;
  FileWriter writer;
  ASSERT_TRUE(writer.Open(scratch.FileOf("a")));
  const FileSizeLimit limit(1000);
  const std::string content(1500, 'x');
  EXPECT_FALSE(writer.Write(content.data(), 1500));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EFBIG));
}

TEST(FileWriterTest, AClosedWriterFails) {
  FileWriter writer;
  EXPECT_FALSE(writer.Write("a", 1));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EBADF));
  EXPECT_FALSE(writer.Write("", 0));
  EXPECT_FALSE(writer.Truncate(0));
  EXPECT_FALSE(writer.Preallocate(10));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EBADF));
  EXPECT_TRUE(writer.Close());
}

TEST(FileWriterTest, PreallocateReservesSpaceWithoutChangingTheSize) {
  const ScratchDirectory scratch;
  const File file = scratch.FileOf("a");
  FileWriter writer;
  ASSERT_TRUE(writer.Open(file));
  EXPECT_TRUE(writer.Preallocate(1 << 20));
  EXPECT_EQ(file.GetSize(), 0);
  EXPECT_TRUE(writer.Write("abc", 3));
  EXPECT_TRUE(writer.Truncate(3));
  EXPECT_TRUE(writer.Close());
  EXPECT_EQ(ContentOf(file), "abc");
  struct stat info {};
  ASSERT_EQ(::stat(file.GetPath().GetText(), &info), 0);
  EXPECT_LT(info.st_blocks * 512, 1 << 20);
}

TEST(FileWriterTest, PreallocateOfMoreThanAFileMayHoldIsAFailure) {
  const ScratchDirectory scratch;
  FileWriter writer;
  ASSERT_TRUE(writer.Open(scratch.FileOf("a")));
  EXPECT_FALSE(writer.Preallocate(INT64_MAX));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EFBIG));
}

TEST(FileWriterTest, PreallocateOfMoreThanTheDiskHoldsIsAFailure) {
  // A file system in memory refuses at once what it can never hold; one on disk would fill up first.
  struct statfs info {};
  if (::statfs("/dev/shm", &info) != 0 || info.f_type != TMPFS_MAGIC || info.f_blocks == 0) {
    GTEST_SKIP() << "/dev/shm is no file system in memory of a fixed size";
  }
  const ScratchDirectory scratch("/dev/shm");
  FileWriter writer;
  ASSERT_TRUE(writer.Open(scratch.FileOf("a")));
  EXPECT_FALSE(writer.Preallocate(static_cast<std::int64_t>(info.f_blocks) * info.f_bsize * 2));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(ENOSPC));
}

TEST(FileWriterTest, PreallocateSucceedsWhereSpaceCannotBeReserved) {
  const ScratchDirectory scratch;
  FileWriter writer;
  ASSERT_TRUE(writer.Open(File(AnsiStr("/dev/null"))));
  EXPECT_TRUE(writer.Preallocate(100));
  EXPECT_TRUE(writer.Preallocate(0));
  EXPECT_TRUE(writer.Preallocate(-1));
}

TEST(FileWriterTest, TruncateFailsWithTheSystemsReason) {
  const ScratchDirectory scratch;
  FileWriter writer;
  ASSERT_TRUE(writer.Open(scratch.FileOf("a")));
  EXPECT_FALSE(writer.Truncate(-1));
  EXPECT_EQ(GetSystemErrorText(), std::strerror(EINVAL));
}

TEST(FileReaderTest, AFileThatIsWrittenMeanwhileHasChanged) {
  const ScratchDirectory scratch;
  const File file = scratch.MakeFile("a", "content");
  FileReader reader;
  ASSERT_TRUE(reader.Open(file));
  EXPECT_TRUE(reader.IsRegular());
  EXPECT_TRUE(reader.IsUnchanged());
  // Longer than a tick of the file system's clock.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  scratch.MakeFile("a", "changed");
  EXPECT_FALSE(reader.IsUnchanged());
}

TEST(FileReaderTest, AFIFOIsNotRegularAndNeverCountsAsChanged) {
  const ScratchDirectory scratch;
  ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0600), 0);
  const int both = ::open((scratch / "fifo").c_str(), O_RDWR);
  FileReader reader;
  ASSERT_TRUE(reader.Open(scratch.FileOf("fifo")));
  EXPECT_FALSE(reader.IsRegular());
  EXPECT_TRUE(reader.IsUnchanged());
  ::close(both);
}

}  // namespace
}  // namespace OruGuiBase
