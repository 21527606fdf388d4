#pragma once

#include "transport/curlhttp.h"
#include "transport/url_parts.h"

namespace OruKalvix {

/// The options of a transport, checked, with what follows from them.
struct CurlSettings {
  CryptClientCurlOptions options;
  UrlParts service;  ///< empty host: no URL takes credentials

  /// Takes options over. False, with the reason, when one cannot be right.
  bool Init(const CryptClientCurlOptions& given, OruGuiBase::AnsiStr& errorText);
};

}  // namespace OruKalvix
