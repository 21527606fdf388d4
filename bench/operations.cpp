// The operations that operation_bench measures, with arguments and responses of realistic size.
#include "bench/operations.h"

#include "client/cryptcli.h"
#include "foundation/format.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace Bench {
namespace {

// About what a wrapped key and a private RSA key of 2048 bits take in base64. Shorter ones would make the
// fixed cost of an operation look larger than it is.
constexpr std::size_t kWrappedKeyLength = 4000;
constexpr std::size_t kPrivateKeyLength = 1700;

constexpr const char* kDeleted =
    R"({"header":{"type":"standardVelmoraHeader"},"payload":{"type":"deleteKeyResponse"}})";

std::string ExportedKey() {
  return R"({"header":{"type":"standardVelmoraHeader"},"payload":{"type":"exportWrappedKeyResponse",)"
         R"("encodedPrivateKey":")" +
         std::string(kPrivateKeyLength, 'k') + "\"}}";
}

Array<Val> KeyServers(std::uint32_t count) {
  Array<Val> servers;
  for (std::uint32_t i = 0; i < count; ++i)
    servers.Append(Val(OruGuiBase::FmtArgs("https://key-server-%u.example:8443/keys", i)));
  return servers;
}

Array<Val> WrappedKeys(std::uint32_t count) {
  Array<Val> keys;
  for (std::uint32_t i = 0; i < count; ++i) {
    KVMap key;
    key.Set("id", OruGuiBase::FmtArgs("key-%u", i));
    key.Set("data", AnsiStr(std::string(kWrappedKeyLength, 'w')));
    keys.Append(Val(key));
  }
  return keys;
}

}  // namespace

// All servers but the last fail, so the sweep visits every one of them.
Operation::Operation(const char* name, const char* response, std::uint32_t servers)
    : name_(name), service_(response), failures_(servers - 1) {
  arguments_.Set("keyserver", Val(KeyServers(servers)));
  arguments_.Set("statustimeout", "5");
}

Operation Operation::DeleteKey(std::uint32_t servers, CannedService::Failure failure) {
  Operation operation("DeleteKey", kDeleted, servers);
  operation.failure_ = failure;
  operation.arguments_.Set("transaction", "transaction");
  operation.arguments_.Set("group", "QOB.1");
  operation.arguments_.Set("key", Val(OruKalvix::CryptClient::GetKeyHandle("integrity", "1")));
  return operation;
}

Operation Operation::ExportKeys(std::uint32_t keys) {
  Operation operation("Decrypt", ExportedKey().c_str(), 1);
  operation.arguments_.Set("room", "room");
  operation.arguments_.Set("seqnr", "1");
  operation.arguments_.Set("keys", Val(WrappedKeys(keys)));
  return operation;
}

bool Operation::Perform(unsigned times) {
  for (unsigned i = 0; i < times; ++i) {
    if (!PerformOnce()) return false;
  }
  return true;
}

bool Operation::PerformOnce() {
  Val result;
  AnsiStr error;
  service_.FailNext(failures_, failure_);
  return OruKalvix::CryptClient::PerformOperation(&service_, serviceUrl_, AnsiStr(), name_, arguments_,
                                                  result, error) == 0;
}

Operation Case::Make() const {
  if (type == "decrypt") return Operation::ExportKeys(size);
  return Operation::DeleteKey(
      size, type == "refused" ? CannedService::Failure::Command : CannedService::Failure::Probe);
}

}  // namespace Bench
