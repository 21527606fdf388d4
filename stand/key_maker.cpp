// Generates key pairs before they are needed. Authority starts it when a folder is new, so that all
// processors share the work of the first start, and takes keys from it afterwards.
#include "stand/key_maker.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace CryptStand {
namespace {

// A new folder needs seven keys: more threads than this would make it little faster.
constexpr unsigned kMaxKeyThreads = 4;

}  // namespace

KeyMaker::~KeyMaker() {
  std::vector<std::thread> threads;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ordered_ = 0;
    threads.swap(threads_);
  }
  for (std::thread& thread : threads) thread.join();
}

// A thread ends when nothing is ordered any more, so a later order starts new ones.
void KeyMaker::Start(int count) {
  const std::lock_guard<std::mutex> lock(mutex_);
  ordered_ += count;
  const unsigned processors = std::clamp(std::thread::hardware_concurrency(), 1U, kMaxKeyThreads);
  const auto wanted = std::min<std::size_t>(processors, static_cast<std::size_t>(std::max(count, 0)));
  try {
    for (; working_ < wanted; ++working_) threads_.emplace_back([this] { Work(); });
  } catch (const std::system_error&) {
    // Fewer threads are enough. Without any, the callers of Take() do the work.
    if (working_ == 0) ordered_ = 0;
  }
}

KeyPair KeyMaker::Take() {
  {
    std::unique_lock<std::mutex> lock(mutex_);
    if (keys_.empty() && ordered_ + begun_ > waiting_) {
      ++waiting_;
      made_.wait(lock, [this] { return !keys_.empty() || ordered_ + begun_ == 0; });
      --waiting_;
    }
    if (!keys_.empty()) {
      KeyPair key = std::move(keys_.back());
      keys_.pop_back();
      return key;
    }
  }
  return KeyPair::MakeRSA();
}

void KeyMaker::Work() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (ordered_ > 0) {
    --ordered_;
    ++begun_;
    lock.unlock();
    KeyPair key = KeyPair::MakeRSA();
    lock.lock();
    --begun_;
    if (!key.IsEmpty()) keys_.push_back(std::move(key));
    // All: whoever waits for a key that could not be generated has to see that none comes any more.
    made_.notify_all();
  }
  --working_;
}

}  // namespace CryptStand
