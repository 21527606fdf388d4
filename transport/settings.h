#pragma once

#include "transport/curlhttp.h"
#include "transport/tls_files.h"
#include "transport/url_parts.h"

namespace OruKalvix {

/// The checked options of a transport and what is computed from them. Owned by the transport, constant after
/// Init().
struct CurlSettings {
  CryptClientCurlOptions options;
  TlsFiles files;
  UrlParts service;  ///< with an empty host no request carries credentials

  /// Copies and checks options. False, with the reason, if one is wrong.
  bool Init(const CryptClientCurlOptions& given, OruGuiBase::AnsiStr& errorText);
};

}  // namespace OruKalvix
