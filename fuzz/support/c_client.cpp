// The callback transport and the checks of the C interface's targets. What they check holds for every report
// and error, whatever an input does, so each target calls CResult::Check after each function.
#include "fuzz/support/c_client.h"

#include <string_view>

#include "foundation/encoding.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text.h"
#include "fuzz/support/world.h"

namespace Fuzz {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

void RequireUtf8(const char* text) {
  Require(text != nullptr, "a getter returns a string");
  const std::string_view view(text);
  Require(OruGuiBase::IsValidUTF8(text, static_cast<std::uint32_t>(view.size())), "strings are UTF-8");
}

KVMap RequireObject(const char* json) {
  RequireUtf8(json);
  const Val value = ParseJson(json);
  Require(value.GetType() == OruGuiBase::ValType::Map, "JSON that is handed out is an object");
  return value.AsMap();
}

void RequireMember(const KVMap& object, const char* name, const char* text) {
  Require(Str(object.Get(name).AsString()) == text, "JSON and getter agree");
}

void CheckError(const cryptcli_error* error, cryptcli_status status) {
  const KVMap object = RequireObject(cryptcli_error_json(error));
  Require(cryptcli_error_code(error) == status, "the error has the status that was returned");
  RequireMember(object, "code", cryptcli_status_name(status));
  RequireMember(object, "message", cryptcli_error_message(error));
  RequireMember(object, "url", cryptcli_error_url(error));
  RequireUtf8(cryptcli_error_url(error));
  const std::size_t attempts = cryptcli_error_attempt_count(error);
  Require(object.Get("attempts").AsArray().GetCount() == attempts, "JSON has each attempt");
  for (std::size_t i = 0; i < attempts; ++i) {
    RequireUtf8(cryptcli_error_attempt_server(error, i));
    RequireUtf8(cryptcli_error_attempt_message(error, i));
  }
  Require(cryptcli_error_attempt_server(error, attempts) == nullptr,
          "there is nothing after the last attempt");
}

// Only an operation that looks at a signature has an origin to report.
void CheckReport(const cryptcli_report* report) {
  const KVMap object = RequireObject(cryptcli_report_json(report));
  if (!object.Contains("origin")) return;
  RequireMember(object, "origin", cryptcli_origin_name(cryptcli_report_origin(report)));
  RequireMember(object, "reason", cryptcli_report_reason(report));
  RequireMember(object, "signedRoom", cryptcli_report_signed_room(report));
  RequireMember(object, "signedGroup", cryptcli_report_signed_group(report));
  RequireMember(object, "serviceRoom", cryptcli_report_service_room(report));
  const std::size_t count = cryptcli_report_chain_count(report);
  for (std::size_t i = 0; i < count; ++i) RequireUtf8(cryptcli_report_chain_subject(report, i));
}

}  // namespace

CClient::CClient(HostileHttp& http) : http_(http) {
  cryptcli_options* const options = cryptcli_options_new();
  cryptcli_options_set_transport(options, &CClient::Send, this);
  Require(cryptcli_options_set_service(options, std::string(kServiceUrl).c_str(), nullptr) == CRYPTCLI_OK &&
              cryptcli_client_new(options, &client_, nullptr) == CRYPTCLI_OK,
          "a client can be made");
  cryptcli_options_free(options);
}

CClient::~CClient() {
  cryptcli_client_free(client_);
}

std::int32_t CClient::Send(void* context, const cryptcli_request* request, cryptcli_response* response) {
  auto& self = *static_cast<CClient*>(context);
  ++self.exchanges_;
  std::size_t size = 0;
  const auto* body = static_cast<const char*>(cryptcli_request_body(request, &size));
  OruKalvix::HttpResponse given;
  // HostileHttp looks at method, URL and body alone, so headers and options need not be passed on.
  const std::int32_t result =
      self.http_.SendRequest(cryptcli_request_method(request), cryptcli_request_url(request), KVMap(),
                             Ansi(std::string_view(body, size)), OruKalvix::HttpOptions(), given);
  if (result < 0) {
    cryptcli_response_set_error(response, given.errorText.GetText());
    return -1;
  }
  cryptcli_response_set_status(response, given.status);
  for (const auto& [name, value] : given.headers) {
    cryptcli_response_add_header(response, name.GetText(), value.AsString().GetText());
  }
  return cryptcli_response_append_body(response, given.body.GetText(), given.body.GetLength());
}

CResult::~CResult() {
  cryptcli_report_free(report);
  cryptcli_error_free(error);
}

void CResult::Check(cryptcli_status status) const {
  const bool hasReport = status == CRYPTCLI_OK || status == CRYPTCLI_ORIGIN_NOT_PROVEN;
  Require((error != nullptr) == (status != CRYPTCLI_OK), "an error comes with each failure");
  Require(report == nullptr || hasReport, "a failure has no report");
  if (error != nullptr) CheckError(error, status);
  if (report != nullptr) CheckReport(report);
}

}  // namespace Fuzz
