#pragma once

#include <cryptcli/cryptcli.h>

// Every message that the library can give, and the code that belongs to it. A new message needs a row here,
// and one in classify.cpp if no row there fits.
namespace CInterface {

/// A message as it stands in the sources.
struct MessageCode {
  const char* message;
  cryptcli_status code;
};
/// The messages of the class.
inline constexpr MessageCode kMessagesOfTheClass[] = {
    {"Could not add inner signing certificate to store", CRYPTCLI_INTERNAL},
    {"Could not add recipient", CRYPTCLI_SERVER_ERROR},
    {"Could not connect to key server: %s", CRYPTCLI_UNREACHABLE},
    {"Could not convert object to JSON: ", CRYPTCLI_INVALID_ARGUMENT},
    {"Could not create %s: %s", CRYPTCLI_IO},
    {"Could not create enveloped data", CRYPTCLI_INTERNAL},
    {"Could not create temporary file", CRYPTCLI_IO},
    {"Could not decode signedHashes", CRYPTCLI_SERVER_ERROR},
    {"Could not decrypt document key: Invalid plainData", CRYPTCLI_SERVER_ERROR},
    {"Could not decrypt file", CRYPTCLI_DAMAGED},
    {"Could not decrypt room key: Invalid encodedPrivateKey", CRYPTCLI_SERVER_ERROR},
    {"Could not determine group of signer", CRYPTCLI_DAMAGED},
    {"Could not determine signer certificate digest", CRYPTCLI_DAMAGED},
    {"Could not encrypt file", CRYPTCLI_IO},
    {"Could not extract room key content", CRYPTCLI_SERVER_ERROR},
    {"Could not find a matching integrity certificate", CRYPTCLI_ORIGIN_NOT_PROVEN},
    {"Could not find matching room key", CRYPTCLI_UNKNOWN_ROOM},
    {"Could not generate wrapped key: Could not decode encodedX509Certificate", CRYPTCLI_SERVER_ERROR},
    {"Could not generate wrapped key: Invalid encodedWrappedKey", CRYPTCLI_SERVER_ERROR},
    {"Could not generate wrapped key: Invalid encodedX509Certificate", CRYPTCLI_SERVER_ERROR},
    {"Could not get audit log from all key servers: %s", CRYPTCLI_SERVER_ERROR},
    {"Could not get authorization token: %s", CRYPTCLI_UNAUTHORISED},
    {"Could not get encrypted content key", CRYPTCLI_NOT_PROTECTED},
    {"Could not get integrity certificate: Invalid encodedCertificate", CRYPTCLI_SERVER_ERROR},
    {"Could not get integrity certificate: Invalid id", CRYPTCLI_SERVER_ERROR},
    {"Could not get integrity certificate: Invalid subId", CRYPTCLI_SERVER_ERROR},
    {"Could not get integrity certificates: %s", CRYPTCLI_SERVER_ERROR},
    {"Could not get room certificates: %s", CRYPTCLI_SERVER_ERROR},
    {"Could not get room key: %s", CRYPTCLI_SERVER_ERROR},
    {"Could not modify wrapped key: Invalid encodedWrappedKey", CRYPTCLI_SERVER_ERROR},
    {"Could not move temporary file", CRYPTCLI_IO},
    {"Could not parse encrypted file", CRYPTCLI_NOT_PROTECTED},
    {"Could not parse integrity certificate", CRYPTCLI_SERVER_ERROR},
    {"Could not parse list of root and intermediate CA certificates", CRYPTCLI_SERVER_ERROR},
    {"Could not parse list of trusted issuing certificates", CRYPTCLI_SERVER_ERROR},
    {"Could not parse response: ", CRYPTCLI_SERVER_ERROR},
    {"Could not parse room key", CRYPTCLI_SERVER_ERROR},
    {"Could not parse room key content: %s", CRYPTCLI_SERVER_ERROR},
    {"Could not read digested content", CRYPTCLI_DAMAGED},
    {"Could not read encrypted content keys", CRYPTCLI_NOT_PROTECTED},
    {"Could not read signed content", CRYPTCLI_DAMAGED},
    {"Could not read signer information", CRYPTCLI_DAMAGED},
    {"Could not set content key", CRYPTCLI_DAMAGED},
    {"Could not set recipient key", CRYPTCLI_DAMAGED},
    {"Could not sign file", CRYPTCLI_SERVER_ERROR},
    {"Could not sign hash: Invalid integrity key", CRYPTCLI_SERVER_ERROR},
    {"Could not sign hash: Invalid signedHashes", CRYPTCLI_SERVER_ERROR},
    {"Could not upload new room key: %s", CRYPTCLI_SERVER_ERROR},
    {"Could not verify integrity certificate chain: %s", CRYPTCLI_ORIGIN_NOT_PROVEN},
    {"Could not verify integrity certificate: Invalid issuer", CRYPTCLI_ORIGIN_NOT_PROVEN},
    {"Could not verify room key certificate chain: %s", CRYPTCLI_SERVER_ERROR},
    {"Could not verify room key issuer certificate chain: %s", CRYPTCLI_SERVER_ERROR},
    {"Could not verify room key: Invalid issuer", CRYPTCLI_SERVER_ERROR},
    {"Could not verify room key: Unexpected issuer", CRYPTCLI_SERVER_ERROR},
    {"Could not verify signature", CRYPTCLI_ORIGIN_NOT_PROVEN},
    {"Invalid URL", CRYPTCLI_INVALID_ARGUMENT},
    {"Invalid authorization token", CRYPTCLI_UNAUTHORISED},
    {"Invalid base64 hash %s", CRYPTCLI_INVALID_ARGUMENT},
    {"Invalid content type %s", CRYPTCLI_NOT_PROTECTED},
    {"Invalid key server URL", CRYPTCLI_SERVER_ERROR},
    {"Invalid key server time [%s]", CRYPTCLI_SERVER_ERROR},
    {"Invalid payload", CRYPTCLI_SERVER_ERROR},
    {"Invalid room key: Could not parse encodedInnerSigningCertificate", CRYPTCLI_SERVER_ERROR},
    {"Invalid room key: Invalid encodedInnerSigningCertificate", CRYPTCLI_SERVER_ERROR},
    {"Invalid signer certificate", CRYPTCLI_DAMAGED},
    {"Invalid timeout value [%s]", CRYPTCLI_SERVER_ERROR},
    {"No trusted issuing certificates", CRYPTCLI_SERVER_ERROR},
    {"Unexpected content type %s", CRYPTCLI_SERVER_ERROR},
    {"Unexpected response type %s", CRYPTCLI_SERVER_ERROR},
    {"Untrusted integrity certificate issuer: %s", CRYPTCLI_ORIGIN_NOT_PROVEN},
};

/// The beginnings of the messages to which the C interface gives their code where it reports them.
inline constexpr MessageCode kMessagesWithCode[] = {
    {"A client key without a client certificate", CRYPTCLI_INVALID_ARGUMENT},
    {"A header has a name of letters, digits and hyphens and a value of one line", CRYPTCLI_INVALID_ARGUMENT},
    {"Could not read \"", CRYPTCLI_IO},
    {"Could not read the file: ", CRYPTCLI_IO},
    {"No URL of the crypt service", CRYPTCLI_INVALID_ARGUMENT},
    {"No call", CRYPTCLI_INVALID_ARGUMENT},
    {"No client", CRYPTCLI_INVALID_ARGUMENT},
    {"No client, operation or arguments", CRYPTCLI_INVALID_ARGUMENT},
    {"No options", CRYPTCLI_INVALID_ARGUMENT},
    {"No options or no client", CRYPTCLI_INVALID_ARGUMENT},
    {"No path", CRYPTCLI_INVALID_ARGUMENT},
    {"The arguments are no JSON object", CRYPTCLI_INVALID_ARGUMENT},
    {"The arguments are no JSON: ", CRYPTCLI_INVALID_ARGUMENT},
    {"The crypt service named room \"", CRYPTCLI_INVALID_ARGUMENT},
    {"The expected room is empty or not UTF-8", CRYPTCLI_INVALID_ARGUMENT},
    {"The password file \"", CRYPTCLI_INVALID_ARGUMENT},
    {"The room is empty or not UTF-8", CRYPTCLI_INVALID_ARGUMENT},
    {"Unknown operation \"", CRYPTCLI_INVALID_ARGUMENT},
    {"Unknown policy", CRYPTCLI_INVALID_ARGUMENT},
};

/// The steps of the C interface. Behind each of them is the system's reason, which decides.
inline constexpr const char* kStepsOfTheSystem[] = {"Could not create a temporary file: ", "Could not read",
                                                    "Could not write"};

}  // namespace CInterface
