// Turns libcurl's error codes into messages that name the server and the system's reason, for users who do
// not know libcurl.
#include "transport/curl_error.h"

#include "foundation/errorstate.h"

namespace OruKalvix {

using OruGuiBase::AnsiStr;

namespace {

AnsiStr Detail(const CurlFailure& failure) {
  return *failure.detail != '\0' ? AnsiStr(failure.detail) : AnsiStr(curl_easy_strerror(failure.code));
}

// The system's reason is shorter and more exact than libcurl's list of its attempts.
AnsiStr ConnectReason(const CurlFailure& failure) {
  long code = 0;
  curl_easy_getinfo(failure.handle, CURLINFO_OS_ERRNO, &code);
  if (failure.code != CURLE_COULDNT_CONNECT || code <= 0) return Detail(failure);
  return OruGuiBase::GetErrorMessage(static_cast<std::uint32_t>(code), 0, 1);
}

// libcurl has one code for all timeouts. This time is set once the connection, including TLS, is ready.
bool WasConnected(const CurlFailure& failure) {
  curl_off_t microseconds = 0;
  curl_easy_getinfo(failure.handle, CURLINFO_PRETRANSFER_TIME_T, &microseconds);
  return microseconds > 0;
}

bool IsReset(CURLcode code) {
  return code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR;
}

AnsiStr Target(const CurlFailure& failure) {
  return failure.viaProxy ? failure.authority + " through the proxy" : failure.authority;
}

const char* Phrase(const CurlFailure& failure) {
  if (failure.clientRefusal != nullptr) {
    return failure.hasClientCertificate ? "The client certificate was refused by "
                                        : "A client certificate is required by ";
  }
  switch (failure.code) {
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
      return "Could not connect to ";
    case CURLE_OPERATION_TIMEDOUT:
      return WasConnected(failure) ? "Gave up waiting for " : "Could not connect to ";
    case CURLE_PEER_FAILED_VERIFICATION:
      return "Could not verify the certificate of ";
    case CURLE_SSL_CONNECT_ERROR:
      return "Could not agree on TLS with ";
    case CURLE_SSL_CERTPROBLEM:
      return "Could not use the client certificate for ";
    case CURLE_SSL_CACERT_BADFILE:
      return "Could not use the CA file for ";
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      return "Got no complete response from ";
    case CURLE_WRITE_ERROR:
      return "Could not receive the response from ";
    default:
      return "Could not exchange with ";
  }
}

}  // namespace

AnsiStr DescribeFailure(const CurlFailure& failure) {
  if (failure.mayBeCarriedOut) {
    return AnsiStr("Got no response from ") + Target(failure) +
           ": the connection was closed; the request may have been carried out and was not repeated";
  }
  // libcurl's own words name the callback that stopped it.
  if (failure.code == CURLE_ABORTED_BY_CALLBACK)
    return AnsiStr("Cancelled while waiting for ") + Target(failure);
  AnsiStr text = AnsiStr(Phrase(failure)) + Target(failure) + ": ";
  if (!failure.sinkError.IsEmpty()) return text + failure.sinkError;
  if (failure.clientRefusal != nullptr) return text + failure.clientRefusal;
  // A server that resets the connection takes its alert away with it.
  const bool isSuspect = IsReset(failure.code) && failure.wasCertificateRequested;
  return text + ConnectReason(failure) + (isSuspect ? "; the server had asked for a client certificate" : "");
}

}  // namespace OruKalvix
