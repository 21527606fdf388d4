#pragma once

#include <string_view>

#include "foundation/ansistr.h"
#include "foundation/encoding.h"

namespace OruKalvix {

/// Appends a path to a URL with a slash between them, unless the URL ends in one. The path goes as it stands.
inline void AppendPath(OruGuiBase::AnsiStr& url, std::string_view path) noexcept {
  if (!url.View().ends_with('/')) url += '/';
  url.Append(path);
}

/// The same for one segment of any characters, which is escaped.
inline void AppendSegment(OruGuiBase::AnsiStr& url, const OruGuiBase::AnsiStr& segment) noexcept {
  AppendPath(url, OruGuiBase::EscapeURL(segment).View());
}

}  // namespace OruKalvix
