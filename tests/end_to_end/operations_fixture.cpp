// How the tests of named operations build arguments and look at results and servers. Used by
// operations_test.cpp, operations_failures_test.cpp and the tests of the audit log.
#include "tests/end_to_end/operations_fixture.h"

#include <filesystem>
#include <sstream>

using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruKalvix::CryptClient;

namespace TestSupport {
namespace {

constexpr const char* kMessage = "what is signed";

}  // namespace

Val OperationsTest::Texts(const std::vector<std::string>& texts) {
  Array<Val> list;
  for (const std::string& text : texts) list.Append(Text(text));
  return Val(list);
}

KVMap OperationsTest::Object(Members members) {
  KVMap object;
  for (const auto& [name, value] : members) object.Set(name, value);
  return object;
}

Val OperationsTest::Handle(std::string_view id, std::string_view subId) {
  return Val(CryptClient::GetKeyHandle(Ansi(id), Ansi(subId)));
}

Val OperationsTest::Keys(std::initializer_list<std::pair<const char*, std::string>> keys) {
  Array<Val> list;
  for (const auto& [id, data] : keys) list.Append(Val(Object({{"id", Text(id)}, {"data", Text(data)}})));
  return Val(list);
}

Val OperationsTest::KeyServerList() const {
  return Texts(keyServers.empty() ? stand.GetKeyServerUrls() : keyServers);
}

bool OperationsTest::Perform(const char* operation, Members arguments) {
  KVMap all = Object({{"keyserver", KeyServerList()}, {"statustimeout", Text("5")}});
  for (const auto& [name, value] : arguments) all.Set(name, value);
  return PerformWith(operation, all);
}

bool OperationsTest::PerformWith(const char* operation, const KVMap& arguments) {
  OruGuiBase::AnsiStr reason;
  result = Val();
  status = CryptClient::PerformOperation(http.get(), Ansi(stand.GetServiceUrl()), "", operation, arguments,
                                         result, reason);
  error = Str(reason);
  return status == 0;
}

std::string OperationsTest::ResultKey(std::uint32_t index, const char* name) const {
  return Str(result.AsMap().Get("keys").AsArray()[index].AsMap().Get(name).AsString());
}

std::string OperationsTest::KeptKey(const char* member, std::string_view room) const {
  OruKalvix::HttpResponse response;
  const std::string url = stand.GetServiceUrl() + "crypt/key/" + std::string(room);
  EXPECT_GE(http->SendRequest("GET", Ansi(url), KVMap(), "", {}, response), 0);
  EXPECT_EQ(response.status, 200U);
  return Str(Map(response.body.View()).Get(member).AsString());
}

std::vector<std::string> OperationsTest::ResultNames() const {
  std::vector<std::string> names;
  const KVMap members = result.AsMap();
  for (const OruGuiBase::AnsiStr& name : members.GetKeys()) names.push_back(Str(name));
  return names;
}

bool OperationsTest::Import(const std::string& id, const std::string& key, const std::string& password) {
  return Perform(
      "ImportKey",
      {{"group", Text(kGroup)}, {"id", Text(id)}, {"key", Text(key)}, {"password", Text(password)}});
}

bool OperationsTest::Sign(const std::string& id, const std::string& subId) {
  const std::string hash = ToBase64(CryptStand::HashOf(kMessage, EVP_sha512()));
  return Perform("SignByKey", {{"object", Text(kRoom)},
                               {"id", Text(id)},
                               {"subid", Text(subId)},
                               {"algorithm", Text(kAlgorithm)},
                               {"hash", Text(hash)}});
}

bool OperationsTest::IsSignedBy(const CryptStand::KeyPair& key) const {
  return key.Verify(kMessage, FromBase64(Result("signature")), CryptStand::kSHA512);
}

bool AuditLogTest::GetLog(std::string_view group, std::string_view name) {
  return Perform("GetAuditLog", {{"group", Text(group)}, {"groupname", Text(name)}});
}

std::vector<std::string> AuditLogTest::TakeLines() {
  const std::string path = Result("filename");
  std::istringstream log(ReadFile(path));
  std::filesystem::remove(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(log, line);) {
    lines.push_back(line == kHeader ? line : line.substr(line.find(',') + 1));
  }
  return lines;
}

void AuditLogTest::ExpectNoLog() {
  EXPECT_EQ(static_cast<std::uint32_t>(status), 0x80004005U);
  EXPECT_TRUE(result.IsNil());
  EXPECT_THAT(scratch.GetTemporaryNames(), ::testing::IsEmpty());
}

}  // namespace TestSupport
