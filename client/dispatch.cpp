// Operations by name: from a name to a method, from a method to its function, and the frame that all
// functions share. Applications call PerformOperation; the functions themselves are in dispatch_cases.cpp.
#include "client/dispatch.h"

#include <array>
#include <cstring>

#include "client/result_codes.h"
#include "foundation/format.h"

using OruGuiBase::Val;

namespace OruKalvix {
namespace {

// Callers may write "CryptUpdate" for "Update".
constexpr char kPrefix[] = "Crypt";
constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;

}  // namespace

// "Encrypt" and "Decrypt" are operations on room keys here; the file operations of these names have no entry.
constexpr std::array<CryptClient::Dispatcher::Operation, 9> CryptClient::Dispatcher::kOperations = {{
    {"ConfigGroup", Method::ConfigGroup, &Dispatcher::ConfigGroup},
    {"Reencrypt", Method::Reencrypt, &Dispatcher::Reencrypt},
    {"GetAuditLog", Method::GetAuditLog, &Dispatcher::GetAuditLog},
    {"Update", Method::Update, &Dispatcher::Update},
    {"ImportKey", Method::ImportKey, &Dispatcher::ImportKey},
    {"DeleteKey", Method::DeleteKey, &Dispatcher::DeleteKey},
    {"SignByKey", Method::SignByKey, &Dispatcher::SignByKey},
    {"Encrypt", Method::Encrypt, &Dispatcher::CreateKey},
    {"Decrypt", Method::Decrypt, &Dispatcher::ExportKeys},
}};

CryptClient::Method CryptClient::GetMethod(const AnsiStr& operation) noexcept {
  const char* name = operation.GetText();
  if (std::strncmp(name, kPrefix, kPrefixLength) == 0) name += kPrefixLength;
  for (const Dispatcher::Operation& known : Dispatcher::kOperations) {
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
  for (const Dispatcher::Operation& known : Dispatcher::kOperations) {
    if (known.method == method) status = (dispatcher.*known.run)();
  }
  return status >= 0;
}

// Read before anything else in each operation: the trace reports missing arguments in the order of reading.
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

// A failure leaves the caller's result alone: what was done before it does not count as a result.
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
