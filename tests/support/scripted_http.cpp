// The test double of the transport: canned responses in order or by rule, and a record of each request. It
// passes the contract test of the transports, as the one on libcurl does.
#include "tests/support/scripted_http.h"

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/text.h"

namespace TestSupport {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

CannedResponse Json(std::string body) {
  CannedResponse canned;
  canned.body = std::move(body);
  return canned;
}

CannedResponse Status(std::uint32_t status, std::string body) {
  CannedResponse canned;
  canned.status = status;
  canned.body = std::move(body);
  return canned;
}

CannedResponse NoExchange(std::string errorText) {
  CannedResponse canned;
  canned.result = -1;
  canned.errorText = std::move(errorText);
  return canned;
}

CannedResponse DateResponse(std::string date) {
  CannedResponse canned;
  canned.headers = {{"Date", std::move(date)}};
  return canned;
}

ScriptedHttp::~ScriptedHttp() {
  if (!line_.empty()) ADD_FAILURE() << line_.size() << " scripted responses were never asked for";
}

ScriptedHttp& ScriptedHttp::Then(CannedResponse canned) {
  return Then([canned](const RecordedRequest&) { return canned; });
}

ScriptedHttp& ScriptedHttp::Then(Responder responder) {
  const std::lock_guard lock(mutex_);
  line_.push_back(std::move(responder));
  return *this;
}

ScriptedHttp& ScriptedHttp::On(std::string method, std::string urlPart, CannedResponse canned) {
  return On(std::move(method), std::move(urlPart), [canned](const RecordedRequest&) { return canned; });
}

ScriptedHttp& ScriptedHttp::On(std::string method, std::string urlPart, Responder responder) {
  const std::lock_guard lock(mutex_);
  rules_.push_back({std::move(method), std::move(urlPart), std::move(responder)});
  return *this;
}

std::vector<RecordedRequest> ScriptedHttp::GetRequests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

RecordedRequest ScriptedHttp::GetRequest(std::size_t index) const {
  const std::lock_guard lock(mutex_);
  if (index < requests_.size()) return requests_[index];
  ADD_FAILURE() << "request " << index << " was never made";
  return {};
}

std::size_t ScriptedHttp::GetRequestCount() const {
  const std::lock_guard lock(mutex_);
  return requests_.size();
}

std::vector<std::string> ScriptedHttp::GetLines() const {
  std::vector<std::string> lines;
  for (const RecordedRequest& request : GetRequests()) {
    lines.push_back(request.method + " " + request.url.substr(0, request.url.find('?')));
  }
  return lines;
}

void* ScriptedHttp::QueryInterface(const char*) {
  ++queries_;
  return nullptr;
}

std::uint32_t ScriptedHttp::AddRef() {
  return ++addRefs_;
}

std::uint32_t ScriptedHttp::Release() {
  return ++releases_;
}

Responder ScriptedHttp::TakeResponder(const RecordedRequest& request) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(request);
  if (!line_.empty()) {
    Responder responder = std::move(line_.front());
    line_.pop_front();
    return responder;
  }
  for (const Rule& rule : rules_) {
    const bool methodFits = rule.method.empty() || rule.method == request.method;
    if (methodFits && request.url.find(rule.urlPart) != std::string::npos) return rule.responder;
  }
  return nullptr;
}

namespace {

RecordedRequest Record(const AnsiStr& method, const AnsiStr& url, const KVMap& headers, const AnsiStr& body,
                       const OruKalvix::HttpOptions& options, const AnsiStr& targetFile) {
  RecordedRequest request{Str(method), Str(url), {}, Str(body), options, Str(targetFile)};
  for (const auto& [name, value] : headers) request.headers.emplace_back(Str(name), Str(value.AsString()));
  return request;
}

void Deliver(const CannedResponse& canned, OruKalvix::HttpResponse& response) {
  response.errorText = Ansi(canned.errorText);
  if (canned.result < 0) return;
  response.status = canned.status;
  OruGuiBase::Array<AnsiStr> names;
  OruGuiBase::Array<OruGuiBase::Val> values;
  for (const auto& [name, value] : canned.headers) {
    names.Append(Ansi(name));
    values.Append(OruGuiBase::Val(Ansi(value)));
  }
  response.headers = KVMap::FromPairs(names, values);
  if (response.targetFile.IsEmpty()) {
    response.body = Ansi(canned.body);
  } else {
    WriteFile(Str(response.targetFile), canned.body);
  }
}

}  // namespace

std::int32_t ScriptedHttp::SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                                       const AnsiStr& body, const OruKalvix::HttpOptions& options,
                                       OruKalvix::HttpResponse& response) {
  const RecordedRequest request = Record(method, url, headers, body, options, response.targetFile);
  const Responder responder = TakeResponder(request);
  if (!responder) {
    ADD_FAILURE() << "no scripted response for " << request.method << " " << request.url << "\n"
                  << request.body;
    response.errorText = "no scripted response";
    return -1;
  }
  const CannedResponse canned = responder(request);
  Deliver(canned, response);
  return canned.result;
}

std::string HeaderOf(const RecordedRequest& request, const std::string& name) {
  for (const auto& [key, value] : request.headers) {
    if (key == name) return value;
  }
  return "(none)";
}

}  // namespace TestSupport
