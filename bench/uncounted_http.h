#pragma once

#include "exchange/icryptclienthttp.h"

namespace Bench {

/// A transport without a network whose lifetime its owner decides: references are not counted.
class UncountedHttp : public OruKalvix::ICryptClientHttp {
 public:
  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }

 protected:
  UncountedHttp() = default;
  UncountedHttp(const UncountedHttp&) = default;
  UncountedHttp& operator=(const UncountedHttp&) = default;
  ~UncountedHttp() = default;
};

}  // namespace Bench
