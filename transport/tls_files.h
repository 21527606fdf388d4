#pragma once

#include "foundation/ansistr.h"
#include "transport/curlhttp.h"

namespace OruKalvix {

/// The contents of the TLS files that the options name, in PEM. Read once, when a transport is created, so
/// that it works on with a certificate and a key that fit each other while somebody replaces the files. A
/// value; its strings are wiped when the last copy is released.
struct TlsFiles {
  OruGuiBase::AnsiStr authorities;   ///< the CA file as it is
  OruGuiBase::AnsiStr certificates;  ///< the client's certificate and its chain, without the key
  OruGuiBase::AnsiStr key;  ///< the file with the client's key as it is, locked if it is locked there

  /// Reads and checks the files. False, with the file and the reason, if one cannot be used.
  bool Read(const CryptClientCurlOptions& options, OruGuiBase::AnsiStr& errorText);
};

}  // namespace OruKalvix
