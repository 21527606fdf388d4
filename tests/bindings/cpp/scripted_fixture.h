#pragma once

#include <string>

#include "exchange/icryptclienthttp.h"
#include "tests/bindings/cpp/cpp_fixture.h"
#include "tests/bindings/forged_files.h"
#include "tests/support/scripted_services.h"

namespace CppInterface {

/// A client whose transport, a callable, leads to scripted services.
class ScriptedTest : public ClientTest {
 protected:
  static constexpr const char* kScriptedRoom = TestSupport::ForgedFiles::kRoom;

  void SetUp() override {
    options.service = TestSupport::kServiceUrl;
    options.transport = [this](const cryptcli::HttpRequest& request) { return Send(request); };
    MakeClient();
  }
  cryptcli::Result<cryptcli::Report> Open(cryptcli::Policy policy = cryptcli::Policy::Proven) {
    return client->Decrypt(kScriptedRoom, Path("secret"), Path("opened"), {.accept = policy});
  }

  TestSupport::ScriptedServices services;
  TestSupport::ForgedFiles forged{scratch, services};

 private:
  cryptcli::Result<cryptcli::HttpResponse> Send(const cryptcli::HttpRequest& request) {
    OruGuiBase::KVMap headers;
    for (const cryptcli::Header& header : request.headers)
      headers.Put(header.name.c_str(), header.value.c_str());
    OruKalvix::HttpResponse scripted;
    const std::int32_t result = services.http.SendRequest(
        std::string(request.method).c_str(), std::string(request.url).c_str(), headers,
        OruGuiBase::AnsiStr(request.body.data(), static_cast<std::uint32_t>(request.body.size())),
        OruKalvix::HttpOptions(), scripted);
    if (result < 0) return cryptcli::Failure(cryptcli::Status::Unreachable, scripted.errorText.GetText());
    cryptcli::HttpResponse response{.status = scripted.status};
    for (const auto& [name, value] : scripted.headers)
      response.headers.push_back({name.GetText(), value.AsString().GetText()});
    response.body.assign(scripted.body.GetText(), scripted.body.GetLength());
    return response;
  }
};

}  // namespace CppInterface
