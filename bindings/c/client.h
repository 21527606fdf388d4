#pragma once

#include <memory>

#include "bindings/c/callback_transport.h"
#include "bindings/c/include/cryptcli/cryptcli.h"
#include "bindings/c/options.h"
#include "transport/curlhttp.h"
#include "transport/url_parts.h"

/// A client: its options and its transport, both immutable, owned by the application. It outlives its
/// operations. Each operation makes a CryptClient of its own, so any number may run at once; they share the
/// transport and the connections that it keeps open.
struct cryptcli_client {
  cryptcli_options options;
  OruKalvix::UrlParts service;                             ///< of the crypt service's URL
  OruKalvix::CryptClientCurl::Ptr curl;                    ///< the built-in transport; null with a callback
  std::unique_ptr<CryptCliC::CallbackTransport> callback;  ///< null with the built-in transport

  /// Whether the URL is the crypt service's or below it, by the same rule as in the built-in transport: such
  /// a request, and no other, may carry the credentials.
  bool IsAtService(const OruGuiBase::AnsiStr& url) const;
};

namespace CryptCliC {

/// Checks the client and the room of an operation. On false the failure is stored in `error`.
bool CheckRoom(const cryptcli_client* client, const char* room, cryptcli_error** error);

}  // namespace CryptCliC
