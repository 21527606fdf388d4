#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "stand/key_pair.h"

namespace CryptStand {

/// Generates RSA key pairs on a few threads before they are needed: one takes a tenth of a second and more,
/// and a new folder needs several at once. Owns its threads. Safe for any number of threads.
class KeyMaker {
 public:
  KeyMaker() = default;
  KeyMaker(const KeyMaker&) = delete;
  KeyMaker& operator=(const KeyMaker&) = delete;
  /// Waits for the key pairs that are being generated at this moment; the others are not started.
  ~KeyMaker();

  /// Begins to generate `count` further key pairs, on at most as many threads as there are processors.
  void Start(int count);
  /// A key pair that nobody else gets: the next one of those started, otherwise a new one. Empty if it cannot
  /// be generated.
  KeyPair Take();

 private:
  void Work();

  std::mutex mutex_;
  std::condition_variable made_;
  int ordered_ = 0;                   // to be begun; guarded by mutex_
  int begun_ = 0;                     // being generated; guarded by mutex_
  int waiting_ = 0;                   // callers that wait for one of these; guarded by mutex_
  std::size_t working_ = 0;           // threads that take orders; guarded by mutex_
  std::vector<KeyPair> keys_;         // made and not taken; guarded by mutex_
  std::vector<std::thread> threads_;  // guarded by mutex_
};

}  // namespace CryptStand
