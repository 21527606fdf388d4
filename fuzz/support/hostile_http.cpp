// The transport of the client targets. It treats each response as one byte of the input says and records what
// the properties of the targets depend on.
#include "fuzz/support/hostile_http.h"

#include <fstream>

#include "fuzz/support/mutation.h"
#include "fuzz/support/require.h"
#include "fuzz/support/text.h"

namespace Fuzz {
namespace {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruKalvix::HttpResponse;

// An input may contain a long list of servers; more exchanges would only take time.
constexpr std::uint32_t kMostExchanges = 200;

enum class Treatment : std::uint32_t {
  Usual = 0,
  // 1 to 5 as well: an operation gets far only if most responses are good.
  Variant = 6,
  OtherStep = 7,
  ChangedJson = 8,
  ChangedText = 9,
  Raw = 10,
  Status = 11,
  NoExchange = 12,
  ChangedHeaders = 13,
  ChangedVariant = 14,
  Empty = 15,
};
constexpr std::uint32_t kTreatments = 16;

bool IsText(const Val& value) {
  return value.GetType() == OruGuiBase::ValType::String && !value.AsString().IsEmpty();
}

// Whether a string is visible in an error message, which contains it up to its first NUL.
bool IsShown(const Val& value) {
  return IsText(value) && value.AsString().GetText()[0] != '\0';
}

}  // namespace

HostileHttp::~HostileHttp() {
  Require(references_ == 0, "the client gives back its references on the transport");
}

void* HostileHttp::QueryInterface(const char*) {
  Require(false, "the client never asks the transport for another interface");
  return nullptr;
}

std::uint32_t HostileHttp::AddRef() {
  return ++references_;
}

std::uint32_t HostileHttp::Release() {
  Require(references_ > 0, "the client gives back only what it took");
  return --references_;
}

void HostileHttp::ChangeJson(CannedResponse& canned) {
  canned.body = JsonText(MutateJson(ParseJson(canned.body), input_));
}

void HostileHttp::ChangeHeaders(CannedResponse& canned) {
  if (canned.headers.empty() || input_.Flag()) canned.headers.emplace_back(input_.Text(), input_.Text());
  auto& [name, value] = canned.headers[input_.Below(static_cast<std::uint32_t>(canned.headers.size()))];
  Mutate(input_.Flag() ? name : value, input_);
}

CannedResponse HostileHttp::ChooseResponse(const Request& request) {
  const std::string step = StepOf(request);
  const auto treatment = static_cast<Treatment>(input_.Below(kTreatments));
  if (treatment == Treatment::Raw) return {200, {}, input_.Text()};
  if (treatment == Treatment::Empty) return {};
  if (treatment == Treatment::OtherStep) {
    const auto count = static_cast<std::uint32_t>(GetSteps().size());
    return UsualResponse(GetSteps()[input_.Below(count)], request);
  }
  const std::uint32_t variants = CountVariants(step);
  const bool isVariant = treatment == Treatment::Variant || treatment == Treatment::ChangedVariant;
  CannedResponse canned =
      isVariant && variants > 0 ? Variant(step, input_.Below(variants)) : UsualResponse(step, request);
  if (treatment == Treatment::ChangedJson || treatment == Treatment::ChangedVariant) ChangeJson(canned);
  if (treatment == Treatment::ChangedText) Mutate(canned.body, input_);
  if (treatment == Treatment::ChangedHeaders) ChangeHeaders(canned);
  if (treatment == Treatment::Status) canned.status = input_.Below(1000);
  if (treatment == Treatment::NoExchange) canned.status = 0;
  return canned;
}

// Any negative result, with or without a message and a status: the client must not rely on either.
std::int32_t HostileHttp::Refuse(HttpResponse& response) {
  response.errorText = Ansi(input_.Flag() ? input_.Text() : "No connection");
  response.status = input_.Flag() ? 200 : 0;
  wasSilent_ = wasSilent_ || response.errorText.IsEmpty();
  return -1 - static_cast<std::int32_t>(input_.Byte());
}

// Parses the response as the client does, so that no way of writing JSON hides these members.
void HostileHttp::Note(const CannedResponse& canned) {
  const Val value = ParseJson(canned.body);
  if (value.GetType() != OruGuiBase::ValType::Map) return;
  const KVMap object = value.AsMap();
  gavePlainKey_ = gavePlainKey_ || IsText(object.Get("plain"));
  wasSilent_ = wasSilent_ || (IsText(object.Get("errorid")) && !IsShown(object.Get("errortext")));
}

void HostileHttp::Deliver(const CannedResponse& canned, HttpResponse& response) {
  response.status = canned.status;
  for (const auto& [name, value] : canned.headers) response.headers.Set(Ansi(name), Ansi(value));
  if (response.targetFile.IsEmpty()) {
    response.body = Ansi(canned.body);
    return;
  }
  std::ofstream out(Str(response.targetFile), std::ios::binary | std::ios::trunc);
  out << canned.body;
}

std::int32_t HostileHttp::SendRequest(const AnsiStr& method, const AnsiStr& url, const KVMap&,
                                      const AnsiStr& body, const OruKalvix::HttpOptions&,
                                      HttpResponse& response) {
  if (++exchanges_ > kMostExchanges) {
    response.errorText = "Too many exchanges";
    return -1;
  }
  const CannedResponse canned = ChooseResponse({Str(method), Str(url), Str(body)});
  if (canned.status == 0) return Refuse(response);
  Note(canned);
  Deliver(canned, response);
  return canned.status == 200 ? 0 : 1;
}

}  // namespace Fuzz
