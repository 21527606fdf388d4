#pragma once

#include <cryptcli/cryptcli.h>
#include <cstdint>
#include <string>

#include "fuzz/support/hostile_http.h"

// What the targets of the C interface share.
namespace Fuzz {

/// A client of the C interface whose transport is a callback that leads to a HostileHttp. Owns the client;
/// `http` must outlive it.
class CClient {
 public:
  explicit CClient(HostileHttp& http);
  CClient(const CClient&) = delete;
  CClient& operator=(const CClient&) = delete;
  ~CClient();

  const cryptcli_client* Get() const { return client_; }
  std::uint32_t GetExchanges() const { return exchanges_; }

 private:
  static std::int32_t Send(void* context, const cryptcli_request* request, cryptcli_response* response);

  HostileHttp& http_;
  cryptcli_client* client_ = nullptr;
  std::uint32_t exchanges_ = 0;
};

/// Owns what a function handed out. Check() demands what holds for all of it: an error comes with each
/// failure and with no success; the JSON of both is an object that agrees with the getters; every string is
/// UTF-8.
class CResult {
 public:
  CResult() = default;
  CResult(const CResult&) = delete;
  CResult& operator=(const CResult&) = delete;
  ~CResult();

  void Check(cryptcli_status status) const;
  std::string Message() const { return cryptcli_error_message(error); }

  cryptcli_report* report = nullptr;
  cryptcli_error* error = nullptr;
};

}  // namespace Fuzz
