#include "bindings/c/classify.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "tests/bindings/c/message_codes.h"

namespace CryptCliC {
namespace {

using CInterface::MessageCode;
using CInterface::ReasonCode;

std::string ReadSource(const std::filesystem::path& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// Every match of a pattern in the sources of a folder of the product: its groups, joined by spaces.
std::set<std::string> FindInSources(const char* folder, const std::regex& pattern) {
  std::set<std::string> found;
  const std::filesystem::path root = std::filesystem::path(CRYPTCLI_SOURCE_DIR) / folder;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (entry.path().extension() != ".cpp") continue;
    const std::string source = ReadSource(entry.path());
    for (std::sregex_iterator match(source.begin(), source.end(), pattern), end; match != end; ++match) {
      const std::string second = match->size() > 2 ? " " + (*match)[2].str() : std::string();
      found.insert((*match)[1].str() + second);
    }
  }
  return found;
}

// Fails for each string that only one of the two sets has.
void ExpectSame(const std::set<std::string>& inSources, const std::set<std::string>& inTable) {
  for (const std::string& message : inSources) {
    EXPECT_TRUE(inTable.contains(message)) << "in the sources alone: " << message;
  }
  for (const std::string& message : inTable) {
    EXPECT_TRUE(inSources.contains(message)) << "in the table alone: " << message;
  }
}

// The literals of every call that records a message.
TEST(Classify, KnowsTheCodeOfEveryMessageOfTheClass) {
  static const std::regex call(
      R"re((?:Fail|FailWithSystemError|SetError|SetHttpError|SetErrorMessage)\(\(?(?:AnsiStr\()?\s*"((?:[^"\\]|\\.)*)")re");
  std::set<std::string> inSources;
  for (const char* folder : {"client", "exchange", "roomkeys", "protection"}) {
    for (const std::string& message : FindInSources(folder, call)) inSources.insert(message);
  }
  // These calls pass on another message unchanged.
  for (const char* carrier : {"%s", "%s: %s", "%lld %s"}) EXPECT_EQ(inSources.erase(carrier), 1U) << carrier;
  std::set<std::string> inTable;
  for (const MessageCode& row : CInterface::kMessagesOfTheClass) {
    inTable.insert(row.message);
    EXPECT_EQ(Classify(row.message, {}), row.code) << row.message;
  }
  ExpectSame(inSources, inTable);
}

// In security/, every literal that is a sentence is a reason.
TEST(Classify, KnowsTheCodeOfEveryReasonOfSecurity) {
  static const std::regex sentence(R"re("([A-Z][A-Za-z0-9'-]* (?:[^"\\]|\\.)*[a-z](?:[^"\\]|\\.)*)")re");
  const auto found = FindInSources("security", sentence);
  std::set<std::string> inTable;
  for (const ReasonCode& row : CInterface::kReasonsOfSecurity) {
    inTable.insert(row.reason);
    const std::string message = std::string(row.message) + ": " + row.reason;
    EXPECT_EQ(Classify(message, {}), row.code) << message;
  }
  ExpectSame(found, inTable);
}

TEST(Classify, KnowsTheCodeOfEveryMessageOfTheCInterface) {
  static const std::regex withCode(R"re(Fail\(error, (CRYPTCLI_\w+),\s*"((?:[^"\\]|\\.)*)")re");
  const auto found = FindInSources("bindings/c", withCode);
  const std::map<cryptcli_status, std::string> names = {
      {CRYPTCLI_INVALID_ARGUMENT, "CRYPTCLI_INVALID_ARGUMENT "}, {CRYPTCLI_IO, "CRYPTCLI_IO "}};
  std::set<std::string> inTable;
  for (const MessageCode& row : CInterface::kMessagesWithCode) {
    // A quote in a source is escaped.
    inTable.insert(names.at(row.code) +
                   std::regex_replace(std::string(row.message), std::regex("\""), "\\\""));
  }
  ExpectSame(found, inTable);
}

// A message that is reported without a code ends in a reason of the system, or the operation knows the code.
TEST(Classify, KnowsTheCodeOfEveryStepOfTheCInterface) {
  static const std::regex step(
      R"re((?:MakeFailure|SystemFailure)\((?:operation, )?(?:std::string\()?"((?:[^"\\]|\\.)*)")re");
  const auto found = FindInSources("bindings/c", step);
  // The first two report a cancellation. The last one says in its own words why a file cannot be replaced.
  std::set<std::string> inTable = {"The operation was cancelled", "The check was cancelled",
                                   "Could not replace "};
  EXPECT_EQ(Classify("Could not replace \"a\": another program changed it meanwhile", {}), CRYPTCLI_IO);
  for (const char* literal : CInterface::kStepsOfTheSystem) {
    inTable.insert(literal);
    const std::string message = std::string(literal) + " \"a\": ";
    EXPECT_EQ(Classify(message + "Input/output error", {}), CRYPTCLI_IO) << literal;
    EXPECT_EQ(Classify(message + "No space left on device", {}), CRYPTCLI_NO_SPACE) << literal;
    EXPECT_EQ(Classify(message + "Cannot allocate memory", {}), CRYPTCLI_INTERNAL) << literal;
  }
  ExpectSame(found, inTable);
}

// If another program changes the source, neither a server that signs nor the content is at fault.
TEST(Classify, BlamesNobodyElseForAFileThatChanges) {
  for (const char* message :
       {"Could not sign file", "Could not encrypt file", "Could not parse encrypted file",
        "Could not decrypt file", "Could not read signed content"}) {
    const std::string whole = std::string(message) + ": The file changed while it was read";
    EXPECT_EQ(Classify(whole, {}), CRYPTCLI_IO) << message;
  }
}

TEST(Classify, LooksAtTheReasonOfTheSystemFirst) {
  EXPECT_EQ(Classify("Could not sign file: No space left on device", {}), CRYPTCLI_NO_SPACE);
  EXPECT_EQ(Classify("Could not sign file: File too large", {}), CRYPTCLI_NO_SPACE);
  EXPECT_EQ(Classify("Could not parse encrypted file: Permission denied", {}), CRYPTCLI_IO);
  EXPECT_EQ(Classify("Could not decrypt file: Operation canceled", {}), CRYPTCLI_CANCELLED);
}

// A weak key or digest in the chain is a fault of the signer, a weak digest of the content is one of the
// message.
TEST(Classify, DistinguishesAWeakChainFromADamagedMessage) {
  for (const char* reason :
       {"A certificate is signed with MD5", "A certificate is signed with SHA-1",
        "A certificate is signed with a weak digest", "A certificate's RSA key has fewer than 2048 bits",
        "A signer's RSA key has fewer than 2048 bits"}) {
    EXPECT_EQ(Classify(std::string("Could not verify signature: ") + reason, {}), CRYPTCLI_ORIGIN_NOT_PROVEN)
        << reason;
  }
  EXPECT_EQ(Classify("Could not verify signature: A signer's digest is MD5, which proves nothing", {}),
            CRYPTCLI_DAMAGED);
}

TEST(Classify, BlamesTheMessageOnlyForItsOwnFaults) {
  const std::string beginning = "Could not verify signature: ";
  for (const char* reason :
       {"The digest of the content cannot be computed", "A signer's digest algorithm is not available"}) {
    EXPECT_EQ(Classify(beginning + reason, {}), CRYPTCLI_INTERNAL) << reason;
  }
  for (const char* reason : {"The file changed while it was read", "The file cannot be read"}) {
    EXPECT_EQ(Classify(beginning + reason, {}), CRYPTCLI_IO) << reason;
  }
  for (const char* reason : {"The content is not what was signed", "The message has no signers",
                             "The signing time of a signer cannot be read", "A signature is not valid"}) {
    EXPECT_EQ(Classify(beginning + reason, {}), CRYPTCLI_DAMAGED) << reason;
  }
}

TEST(Classify, UsesTheExchangeWhoseReasonEndsTheMessage) {
  const FailedExchange notFound{.happened = true, .hasResponse = true, .isCryptService = true, .status = 404};
  EXPECT_EQ(Classify("Could not get room key: HTTP 404", notFound), CRYPTCLI_UNKNOWN_ROOM);
  const FailedExchange silent{.happened = true, .reason = "Gave up waiting for host:1: timed out"};
  EXPECT_EQ(Classify("Could not connect to key server: Gave up waiting for host:1: timed out", silent),
            CRYPTCLI_TIMEOUT);
  const FailedExchange stopped{true, false, true, 0, "Cancelled while waiting for host:1"};
  EXPECT_EQ(Classify("Could not get room key: Cancelled while waiting for host:1", stopped),
            CRYPTCLI_CANCELLED);
  // An exchange that failed before does not explain a later message.
  EXPECT_EQ(Classify("Could not verify signature: The content is not what was signed", notFound),
            CRYPTCLI_DAMAGED);
}

// Nobody was asked, so no later attempt finds anybody. The URL of a key server can come from the crypt
// service.
TEST(Classify, DoesNotCallAServerWithAnInvalidUrlUnreachable) {
  const std::string reason = "Invalid URL: only http and https are supported";
  const FailedExchange keyServer{.happened = true, .reason = reason};
  const std::string message = "Could not connect to key server: " + reason;
  EXPECT_EQ(ClassifyExchange(keyServer), CRYPTCLI_SERVER_ERROR);
  EXPECT_EQ(Classify(message, keyServer), CRYPTCLI_SERVER_ERROR);
  EXPECT_EQ(Classify(message, {}), CRYPTCLI_SERVER_ERROR);
  EXPECT_FALSE(IsRetryable(CRYPTCLI_SERVER_ERROR, message, keyServer));
  const FailedExchange service{.happened = true, .isCryptService = true, .reason = reason};
  EXPECT_EQ(Classify("Could not get room key: " + reason, service), CRYPTCLI_INVALID_ARGUMENT);
}

TEST(Classify, CallsOnlyARefusedUploadAConflict) {
  for (const std::uint32_t status : {409U, 412U}) {
    const std::string reason = "HTTP " + std::to_string(status);
    const FailedExchange upload{
        .happened = true, .hasResponse = true, .isCryptService = true, .status = status, .isKeyUpload = true};
    EXPECT_EQ(Classify("Could not upload new room key: " + reason, upload), CRYPTCLI_CONFLICT) << status;
    const FailedExchange other{
        .happened = true, .hasResponse = true, .isCryptService = true, .status = status};
    EXPECT_EQ(Classify("Could not get room key: " + reason, other), CRYPTCLI_SERVER_ERROR) << status;
    EXPECT_FALSE(IsRetryable(CRYPTCLI_SERVER_ERROR, "Could not get room key: " + reason, other)) << status;
    const FailedExchange keyServer{.happened = true, .hasResponse = true, .status = status};
    EXPECT_EQ(Classify(reason, keyServer), CRYPTCLI_SERVER_ERROR) << status;
  }
}

TEST(Classify, DistinguishesRefusedClientsFromUnreachableServers) {
  const auto failed = [](std::string_view reason) {
    return FailedExchange{.happened = true, .reason = reason};
  };
  for (const char* reason : {"A client certificate is required by host:1: alert certificate required",
                             "The client certificate was refused by host:1: alert unknown ca"}) {
    EXPECT_EQ(ClassifyExchange(failed(reason)), CRYPTCLI_UNAUTHORISED) << reason;
  }
  EXPECT_EQ(ClassifyExchange(failed("Could not connect to host:1: Connection refused")),
            CRYPTCLI_UNREACHABLE);
}

TEST(Classify, DoesNotAdviseToRepeatWithACertificateThatIsNotTrusted) {
  for (const char* reason : {"Could not verify the certificate of host:1: self-signed certificate",
                             "Could not use the client certificate for host:1: no key",
                             "Could not use the CA file for host:1: no such file"}) {
    const FailedExchange failed{.happened = true, .reason = reason};
    EXPECT_FALSE(IsRetryable(CRYPTCLI_UNREACHABLE, std::string("Could not get room key: ") + reason, failed));
    EXPECT_TRUE(IsRetryable(CRYPTCLI_UNREACHABLE, "Could not connect to host:1: Connection refused", failed));
  }
}

TEST(Classify, DoesNotBlameAServerForAFullDisk) {
  const FailedExchange full{
      .happened = true,
      .reason =
          "Could not receive the response from host:1: could not write \"log\": No space left on device"};
  EXPECT_EQ(ClassifyExchange(full), CRYPTCLI_NO_SPACE);
  EXPECT_EQ(Classify("Could not connect to key server: " + std::string(full.reason), full),
            CRYPTCLI_NO_SPACE);
  EXPECT_FALSE(IsRetryable(CRYPTCLI_NO_SPACE, full.reason, full));
}

TEST(Classify, KnowsTheErrorsOfKeyServers) {
  EXPECT_EQ(Classify("Could not sign file: 607 Key Not Found", {}), CRYPTCLI_SERVER_ERROR);
  EXPECT_EQ(Classify("609 Auth Failed", {}), CRYPTCLI_UNAUTHORISED);
  EXPECT_TRUE(IsRetryable(CRYPTCLI_SERVER_ERROR, "619 Service Temporary Unavailable", {}));
  EXPECT_FALSE(IsRetryable(CRYPTCLI_SERVER_ERROR, "607 Key Not Found", {}));
}

}  // namespace
}  // namespace CryptCliC
