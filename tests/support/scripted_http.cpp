#include "tests/support/scripted_http.h"

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/text.h"

namespace TestSupport {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

HttpAnswer Json(std::string body) {
  HttpAnswer answer;
  answer.body = std::move(body);
  return answer;
}

HttpAnswer Status(std::uint32_t status, std::string body) {
  HttpAnswer answer;
  answer.status = status;
  answer.body = std::move(body);
  return answer;
}

HttpAnswer NoExchange(std::string errorText) {
  HttpAnswer answer;
  answer.result = -1;
  answer.errorText = std::move(errorText);
  return answer;
}

HttpAnswer DateAnswer(std::string date) {
  HttpAnswer answer;
  answer.headers = {{"Date", std::move(date)}};
  return answer;
}

ScriptedHttp::~ScriptedHttp() {
  if (!line_.empty()) ADD_FAILURE() << line_.size() << " scripted answers were never asked for";
}

ScriptedHttp& ScriptedHttp::Then(HttpAnswer answer) {
  return Then([answer](const RecordedRequest&) { return answer; });
}

ScriptedHttp& ScriptedHttp::Then(Responder responder) {
  const std::lock_guard lock(mutex_);
  line_.push_back(std::move(responder));
  return *this;
}

ScriptedHttp& ScriptedHttp::On(std::string method, std::string urlPart, HttpAnswer answer) {
  return On(std::move(method), std::move(urlPart), [answer](const RecordedRequest&) { return answer; });
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
  for (std::uint32_t i = 0; i < headers.GetCount(); ++i) {
    request.headers.emplace_back(Str(headers.GetKeys()[i]), Str(headers.GetValues()[i].AsString()));
  }
  return request;
}

void Deliver(const HttpAnswer& answer, OruKalvix::HttpResponse& response) {
  response.errorText = Ansi(answer.errorText);
  if (answer.result < 0) return;
  response.status = answer.status;
  OruGuiBase::Array<AnsiStr> names;
  OruGuiBase::Array<OruGuiBase::Val> values;
  for (const auto& [name, value] : answer.headers) {
    names.Append(Ansi(name));
    values.Append(OruGuiBase::Val(Ansi(value)));
  }
  response.headers = KVMap::FromPairs(names, values);
  if (response.targetFile.IsEmpty()) {
    response.body = Ansi(answer.body);
  } else {
    WriteFile(Str(response.targetFile), answer.body);
  }
}

}  // namespace

std::int32_t ScriptedHttp::SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap& headers,
                                       const AnsiStr& body, const OruKalvix::HttpOptions& options,
                                       OruKalvix::HttpResponse& response) {
  const RecordedRequest request = Record(method, url, headers, body, options, response.targetFile);
  const Responder responder = TakeResponder(request);
  if (!responder) {
    ADD_FAILURE() << "no scripted answer for " << request.method << " " << request.url << "\n"
                  << request.body;
    response.errorText = "no scripted answer";
    return -1;
  }
  const HttpAnswer answer = responder(request);
  Deliver(answer, response);
  return answer.result;
}

std::string HeaderOf(const RecordedRequest& request, const std::string& name) {
  for (const auto& [key, value] : request.headers) {
    if (key == name) return value;
  }
  return "(none)";
}

}  // namespace TestSupport
