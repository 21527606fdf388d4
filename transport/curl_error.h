#pragma once

#include <curl/curl.h>

#include "foundation/ansistr.h"

namespace OruKalvix {

/// What is known about a failed exchange. Pointers are valid while the exchange exists.
struct CurlFailure {
  CURL* handle = nullptr;
  CURLcode code = CURLE_OK;
  const char* detail = "";        ///< libcurl's own words; may be empty
  OruGuiBase::AnsiStr authority;  ///< "host:port" of the URL
  OruGuiBase::AnsiStr sinkError;  ///< why the response could not be received; empty when it could
  bool viaProxy = false;
  bool hasClientCertificate = false;
  bool wasCertificateRequested = false;  ///< in a handshake of this exchange
  const char* clientRefusal =
      nullptr;                   ///< why the server refuses the client's certificate, or that there is none
  bool mayBeCarriedOut = false;  ///< a kept connection broke after the whole request was sent
};

/// The message for the failure: one sentence that names the host.
OruGuiBase::AnsiStr DescribeFailure(const CurlFailure& failure);

}  // namespace OruKalvix
