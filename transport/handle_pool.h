#pragma once

#include <cstddef>
#include <curl/curl.h>
#include <memory>
#include <mutex>
#include <vector>

namespace OruKalvix {

/// Owns idle libcurl handles. Each keeps the connections that it opened, so a handle, and with it a
/// connection, belongs to one thread at a time. Safe for any number of threads; must outlive its leases.
class HandlePool {
 public:
  /// Returns a handle to its pool, which must still exist.
  struct Returner {
    HandlePool* pool = nullptr;
    void operator()(CURL* handle) const noexcept { pool->Return(handle); }
  };
  using Lease = std::unique_ptr<CURL, Returner>;

  explicit HandlePool(std::size_t maxIdle);
  HandlePool(const HandlePool&) = delete;
  HandlePool& operator=(const HandlePool&) = delete;
  ~HandlePool();

  /// The handle used last, whose connections are the newest, or a new one; without any options set. Throws
  /// std::bad_alloc on allocation failure.
  Lease Take();
  /// Initialises libcurl, once in the process.
  static bool InitLibrary() noexcept;

 private:
  void Return(CURL* handle) noexcept;

  const std::size_t maxIdle_;
  std::mutex mutex_;
  std::vector<CURL*> idle_;
};

}  // namespace OruKalvix
