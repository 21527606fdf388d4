#pragma once

#include <string>
#include <vector>

#include "stand/cert_maker.h"
#include "tests/tools/command_fixture.h"

namespace TestSupport {

/// The commands that administer keys, against local servers.
class OperationTest : public CommandTest {
 protected:
  static constexpr const char* kGroup = "QOB.1.100.1";

  /// A command line with the service, and one with the key servers too.
  std::vector<std::string> WithService(const std::string& command,
                                       const std::vector<std::string>& further) const {
    std::vector<std::string> all{command, "--service", stand_.GetServiceUrl()};
    all.insert(all.end(), further.begin(), further.end());
    return all;
  }
  std::vector<std::string> WithServers(const std::string& command,
                                       const std::vector<std::string>& further) const {
    std::vector<std::string> all = WithService(command, further);
    for (const std::string& url : stand_.GetKeyServerUrls()) all.insert(all.end(), {"--key-server", url});
    all.insert(all.end(), {"--status-timeout", "5"});
    return all;
  }

  /// The arguments that every operation has, and the given ones.
  OruGuiBase::KVMap CallArguments(OruGuiBase::KVMap further) const {
    OruGuiBase::Array<OruGuiBase::Val> servers;
    for (const std::string& url : stand_.GetKeyServerUrls()) servers.Append(OruGuiBase::Val(Ansi(url)));
    further.Set("keyserver", OruGuiBase::Val(servers));
    further.Set("statustimeout", "5");
    return further;
  }
  Finished Call(const std::string& operation, const OruGuiBase::KVMap& further,
                const std::vector<std::string>& options = {}) const {
    scratch_.Make("args.json", JsonText(CallArguments(further)));
    std::vector<std::string> all = WithService("call", {operation, "--args", Path("args.json")});
    all.insert(all.end(), options.begin(), options.end());
    return RunCommand(all);
  }

  /// The same fault on all key servers, for as long as the test lasts.
  void SetFaults(const CryptStand::Fault& fault) {
    for (int server = 0; server < 3; ++server) ASSERT_TRUE(stand_.SetFault(server, fault));
  }
  static OruGuiBase::KVMap Texts(std::initializer_list<std::pair<const char*, std::string>> members) {
    OruGuiBase::KVMap map;
    for (const auto& [name, text] : members) map.Set(name, Ansi(text));
    return map;
  }
};

}  // namespace TestSupport
