#pragma once

#include <array>
#include <cstdint>

#include "client/cryptcli.h"
#include "exchange/member_reader.h"

namespace OruKalvix {

/// One call of a named operation. Each operation reads its arguments in its own order, makes a client of its
/// own, calls one or two public members and packs the results; what they share is the frame around them.
/// Lives for that call only, and refers to what the caller of ExecuteMethod passed in.
struct CryptClient::Dispatcher {
  /// A named operation.
  struct Operation {
    const char* name;  ///< without the prefix "Crypt"
    Method method;
    std::int32_t (Dispatcher::*run)() noexcept;
  };
  /// All of them: the one place that lists their names, methods and functions.
  static const std::array<Operation, 9> kOperations;

  ICryptClientHttp* http;
  const AnsiStr& serviceUrl;
  const AnsiStr& auxiliaryName;
  MemberReader arguments;  ///< what is missing or has the wrong type reads as empty
  KVMap& result;
  AnsiStr& error;

  /// What every case reads first.
  struct Common {
    ValArray keyServers;
    AnsiStr statusTimeout;
  };

  // Each returns the status: 0, or kFailed with the reason in `error`.
  std::int32_t ConfigGroup() noexcept;
  std::int32_t Reencrypt() noexcept;
  std::int32_t GetAuditLog() noexcept;
  std::int32_t Update() noexcept;
  std::int32_t ImportKey() noexcept;
  std::int32_t DeleteKey() noexcept;
  std::int32_t SignByKey() noexcept;
  std::int32_t CreateKey() noexcept;
  std::int32_t ExportKeys() noexcept;

  Common ReadCommon() const noexcept;
  static void Configure(CryptClient& client, const Common& common) noexcept;
  /// The end of a case: hands the results out, or the client's reason for having none.
  std::int32_t Finish(const CryptClient& client, bool done, const KVMap& results) noexcept;
};

}  // namespace OruKalvix
