// Performs a named operation through the C interface with arguments that the input chose or changed, while
// the input also chooses the responses of all servers.
#include <array>
#include <cryptcli/cryptcli.h>
#include <cstdint>
#include <filesystem>
#include <string>

#include "fuzz/support/c_client.h"
#include "fuzz/support/hostile_http.h"
#include "fuzz/support/input.h"
#include "fuzz/support/mutation.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"
#include "fuzz/support/text.h"
#include "tests/support/test_peer.h"

namespace {

using Fuzz::Require;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

struct Sample {
  const char* operation;
  const char* arguments;
};

constexpr const char* kHash =
    R"("hash":"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4OTo7PD0+Pw==")";

// Complete arguments of each operation, without key servers and without their end.
constexpr std::array kSamples = {
    Sample{"ConfigGroup", R"("group":"QOB.group-1","groupname":"g","ownergroup":"QOB.o","authncrlurls":[])"},
    Sample{"Reencrypt", R"("group":"QOB.group-1","enccert":"certificate")"},
    Sample{"GetAuditLog", R"("group":"QOB.group-1","groupname":"../g")"},
    Sample{"Update", R"("room":"room 1","certificates":["m"],"newkey":true,"keys":[{"id":"1","data":"w"}])"},
    Sample{"ImportKey", R"("group":"QOB.group-1","id":"i","key":"encoded","password":"secret")"},
    Sample{"DeleteKey", R"("group":"QOB.group-1","key":{"type":"handle","id":"integrity","subId":"7"})"},
    Sample{"SignByKey", R"("object":"room 1","id":"integrity","algorithm":"RSASSA-PKCS1-v1_5-SHA-512",)"},
    Sample{"Encrypt", R"("room":"room 1","seqnr":"42","certificates":["member-1"])"},
    Sample{"Decrypt", R"("room":"room 1","keys":[{"id":"1","data":"wrapped-1"}])"}};

std::string Complete(const Sample& sample) {
  std::string text =
      std::string(R"({"keyserver":["https://one.example","https://two.example/"],)") + sample.arguments;
  if (text.ends_with(',')) text += kHash;
  return text + "}";
}

std::string MakeArguments(const Sample& sample, Fuzz::Input& input) {
  const std::uint32_t choice = input.Below(4);
  std::string text = Complete(sample);
  if (choice == 1) text = Fuzz::JsonText(Fuzz::MutateJson(Fuzz::ParseJson(text), input));
  if (choice == 2) Fuzz::Mutate(text, input);
  return choice == 3 ? input.Text() : text;
}

// The log is delivered to the temporary directory, where the caller has to remove it.
void RemoveAuditLog(const cryptcli_report* report) {
  const KVMap object = Fuzz::ParseJson(cryptcli_report_json(report)).AsMap();
  if (object.Contains("filename")) std::filesystem::remove(Fuzz::Str(object.Get("filename").AsString()));
}

bool IsRefusedArgument(const std::string& message) {
  for (const char* start : {"The arguments are no JSON", "Unknown argument ", "Missing argument ",
                            "Argument \"", "Unknown operation "}) {
    if (message.starts_with(start)) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Fuzz::Scratch& scratch = Fuzz::Scratch::Get();
  const Sample& sample = kSamples[input.Below(static_cast<std::uint32_t>(kSamples.size()))];
  const std::uint32_t form = input.Below(4);
  const std::string operation = form == 3   ? input.Text()
                                : form == 2 ? std::string("Crypt") + sample.operation
                                            : sample.operation;
  const std::string arguments = MakeArguments(sample, input);
  // The rotation of the process would otherwise depend on the inputs before this one.
  *OruKalvix::CryptClientTestPeer::GetKeyServerBase() = 0;
  {
    Fuzz::HostileHttp http(input);
    const Fuzz::CClient client(http);
    Fuzz::CResult result;
    const cryptcli_status status = cryptcli_perform(client.Get(), operation.c_str(), arguments.c_str(),
                                                    nullptr, &result.report, &result.error);
    result.Check(status);
    if (status == CRYPTCLI_OK) RemoveAuditLog(result.report);
    if (status == CRYPTCLI_INVALID_ARGUMENT && IsRefusedArgument(result.Message()))
      Require(client.GetExchanges() == 0, "wrong arguments are refused before anything is sent");
  }
  Require(scratch.IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
