#include "tests/interop/command.h"

#include <cstdio>
#include <sys/wait.h>

using OruGuiBase::KVMap;
using OruKalvix::HttpResponse;

namespace TestSupport {
namespace {

// PEM of base64 DER, for software that reads nothing else.
std::string ToPem(const char* label, const std::string& text) {
  if (text.find("-----BEGIN") != std::string::npos) return text;
  std::string pem = std::string("-----BEGIN ") + label + "-----\n";
  for (std::size_t i = 0; i < text.size(); i += 64) pem += text.substr(i, 64) + "\n";
  return pem + "-----END " + label + "-----\n";
}

}  // namespace

CommandResult RunCommand(const std::filesystem::path& folder, const std::string& command) {
  CommandResult result;
  std::FILE* pipe =
      ::popen(("cd '" + folder.string() + "' && { " + command + "; } 2>&1 </dev/null").c_str(), "r");
  if (pipe == nullptr) return result;
  char chunk[4096];
  for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;)
    result.output.append(chunk, got);
  const int status = ::pclose(pipe);
  if (WIFEXITED(status)) result.code = WEXITSTATUS(status);
  return result;
}

void InteropTest::SetUp() {
  EndToEndTest::SetUp();
  Protect("the first file makes the room's key");
  ASSERT_TRUE(stand.SetRoomOptions(kRoom, CryptStand::RoomOptions{.plainKey = true}));
  const KVMap response = Map(Get(stand.GetServiceUrl() + "crypt/key/" + kRoom));
  scratch.Make("room.key", ToPem("PRIVATE KEY", Str(response.Get("plain").AsString())));
  scratch.Make("room.crt", ToPem("CERTIFICATE", Str(response.Get("certificate").AsString())));
  const std::string server = stand.GetKeyServerUrls().front();
  const std::string slash = server.ends_with('/') ? "" : "/";
  scratch.Make("lists.pem", Get(server + slash + "certstore") + Get(server + slash + "truststore"));
}

void InteropTest::Run(const std::string& command) {
  const CommandResult result = RunCommand(scratch.Path("."), command);
  ASSERT_EQ(result.code, 0) << command << "\n" << result.output;
}

std::string InteropTest::Get(const std::string& url) {
  HttpResponse response;
  http->SendRequest("GET", Ansi(url), KVMap(), "", {}, response);
  EXPECT_EQ(response.status, 200U) << url;
  return Str(response.body);
}

}  // namespace TestSupport
