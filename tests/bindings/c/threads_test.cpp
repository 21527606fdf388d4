#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/bindings/c/environment_fixture.h"

// One client on many threads at once. With ThreadSanitizer, this finds data that they share without a lock.
namespace CInterface {
namespace {

constexpr int kThreads = 16;
constexpr int kRounds = 2;

/// What one thread does with the client: every operation on files of its own, with a call of its own.
class Worker {
 public:
  Worker(const cryptcli_client* client, const std::string& path)
      : client_(client), plain_(path + ".plain"), secret_(path + ".secret"), opened_(path + ".opened") {
    cryptcli_call_set_progress(
        call_.get(),
        [](void* context, uint64_t done, uint64_t total) -> int32_t {
          EXPECT_LE(done, total);
          static_cast<Worker*>(context)->progress_ += 1;
          return 1;
        },
        this);
  }

  /// Runs each operation once; true if all succeeded.
  bool RunAll() {
    const cryptcli_file secret = cryptcli_path(secret_.c_str());
    const char* const room = "demo";
    return Take(cryptcli_encrypt(client_, room, cryptcli_path(plain_.c_str()), secret, call_.get(), nullptr,
                                 nullptr)) &&
           Take(cryptcli_decrypt(client_, room, secret, cryptcli_path(opened_.c_str()), call_.get(), nullptr,
                                 nullptr)) &&
           Take(cryptcli_verify(client_, room, secret, call_.get(), nullptr, nullptr)) &&
           Take(cryptcli_room(client_, room, call_.get(), nullptr, nullptr)) &&
           Take(cryptcli_inspect(secret, nullptr, nullptr));
  }
  void Cancel() { cryptcli_call_cancel(call_.get()); }
  unsigned GetProgress() const { return progress_; }
  unsigned GetCancelled() const { return cancelled_; }

 private:
  // The only failure that is allowed is a cancellation.
  bool Take(cryptcli_status status) {
    EXPECT_TRUE(status == CRYPTCLI_OK || status == CRYPTCLI_CANCELLED) << cryptcli_status_name(status);
    cancelled_ += status == CRYPTCLI_CANCELLED ? 1 : 0;
    return status == CRYPTCLI_OK;
  }

  const cryptcli_client* client_;
  std::string plain_;
  std::string secret_;
  std::string opened_;
  Owned<cryptcli_call> call_{cryptcli_call_new()};
  unsigned progress_ = 0;
  unsigned cancelled_ = 0;
};

class Threads : public EnvironmentTest {
 protected:
  void SetUp() override {
    EnvironmentTest::SetUp();
    cryptcli_options_set_log(
        options.get(), CRYPTCLI_LOG_DEBUG,
        [](void* context, cryptcli_log_level, const char*) { ++static_cast<Threads*>(context)->messages; },
        this, 0);
    MakeClient();
    Protect("the room has a key now");
    for (int i = 0; i < kThreads; ++i) {
      const std::string name = "file" + std::to_string(i);
      scratch.Make(name + ".plain", name + std::string(100'000, 'x'));
      workers.push_back(std::make_unique<Worker>(client.get(), Path(name)));
    }
  }
  // Each worker on a thread of its own.
  template <class Work>
  void RunOnThreads(Work work) {
    std::vector<std::thread> threads;
    for (const auto& worker : workers) threads.emplace_back([&worker, work] { work(*worker); });
    for (std::thread& thread : threads) thread.join();
  }

  std::atomic<unsigned> messages{0};
  std::vector<std::unique_ptr<Worker>> workers;
};

TEST_F(Threads, SixteenUseOneClientAtOnce) {
  RunOnThreads([](Worker& worker) {
    for (int round = 0; round < kRounds; ++round) EXPECT_TRUE(worker.RunAll());
  });
  for (int i = 0; i < kThreads; ++i) {
    const std::string name = "file" + std::to_string(i);
    EXPECT_GT(workers[static_cast<std::size_t>(i)]->GetProgress(), 0U);
    EXPECT_EQ(scratch.Read(name + ".opened"), scratch.Read(name + ".plain"));
  }
  EXPECT_GT(messages, 0U);
}

TEST_F(Threads, AnotherThreadCancelsWhileSixteenWork) {
  std::atomic<bool> done{false};
  std::thread canceller([&] {
    while (!done) {
      for (const auto& worker : workers) worker->Cancel();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  RunOnThreads([](Worker& worker) {
    for (int round = 0; round < kRounds; ++round) worker.RunAll();
  });
  done = true;
  canceller.join();
  unsigned cancelled = 0;
  for (const auto& worker : workers) cancelled += worker->GetCancelled();
  EXPECT_GT(cancelled, 0U);
  // A cancellation that came too late cancels the next operation, and no other.
  RunOnThreads([](Worker& worker) { EXPECT_TRUE(worker.RunAll() || worker.RunAll()); });
}

}  // namespace
}  // namespace CInterface
