#pragma once

#include "foundation/ansistr.h"
#include "foundation/encoding.h"

namespace OruKalvix {

/// Appends a path to a URL with a slash between them, unless the URL ends in one. The path goes as it stands.
inline void AppendPath(OruGuiBase::AnsiStr& url, const OruGuiBase::AnsiStr& path) noexcept {
  if (!url.View().ends_with('/')) url += '/';
  url += path;
}

/// The same for one segment of any characters, which is escaped.
inline void AppendSegment(OruGuiBase::AnsiStr& url, const OruGuiBase::AnsiStr& segment) noexcept {
  AppendPath(url, OruGuiBase::EscapeURL(segment));
}

}  // namespace OruKalvix
