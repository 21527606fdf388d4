#include "transport/handle_pool.h"

#include <new>

namespace OruKalvix {

HandlePool::HandlePool(std::size_t maxIdle) : maxIdle_(maxIdle) {
  idle_.reserve(maxIdle);  // so that Return() cannot throw
}

HandlePool::~HandlePool() {
  for (CURL* handle : idle_) curl_easy_cleanup(handle);
}

bool HandlePool::InitLibrary() noexcept {
  // Never cleaned up: the process may use libcurl elsewhere, and the library may be unloaded and loaded
  // again.
  static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
  return result == CURLE_OK;
}

HandlePool::Lease HandlePool::Take() {
  CURL* handle = nullptr;
  {
    const std::lock_guard lock(mutex_);
    if (!idle_.empty()) {
      handle = idle_.back();
      idle_.pop_back();
    }
  }
  // Outside the lock: making a handle takes time that other threads need not wait for.
  if (handle == nullptr) handle = curl_easy_init();
  if (handle == nullptr) throw std::bad_alloc();
  return Lease(handle, Returner{this});
}

void HandlePool::Return(CURL* handle) noexcept {
  // Removes all options, which point into an exchange that ends now; connections stay open.
  curl_easy_reset(handle);
  {
    const std::lock_guard lock(mutex_);
    if (idle_.size() < maxIdle_) {
      idle_.push_back(handle);  // within the reserved capacity: cannot throw
      return;
    }
  }
  curl_easy_cleanup(handle);
}

}  // namespace OruKalvix
