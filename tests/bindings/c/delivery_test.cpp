#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "tests/bindings/c/environment_fixture.h"

namespace CInterface {
namespace {

using ::testing::HasSubstr;

/// Operations with an event in between: a function of the test runs at each report of progress, and its
/// result says whether the operation continues.
class Delivery : public EnvironmentTest {
 protected:
  void SetUp() override {
    EnvironmentTest::SetUp();
    large_.assign(3'000'000, 'x');
    Protect(large_);
  }
  void AtProgress(std::function<bool()> meanwhile) {
    meanwhile_ = std::move(meanwhile);
    cryptcli_call_set_progress(
        call.get(),
        [](void* context, uint64_t, uint64_t) -> int32_t {
          return static_cast<Delivery*>(context)->meanwhile_() ? 1 : 0;
        },
        this);
  }
  /// The same, once.
  void AtFirstProgress(std::function<void()> meanwhile) {
    AtProgress([done = false, meanwhile]() mutable {
      if (!done) meanwhile();
      return done = true;
    });
  }
  Outcome Rekey() {
    return Call([&](cryptcli_report** report, cryptcli_error** error) {
      return cryptcli_rekey(client.get(), kRoom, Path("secret").c_str(), call.get(), report, error);
    });
  }

  std::string large_;

 private:
  std::function<bool()> meanwhile_;
};

// Half a file would be worse than a whole file that the caller no longer wants.
TEST_F(Delivery, CannotBeCancelledHalfwayThroughADescriptor) {
  const int target = ::open(Path("opened").c_str(), O_WRONLY | O_CREAT, 0600);
  AtProgress([&] { return std::filesystem::file_size(Path("opened")) == 0; });
  const cryptcli_status status = cryptcli_decrypt(client.get(), kRoom, cryptcli_path(Path("secret").c_str()),
                                                  cryptcli_descriptor(target), call.get(), nullptr, nullptr);
  ::close(target);
  EXPECT_EQ(status, CRYPTCLI_OK);
  EXPECT_TRUE(scratch.Read("opened") == large_) << scratch.Read("opened").size();
}

TEST_F(Delivery, CannotBeCancelledHalfwayThroughAFileWithTwoNames) {
  scratch.Make("opened", "as before");
  std::filesystem::create_hard_link(Path("opened"), Path("other name"));
  AtProgress([&] { return scratch.Read("opened") == "as before"; });
  const Outcome outcome = Decrypt("secret", "opened");
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_TRUE(scratch.Read("opened") == large_) << scratch.Read("opened").size();
}

TEST_F(Delivery, DoesNotBeginOnceItIsCancelled) {
  scratch.Make("opened", "");
  AtProgress([] { return false; });
  EXPECT_EQ(Decrypt("secret", "opened").status, CRYPTCLI_CANCELLED);
  EXPECT_EQ(scratch.Read("opened"), "");
}

TEST_F(Delivery, RefusesADescriptorThatCannotBeWritten) {
  const int target = ::open(Path("secret").c_str(), O_RDONLY);
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_decrypt(client.get(), kRoom, cryptcli_path(Path("secret").c_str()),
                            cryptcli_descriptor(target), nullptr, report, error);
  });
  ::close(target);
  EXPECT_EQ(outcome.status, CRYPTCLI_IO) << outcome.Message();
  EXPECT_THAT(outcome.Message(), HasSubstr("Bad file descriptor"));
}

volatile std::sig_atomic_t pipeSignals = 0;

/// Counts the SIGPIPE signals during its lifetime. Without it, the first one would kill the test program.
class PipeSignals {
 public:
  PipeSignals() {
    pipeSignals = 0;
    struct sigaction counting {};
    counting.sa_handler = [](int) { pipeSignals = pipeSignals + 1; };
    ::sigaction(SIGPIPE, &counting, &before_);
  }
  PipeSignals(const PipeSignals&) = delete;
  PipeSignals& operator=(const PipeSignals&) = delete;
  ~PipeSignals() { ::sigaction(SIGPIPE, &before_, nullptr); }

 private:
  struct sigaction before_ {};
};

TEST_F(Delivery, ToAPipeWithoutReaderFailsAndRaisesNoSignal) {
  const PipeSignals counted;
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_decrypt(client.get(), kRoom, cryptcli_path(Path("secret").c_str()),
                            cryptcli_descriptor(ends[1]), nullptr, report, error);
  });
  EXPECT_EQ(outcome.status, CRYPTCLI_IO) << outcome.Message();
  EXPECT_EQ(outcome.Message(), "Could not write descriptor " + std::to_string(ends[1]) + ": Broken pipe");
  EXPECT_EQ(pipeSignals, 0);
  // The caller's own write raises the signal as before.
  EXPECT_EQ(::write(ends[1], "x", 1), -1);
  EXPECT_EQ(pipeSignals, 1);
  ::close(ends[1]);
}

TEST_F(Delivery, ToANamedPipeWithoutReaderFailsAndRaisesNoSignal) {
  const PipeSignals counted;
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  const int reader = ::open(Path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  // The content is larger than a pipe's buffer, so the write blocks until the reader has closed its end.
  std::atomic<bool> hasEnded{false};
  std::thread leaving([&] {
    char byte = 0;
    while (!hasEnded && ::read(reader, &byte, 1) != 1) std::this_thread::yield();
    ::close(reader);
  });
  const Outcome outcome = Decrypt("secret", "pipe");
  hasEnded = true;
  leaving.join();
  EXPECT_EQ(outcome.status, CRYPTCLI_IO) << outcome.Message();
  EXPECT_THAT(outcome.Message(), HasSubstr("Broken pipe"));
  EXPECT_EQ(pipeSignals, 0);
}

/// Content that is larger than a pipe's buffer, and a thread that reads it slowly.
class SlowReader : public Delivery {
 protected:
  void SetUp() override {
    Delivery::SetUp();
    content_.assign(300'000, 'y');
    Protect(content_);
  }
  // Reads a little, lets the pipe fill up, and goes on until the content ends.
  static std::string ReadSlowly(int reader) {
    std::string all;
    std::string part(4'096, '\0');
    ssize_t got = 0;
    while ((got = ::read(reader, part.data(), part.size())) > 0) {
      all.append(part, 0, static_cast<std::size_t>(got));
      std::this_thread::yield();
    }
    return all;
  }

  std::string content_;
};

TEST_F(SlowReader, GetsTheWholeContentThroughADescriptorThatDoesNotWait) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(::fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
  std::string read;
  std::thread reader([&] { read = ReadSlowly(ends[0]); });
  const Outcome outcome = Call([&](cryptcli_report** report, cryptcli_error** error) {
    return cryptcli_decrypt(client.get(), kRoom, cryptcli_path(Path("secret").c_str()),
                            cryptcli_descriptor(ends[1]), nullptr, report, error);
  });
  EXPECT_NE(::fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0);
  ::close(ends[1]);
  reader.join();
  ::close(ends[0]);
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_TRUE(read == content_) << read.size();
}

TEST_F(SlowReader, GetsTheWholeContentThroughANamedPipe) {
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  std::string read;
  std::thread reader([&] {
    const int end = ::open(Path("pipe").c_str(), O_RDONLY);
    read = ReadSlowly(end);
    ::close(end);
  });
  const Outcome outcome = Decrypt("secret", "pipe");
  reader.join();
  EXPECT_EQ(outcome.status, CRYPTCLI_OK) << outcome.Message();
  EXPECT_TRUE(read == content_) << read.size();
}

TEST_F(Delivery, ThatWaitsForAReaderOfANamedPipeCanBeCancelled) {
  Protect("small");
  ASSERT_EQ(::mkfifo(Path("pipe").c_str(), 0600), 0);
  std::promise<void> isOpened;
  std::promise<void> hasEnded;
  std::thread other([&] {
    isOpened.get_future().wait();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    cryptcli_call_cancel(call.get());
    // A wait that does not end must fail the test and not block it.
    if (hasEnded.get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready) return;
    ADD_FAILURE() << "The operation still waits";
    ::close(::open(Path("pipe").c_str(), O_RDONLY | O_NONBLOCK));
  });
  AtFirstProgress([&] { isOpened.set_value(); });
  const Outcome outcome = Decrypt("secret", "pipe");
  hasEnded.set_value();
  other.join();
  EXPECT_EQ(outcome.status, CRYPTCLI_CANCELLED);
  EXPECT_EQ(outcome.Message(), "The operation was cancelled");
}

// The second name would keep the old content: only writing in place changes both, and rekey does not do that.
TEST_F(Delivery, OfRekeyRefusesANameThatWasAddedMeanwhile) {
  const std::string before = scratch.Read("secret");
  AtFirstProgress([&] { std::filesystem::create_hard_link(Path("secret"), Path("other name")); });
  const Outcome outcome = Rekey();
  EXPECT_EQ(outcome.status, CRYPTCLI_IO) << outcome.Message();
  EXPECT_TRUE(scratch.Read("secret") == before);
}

// What another program wrote must not be replaced by the earlier content.
TEST_F(Delivery, OfRekeyKeepsWhatWasWrittenMeanwhile) {
  AtFirstProgress([&] {
    scratch.Make("newer", "newer content");
    std::filesystem::rename(Path("newer"), Path("secret"));
  });
  const Outcome outcome = Rekey();
  EXPECT_EQ(outcome.status, CRYPTCLI_IO) << outcome.Message();
  EXPECT_THAT(outcome.Message(), HasSubstr("another program changed it meanwhile"));
  EXPECT_EQ(scratch.Read("secret"), "newer content");
}

// The new file would get the access that the old one had before the change.
TEST_F(Delivery, OfRekeyRefusesAnAccessThatWasChangedMeanwhile) {
  const std::string before = scratch.Read("secret");
  AtFirstProgress([&] { std::filesystem::permissions(Path("secret"), std::filesystem::perms(0640)); });
  const Outcome outcome = Rekey();
  EXPECT_EQ(outcome.status, CRYPTCLI_IO) << outcome.Message();
  EXPECT_TRUE(scratch.Read("secret") == before);
}

}  // namespace
}  // namespace CInterface
