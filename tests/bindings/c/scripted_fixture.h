#pragma once

#include <string>

#include "exchange/icryptclienthttp.h"
#include "tests/bindings/c/c_fixture.h"
#include "tests/support/messages.h"
#include "tests/support/pki.h"
#include "tests/support/scripted_services.h"
#include "tests/support/text.h"
#include "tests/support/wire.h"

namespace CInterface {

/// A client whose transport, a callback, leads to scripted services. The keys of everybody are at hand, so
/// any message can be made.
class ScriptedTest : public ClientTest {
 protected:
  static constexpr const char* kScriptedRoom = "room 1";

  void SetUp() override {
    ASSERT_EQ(cryptcli_options_set_service(options.get(), TestSupport::kServiceUrl, nullptr), CRYPTCLI_OK);
    cryptcli_options_set_transport(options.get(), &ScriptedTest::Send, &services);
    MakeClient();
  }

  /// The usual signer of the group, for a room.
  TestSupport::SignerSpec Signer(const std::string& room = kScriptedRoom,
                                 const std::string& group = TestSupport::kGroup) const {
    TestSupport::SignerSpec signer;
    signer.identity = pki.integrity;
    signer.attributes = {{TestSupport::kGroupOid, group},
                         {TestSupport::kRoomOid, room},
                         {TestSupport::kRoomUrlOid, "https://crypt.example/api/mx/" + room}};
    signer.signingTime = TestSupport::kServicesTime;
    return signer;
  }
  /// Puts an envelope for the room around the bytes and makes it the file "secret".
  void Envelope(const std::string& bytes) {
    scratch.Make("secret", TestSupport::MakeEnveloped(bytes, {pki.room.certificate}));
  }
  void HandOutPlainKey() {
    services.Set(
        "key", TestSupport::Json(TestSupport::With(TestSupport::ScriptedServices::RoomKeyResponse(), "plain",
                                                   TestSupport::Quoted(pki.room.key.ToPEM()))));
  }
  Outcome Open() { return Decrypt("secret", "opened", kScriptedRoom); }

  const TestSupport::Pki& pki = TestSupport::Pki::Get();
  TestSupport::ScriptedServices services;

 private:
  static int32_t Send(void* context, const cryptcli_request* request, cryptcli_response* response) {
    auto& target = *static_cast<TestSupport::ScriptedServices*>(context);
    OruGuiBase::KVMap headers;
    for (std::size_t i = 0; i < cryptcli_request_header_count(request); ++i) {
      headers.Put(cryptcli_request_header_name(request, i), cryptcli_request_header_value(request, i));
    }
    std::size_t size = 0;
    const auto* body = static_cast<const char*>(cryptcli_request_body(request, &size));
    OruKalvix::HttpResponse scripted;
    const std::int32_t result = target.http.SendRequest(
        cryptcli_request_method(request), cryptcli_request_url(request), headers,
        OruGuiBase::AnsiStr(body, static_cast<std::uint32_t>(size)), OruKalvix::HttpOptions(), scripted);
    if (result < 0) {
      cryptcli_response_set_error(response, scripted.errorText.GetText());
      return -1;
    }
    cryptcli_response_set_status(response, scripted.status);
    for (std::uint32_t i = 0; i < scripted.headers.GetCount(); ++i) {
      cryptcli_response_add_header(response, scripted.headers.GetKeys()[i].GetText(),
                                   scripted.headers.GetValues()[i].AsString().GetText());
    }
    return cryptcli_response_append_body(response, scripted.body.GetText(), scripted.body.GetLength());
  }
};

}  // namespace CInterface
