#pragma once

#include <string>

#include "exchange/icryptclienthttp.h"
#include "tests/bindings/c/c_fixture.h"
#include "tests/bindings/forged_files.h"
#include "tests/support/scripted_services.h"

namespace CInterface {

/// A client whose transport, a callback, leads to scripted services.
class ScriptedTest : public ClientTest {
 protected:
  static constexpr const char* kScriptedRoom = TestSupport::ForgedFiles::kRoom;

  void SetUp() override {
    ASSERT_EQ(cryptcli_options_set_service(options.get(), TestSupport::kServiceUrl, nullptr), CRYPTCLI_OK);
    cryptcli_options_set_transport(options.get(), &ScriptedTest::Send, this);
    MakeClient();
  }

  Outcome Open() { return Decrypt("secret", "opened", kScriptedRoom); }

  TestSupport::ScriptedServices services;
  TestSupport::ForgedFiles forged{scratch, services};

 protected:
  /// How an exchange ended: with a response if `result` is not negative.
  struct ScriptedExchange {
    std::int32_t result = 0;
    OruKalvix::HttpResponse response{};
  };
  /// Sends the request to the scripted services.
  ScriptedExchange Ask(const cryptcli_request* request) {
    OruGuiBase::KVMap headers;
    for (std::size_t i = 0; i < cryptcli_request_header_count(request); ++i) {
      headers.Put(cryptcli_request_header_name(request, i), cryptcli_request_header_value(request, i));
    }
    std::size_t size = 0;
    const auto* body = static_cast<const char*>(cryptcli_request_body(request, &size));
    ScriptedExchange exchange;
    exchange.result =
        services.http.SendRequest(cryptcli_request_method(request), cryptcli_request_url(request), headers,
                                  OruGuiBase::AnsiStr(body, static_cast<std::uint32_t>(size)),
                                  OruKalvix::HttpOptions(), exchange.response);
    return exchange;
  }
  /// Gives their response to the library.
  static std::int32_t Fill(const ScriptedExchange& exchange, cryptcli_response* response) {
    const OruKalvix::HttpResponse& given = exchange.response;
    if (exchange.result < 0) {
      cryptcli_response_set_error(response, given.errorText.GetText());
      return -1;
    }
    cryptcli_response_set_status(response, given.status);
    for (const auto& [name, value] : given.headers)
      cryptcli_response_add_header(response, name.GetText(), value.AsString().GetText());
    return cryptcli_response_append_body(response, given.body.GetText(), given.body.GetLength());
  }

 private:
  static std::int32_t Send(void* context, const cryptcli_request* request, cryptcli_response* response) {
    return Fill(static_cast<ScriptedTest*>(context)->Ask(request), response);
  }
};

}  // namespace CInterface
