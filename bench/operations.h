#pragma once

#include <cstdint>
#include <string>

#include "bench/canned_service.h"
#include "foundation/ansistr.h"
#include "foundation/kvmap.h"

namespace Bench {

/// One named operation with its arguments and servers, to be performed many times. For one thread.
class Operation {
 public:
  /// Deletes a key: one command, to the last of `servers` key servers after the others have failed.
  static Operation DeleteKey(std::uint32_t servers, CannedService::Failure failure);
  /// Exports `keys` wrapped keys, one command each, from one key server.
  static Operation ExportKeys(std::uint32_t keys);

  /// Performs it `times` times; stops and returns false at the first failure.
  bool Perform(unsigned times);

 private:
  bool PerformOnce();
  Operation(const char* name, const char* response, std::uint32_t servers);

  OruGuiBase::AnsiStr serviceUrl_{CannedService::kUrl};
  OruGuiBase::AnsiStr name_;
  OruGuiBase::KVMap arguments_;
  CannedService service_;
  std::uint32_t failures_;
  CannedService::Failure failure_ = CannedService::Failure::Probe;
};

/// A type of operation at a size.
struct Case {
  /// "refused" and "dead": deleting a key, which all key servers but the last refuse, or while all but the
  /// last cannot be reached. "decrypt": exporting keys.
  std::string type;
  std::uint32_t size;  ///< key servers, or keys

  bool IsKnown() const { return size > 0 && (type == "refused" || type == "dead" || type == "decrypt"); }
  Operation Make() const;
};

}  // namespace Bench
