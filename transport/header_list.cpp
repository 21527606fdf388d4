// The headers of a request: checks them, lets later ones replace earlier ones, and makes libcurl's list of
// them. Called by CurlExchange, and by CurlSettings to check headers in advance.
#include "transport/header_list.h"

#include <cstring>
#include <new>
#include <string_view>

#include "foundation/encoding.h"
#include "foundation/format.h"
#include "foundation/reference.h"
#include "foundation/text_checks.h"

namespace OruKalvix {

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace {

// libcurl sets these from the body. A second value would let servers disagree about where the request ends
// (request smuggling; RFC 9112, 11.2).
bool IsFraming(const AnsiStr& name) {
  return AnsiStr::Compare(name, "Content-Length", /*ignoreCase=*/true) == 0 ||
         AnsiStr::Compare(name, "Transfer-Encoding", /*ignoreCase=*/true) == 0;
}

// The message never contains the header's value, which may be a secret.
bool CheckHeader(const AnsiStr& name, const AnsiStr& value, AnsiStr& errorText) {
  if (!OruGuiBase::IsHeaderName(name.View())) {
    errorText = AnsiStr("Invalid header name ") + OruGuiBase::SimpleQuote(name);
  } else if (IsFraming(name)) {
    errorText = AnsiStr("Header ") + name + " is set by the transport alone";
  } else if (!OruGuiBase::IsHeaderValue(value.View())) {
    errorText = AnsiStr("Invalid value of header ") + name + ": it contains a control character";
  } else {
    return true;
  }
  return false;
}

}  // namespace

void SlistWiper::operator()(curl_slist* list) const noexcept {
  for (curl_slist* line = list; line != nullptr; line = line->next) {
    OruGuiBase::WipeMemory(line->data, std::strlen(line->data));
  }
  curl_slist_free_all(list);
}

void AppendLine(SlistPtr& list, const char* line) {
  curl_slist* const longer = curl_slist_append(list.get(), line);
  if (longer == nullptr) throw std::bad_alloc();
  static_cast<void>(list.release());  // the same list, whose head may be new
  list.reset(longer);
}

bool HeaderList::Add(const KVMap& headers, AnsiStr& errorText) {
  for (const auto& [name, value] : headers) {
    const AnsiStr text = value.AsString();
    if (!CheckHeader(name, text, errorText)) return false;
    Set(name, OruGuiBase::CleanStr(text));
  }
  return true;
}

void HeaderList::Set(const AnsiStr& name, const AnsiStr& value) {
  for (Entry& entry : entries_) {
    if (AnsiStr::Compare(entry.name, name, /*ignoreCase=*/true) != 0) continue;
    entry = {name, value};
    return;
  }
  entries_.push_back({name, value});
}

bool HeaderList::Has(const char* name) const noexcept {
  for (const Entry& entry : entries_) {
    if (AnsiStr::Compare(entry.name, name, /*ignoreCase=*/true) == 0) return true;
  }
  return false;
}

SlistPtr HeaderList::MakeLines() const {
  SlistPtr lines;
  for (const Entry& entry : entries_) {
    // For libcurl "Name:" means to leave the header out and "Name;" to send it without a value.
    const AnsiStr line = entry.value.IsEmpty() ? entry.name + ";" : entry.name + ": " + entry.value;
    AppendLine(lines, line.GetText());
  }
  return lines;
}

}  // namespace OruKalvix
