#pragma once

#include <curl/curl.h>
#include <memory>
#include <vector>

#include "foundation/ansistr.h"
#include "foundation/kvmap.h"

namespace OruKalvix {

/// Wipes the lines of a list before it is freed, since headers carry tokens.
struct SlistWiper {
  void operator()(curl_slist* list) const noexcept;
};
using SlistPtr = std::unique_ptr<curl_slist, SlistWiper>;

/// The headers of one request, each name once.
class HeaderList {
 public:
  /// Adds headers; each replaces an earlier one of the same name, whatever its case. False, with the reason
  /// in `errorText`, for a name that is not a token (RFC 9110, 5.6.2), a value with a control character, or a
  /// header that determines the length of the request.
  bool Add(const OruGuiBase::KVMap& headers, OruGuiBase::AnsiStr& errorText);

  bool Has(const char* name) const noexcept;
  /// The lines in the form that libcurl takes; null when there is none.
  SlistPtr MakeLines() const;

 private:
  /// One header, checked when it was added; an empty value is sent too.
  struct Entry {
    OruGuiBase::AnsiStr name;
    OruGuiBase::AnsiStr value;
  };

  void Set(const OruGuiBase::AnsiStr& name, const OruGuiBase::AnsiStr& value);

  std::vector<Entry> entries_;
};

/// Appends one line. Throws std::bad_alloc on allocation failure.
void AppendLine(SlistPtr& list, const char* line);

}  // namespace OruKalvix
