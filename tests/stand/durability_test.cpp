#include <algorithm>
#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "tests/stand/admin_peer.h"
#include "tests/stand/folder.h"
#include "tests/stand/program.h"

namespace CryptStand {
namespace {

// An administrator of a cryptstand in another process, and what that has answered.
class Administrator : public AdminTest {
 public:
  explicit Administrator(const KVMap& urls)
      : service_(ReadText(urls, "service").value_or("")),
        server_(ReadTexts(urls, "keyservers").value_or(std::vector<std::string>{""}).front()) {}

  /// One command; its audit record is written before the response.
  Reply Run(const KVMap& payload, const std::string& id, const KVMap* key = nullptr) {
    const std::string type = ReadText(payload, "type").value_or("");
    KVMap request = Object("keyserver", server_.c_str(), "operation", type.c_str());
    if (key != nullptr) request.Set("key", Val(*key));
    const Reply token = Send(service_ + "crypt/authztoken/" + id, request, "");
    return Send(server_ + "/rest/json", Object("header", Header(), "payload", payload),
                token.Text("authztoken"));
  }
  bool AddGroup(const std::string& group) { return IsDone(Run(ConfigPayload(group), group)); }
  bool ImportOneKey(const std::string& pem) { return IsDone(Run(ImportPayload(pem), kGroup)); }
  bool HasGroup(const std::string& group) {
    const KVMap request = Object("keyserver", server_.c_str(), "operation", "reencryptRequest");
    return Send(service_ + "crypt/authztoken/" + group, request, "").status == 200;
  }
  bool HasImportedKey(int subId) {
    const KVMap handle = Handle(std::to_string(subId), "seal");
    return Run(SignWith(std::to_string(subId)), kGroup, &handle).Type() == "signResponse";
  }
  std::string AuditLog(const std::string& group) {
    return Run(Object("type", "getAuditLogRequest", "groupId", group.c_str()), group).body;
  }

 private:
  void TestBody() override {}
  static bool IsDone(const Reply& reply) { return reply.status == 200 && reply.Type().ends_with("Response"); }
  Reply Send(const std::string& url, const KVMap& body, const std::string& token) {
    return peer_.Send("POST", url, WriteObject(body),
                      {{"Content-Type", "text/json"}, {"X-SEC-AUTHZTOKEN", token}});
  }

  std::string service_;
  std::string server_;
  Peer peer_;
};

// What was answered over all lives of the servers.
struct Answered {
  std::vector<std::string> groups;
  int keys = 0;  // they are numbered from 1 on
};

void WriteUntilKilled(const KVMap& urls, const std::string& prefix, const std::string& pem,
                      Answered& answered) {
  Administrator administrator(urls);
  for (int i = 0;; ++i) {
    const std::string group = prefix + std::to_string(i);
    if (!administrator.AddGroup(group)) return;
    answered.groups.push_back(group);
    if (!administrator.ImportOneKey(pem)) return;
    ++answered.keys;
  }
}

TEST(DurabilityTest, KeepsWhatItAnsweredWhenItIsKilled) {
  constexpr int kRounds = 4;
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const Folder folder;
  const std::string file = folder.Path("urls.json");
  const std::string pem = KeyPair::MakeRSA().ToPEM();
  Answered answered;
  for (int round = 0; round <= kRounds; ++round) {
    std::filesystem::remove(file);
    Program program(folder, {"--dir", folder.Path("state"), "--key-servers", "1", "--url-file", file});
    const KVMap urls = WaitForUrls(file);
    ASSERT_NE(ReadText(urls, "service"), std::nullopt) << program.Error();
    Administrator administrator(urls);
    for (const std::string& group : answered.groups) {
      EXPECT_TRUE(administrator.HasGroup(group)) << group;
      EXPECT_THAT(administrator.AuditLog(group), testing::HasSubstr(",configGroupRequest,,,ok\n")) << group;
    }
    // Each end may have skipped a number, or have stored a key that was not answered.
    int keys = 0;
    for (int subId = 1; subId <= answered.keys + round; ++subId)
      keys += administrator.HasImportedKey(subId) ? 1 : 0;
    EXPECT_GE(keys, answered.keys);
    if (round == kRounds) break;
    std::thread writer(WriteUntilKilled, std::cref(urls), "g" + std::to_string(round) + "-", std::cref(pem),
                       std::ref(answered));
    std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 200));
    EXPECT_EQ(program.Stop(SIGKILL), -SIGKILL);
    writer.join();
  }
  EXPECT_FALSE(answered.groups.empty());
}

}  // namespace
}  // namespace CryptStand
