#pragma once

#include <cstdlib>
#include <unistd.h>

namespace TestSupport {

/// Becomes the user nobody for a scope, because root may read and write anything, whatever the permissions.
/// Does nothing for other users.
class AsNobody {
 public:
  static constexpr uid_t kNobody = 65534;

  AsNobody() : changed_(::geteuid() == 0 && ::seteuid(kNobody) == 0) {}
  AsNobody(const AsNobody&) = delete;
  AsNobody& operator=(const AsNobody&) = delete;
  ~AsNobody() {
    if (changed_ && ::seteuid(0) != 0) std::abort();
  }

 private:
  bool changed_;
};

}  // namespace TestSupport
