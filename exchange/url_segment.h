#pragma once

#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/encoding.h"

namespace OruKalvix {

/// Appends a path to a URL, with a slash between them unless the URL ends in one. The path is not escaped.
inline void AppendPath(OruGuiBase::AnsiStr& url, std::string_view path) noexcept {
  if (!url.View().ends_with('/')) url += '/';
  url.Append(path);
}

/// Appends one segment, which may hold any characters and is escaped.
inline void AppendSegment(OruGuiBase::AnsiStr& url, const OruGuiBase::AnsiStr& segment) noexcept {
  AppendPath(url, OruGuiBase::EscapeURL(segment).View());
}

}  // namespace OruKalvix
