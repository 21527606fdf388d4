#include "client/dispatch.h"

#include <array>
#include <cstring>

#include "client/result_codes.h"
#include "foundation/format.h"

using OruGuiBase::Val;

namespace OruKalvix {
namespace {

constexpr char kPrefix[] = "Crypt";
constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;

struct MethodName {
  const char* name;
  CryptClient::Method method;
};

constexpr std::array<MethodName, 9> kMethods = {{
    {"ConfigGroup", CryptClient::Method::ConfigGroup},
    {"Reencrypt", CryptClient::Method::Reencrypt},
    {"GetAuditLog", CryptClient::Method::GetAuditLog},
    {"Update", CryptClient::Method::Update},
    {"ImportKey", CryptClient::Method::ImportKey},
    {"DeleteKey", CryptClient::Method::DeleteKey},
    {"SignByKey", CryptClient::Method::SignByKey},
    {"Encrypt", CryptClient::Method::Encrypt},
    {"Decrypt", CryptClient::Method::Decrypt},
}};

}  // namespace

CryptClient::Method CryptClient::GetMethod(const AnsiStr& operation) noexcept {
  const char* name = operation.GetText();
  if (std::strncmp(name, kPrefix, kPrefixLength) == 0) name += kPrefixLength;
  for (const MethodName& known : kMethods) {
    if (std::strcmp(name, known.name) == 0) return known.method;
  }
  return Method::None;
}

std::int32_t CryptClient::PerformOperation(ICryptClientHttp* transport, const AnsiStr& service,
                                           const AnsiStr& auxiliary, const AnsiStr& operation,
                                           const KVMap& arguments, Val& result, AnsiStr& error) noexcept {
  const Method method = GetMethod(operation);
  if (method == Method::None) {
    error = AnsiStr("Unknown crypt client method identifier ") + OruGuiBase::SimpleQuote(operation);
    return kUnknownName;
  }
  KVMap results;
  if (!ExecuteMethod(transport, service, auxiliary, method, arguments, results, error)) {
    result = Val();
    return kFailed;
  }
  result = Val(results);
  return kSuccess;
}

bool CryptClient::ExecuteMethod(ICryptClientHttp* transport, const AnsiStr& service, const AnsiStr& auxiliary,
                                Method method, const KVMap& arguments, KVMap& result,
                                AnsiStr& error) noexcept {
  Dispatcher dispatcher{transport, service, auxiliary, MemberReader(arguments), result, error};
  std::int32_t status = kNotImplemented;
  switch (method) {
    case Method::None:
      break;
    case Method::ConfigGroup:
      status = dispatcher.ConfigGroup();
      break;
    case Method::Reencrypt:
      status = dispatcher.Reencrypt();
      break;
    case Method::GetAuditLog:
      status = dispatcher.GetAuditLog();
      break;
    case Method::Update:
      status = dispatcher.Update();
      break;
    case Method::ImportKey:
      status = dispatcher.ImportKey();
      break;
    case Method::DeleteKey:
      status = dispatcher.DeleteKey();
      break;
    case Method::SignByKey:
      status = dispatcher.SignByKey();
      break;
    case Method::Encrypt:
      status = dispatcher.CreateKey();
      break;
    case Method::Decrypt:
      status = dispatcher.ExportKeys();
      break;
  }
  return status >= 0;
}

CryptClient::Dispatcher::Common CryptClient::Dispatcher::ReadCommon() const noexcept {
  Common common;
  common.keyServers = arguments.List("keyserver");
  common.statusTimeout = arguments.String("statustimeout");
  return common;
}

void CryptClient::Dispatcher::Configure(CryptClient& client, const Common& common) noexcept {
  client.SetKeyServer(common.keyServers);
  client.SetStatusTimeout(common.statusTimeout);
}

std::int32_t CryptClient::Dispatcher::Finish(const CryptClient& client, bool done,
                                             const KVMap& results) noexcept {
  if (!done) {
    error = client.GetErrorMessage();
    return kFailed;
  }
  result = results;
  return kSuccess;
}

}  // namespace OruKalvix
