// JSON out and JSON in, on top of the plain HTTP operations. Commands, tokens, room keys and certificate
// lists all pass here. Request and response are traced line by line at level 2.
#include "client/cryptcli.h"
#include "client/tracing.h"
#include "foundation/json.h"
#include "foundation/stream.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::LineIterator;
using OruGuiBase::Val;

namespace OruKalvix {
namespace {

// Looks whether anybody wants bodies before it splits this one into lines.
void TraceRequest(const AnsiStr& text) noexcept {
  if (!OruGuiTrace::IsBodyTraced()) return;
  for (LineIterator lines(text); lines.ToNext();) {
    CRYPTCLI_TRACE_STR(2, "CryptClient::HttpPost: request[%02u] = %s", lines.GetIndex(),
                       lines.GetLine().GetText());
  }
}

void TraceResponse(const AnsiStr& text) noexcept {
  if (!OruGuiTrace::IsBodyTraced()) return;
  for (LineIterator lines(text); lines.ToNext();) {
    CRYPTCLI_TRACE_STR(2, "CryptClient::ParseResponseJSON: response[%02u] = %s", lines.GetIndex(),
                       lines.GetLine().GetText());
  }
}

}  // namespace

bool CryptClient::HttpGetJSON(const AnsiStr& url, const KVMap& headers, KVMap& object) noexcept {
  AnsiStr body;
  if (!HttpGet(url, headers, body)) return false;
  return ParseResponseJSON(body, object);
}

bool CryptClient::HttpPostJSON(const AnsiStr& url, const KVMap& request, const KVMap& headers,
                               KVMap& object) noexcept {
  AnsiStr text;
  if (!CreateRequestJSON(request, text)) return false;
  if (!HttpPost(url, text, headers, text)) return false;
  // The response to a POST may be empty, which counts as an empty object. The response to a GET may not.
  if (text.IsEmpty()) {
    object = KVMap();
    return true;
  }
  return ParseResponseJSON(text, object);
}

bool CryptClient::HttpPostToFile(const AnsiStr& url, const KVMap& request, const KVMap& headers,
                                 const AnsiStr& targetFile) noexcept {
  AnsiStr text;
  if (!CreateRequestJSON(request, text)) return false;
  return HttpPost(url, text, headers, File(targetFile));
}

// The messages of the JSON parser and emitter are passed as the format itself. That is safe because they
// quote no input: no percent sign that a server chose can get here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

bool CryptClient::CreateRequestJSON(const KVMap& object, AnsiStr& text) noexcept {
  AnsiStr error;
  if (!OruGuiBase::Val2JSON(Val(object), text, error, /*pretty=*/false, /*strict=*/true))
    return Fail((AnsiStr("Could not convert object to JSON: ") + error).GetText());
  TraceRequest(text);
  return true;
}

bool CryptClient::ParseResponseJSON(const AnsiStr& text, KVMap& object) noexcept {
  Val value;
  AnsiStr error;
  if (!OruGuiBase::JSON2Val(text, value, error)) {
    SetError((AnsiStr("Could not parse response: ") + error).GetText());
    TraceResponse(text);
    return false;
  }
  TraceResponse(text);
  object = value.AsMap();
  return true;
}

#pragma GCC diagnostic pop

}  // namespace OruKalvix
