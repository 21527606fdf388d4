// Names of the status codes, and what the library is built with. Called by applications, and for the names by
// error.cpp and check.cpp. A name is part of the JSON of an error, so it never changes.
#include <string>

#include "bindings/c/include/cryptcli/cryptcli.h"
#include "bindings/c/text.h"
#include "transport/curlhttp.h"

const char* cryptcli_status_name(cryptcli_status status) {
  switch (status) {
    case CRYPTCLI_OK:
      return "ok";
    case CRYPTCLI_INVALID_ARGUMENT:
      return "invalid_argument";
    case CRYPTCLI_UNREACHABLE:
      return "unreachable";
    case CRYPTCLI_TIMEOUT:
      return "timeout";
    case CRYPTCLI_UNAUTHORISED:
      return "unauthorised";
    case CRYPTCLI_UNKNOWN_ROOM:
      return "unknown_room";
    case CRYPTCLI_KEY_REFUSED:
      return "key_refused";
    case CRYPTCLI_NOT_PROTECTED:
      return "not_protected";
    case CRYPTCLI_DAMAGED:
      return "damaged";
    case CRYPTCLI_ORIGIN_NOT_PROVEN:
      return "origin_not_proven";
    case CRYPTCLI_NO_SPACE:
      return "no_space";
    case CRYPTCLI_IO:
      return "io";
    case CRYPTCLI_CONFLICT:
      return "conflict";
    case CRYPTCLI_CANCELLED:
      return "cancelled";
    case CRYPTCLI_SERVER_ERROR:
      return "server_error";
    // Also for a number that is no status, as the header says.
    default:
      return "internal";
  }
}

const char* cryptcli_version(void) {
  return CRYPTCLI_VERSION;
}

const char* cryptcli_build_info(void) {
  try {
    static const std::string info = [] {
      OruGuiBase::KVMap object;
      CryptCliC::SetText(object, "cryptcli", CRYPTCLI_VERSION);
      CryptCliC::SetText(object, "transport", OruKalvix::CryptClientCurl::GetLibraryVersions());
      return CryptCliC::ToJson(object);
    }();
    return info.c_str();
  } catch (...) {
    return "{}";
  }
}
