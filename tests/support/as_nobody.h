#pragma once

#include <cstdlib>
#include <unistd.h>

namespace TestSupport {

/// Root may read and write anything, so what permissions forbid is tried as somebody else, for a scope. Who
/// is not root stays who he is.
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
