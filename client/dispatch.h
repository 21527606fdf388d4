#pragma once

#include "client/cryptcli.h"
#include "exchange/member_reader.h"

namespace OruKalvix {

/// The cases behind ExecuteMethod. Each reads its arguments in its own order, makes a client of its own,
/// calls one or two public operations and packs the results; what they share is the frame around them.
struct CryptClient::Dispatcher {
  ICryptClientHttp* http;
  const AnsiStr& serviceUrl;
  const AnsiStr& auxiliaryName;
  MemberReader
      arguments;  ///< a missing or ill-typed one reads as empty: the operation decides what that means
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
