#include "bindings/c/classify.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace CryptCliC {
namespace {

// The messages that the class can give: the literals of every call that records one.
std::set<std::string> ReadMessages() {
  static const std::regex call(
      R"re((?:Fail|FailWithSystemError|SetError|SetHttpError|SetErrorMessage)\(\(?(?:AnsiStr\()?\s*"((?:[^"\\]|\\.)*)")re");
  std::set<std::string> messages;
  for (const char* folder : {"client", "exchange", "roomkeys", "protection"}) {
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(CRYPTCLI_SOURCE_DIR) + "/" + folder)) {
      if (entry.path().extension() != ".cpp") continue;
      std::stringstream text;
      text << std::ifstream(entry.path()).rdbuf();
      const std::string source = text.str();
      for (std::sregex_iterator found(source.begin(), source.end(), call), end; found != end; ++found) {
        messages.insert((*found)[1]);
      }
    }
  }
  return messages;
}

// These carry another message whole, or say what no caller can act on.
const std::set<std::string> kWithoutOwnCode = {"%s",
                                               "%s: %s",
                                               "%lld %s",
                                               "No HTTP service",
                                               "Could not create enveloped data",
                                               "Could not add inner signing certificate to store"};

TEST(Classify, KnowsEveryMessageOfTheClass) {
  const std::set<std::string> messages = ReadMessages();
  EXPECT_GT(messages.size(), 60U);
  for (const std::string& message : messages) {
    if (kWithoutOwnCode.contains(message)) continue;
    EXPECT_NE(Classify(message, {}), CRYPTCLI_INTERNAL) << message;
  }
}

// A source that another program changes is no fault of a server that signs, nor of the file's content.
TEST(Classify, BlamesTheFileThatChangesForWhatItDoes) {
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

// Weak keys and digests in the chain are faults of the signer, a weak digest of the content one of the
// message.
TEST(Classify, TellsAWeakChainFromADamagedMessage) {
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

TEST(Classify, LooksAtTheExchangeBehindAMessage) {
  const FailedExchange notFound{true, true, true, 404, {}};
  EXPECT_EQ(Classify("Could not get room key: HTTP 404", notFound), CRYPTCLI_UNKNOWN_ROOM);
  const FailedExchange silent{true, false, false, 0, "Gave up waiting for host:1: timed out"};
  EXPECT_EQ(Classify("Could not connect to key server: Gave up waiting for host:1: timed out", silent),
            CRYPTCLI_TIMEOUT);
  // An exchange that failed before does not explain a later message.
  EXPECT_EQ(Classify("Could not verify signature: The content is not what was signed", notFound),
            CRYPTCLI_DAMAGED);
}

TEST(Classify, CallsOnlyARefusedUploadAConflict) {
  for (const std::uint32_t status : {409U, 412U}) {
    const std::string reason = "HTTP " + std::to_string(status);
    const FailedExchange upload{true, true, true, status, {}, true};
    EXPECT_EQ(Classify("Could not upload new room key: " + reason, upload), CRYPTCLI_CONFLICT) << status;
    const FailedExchange other{true, true, true, status, {}, false};
    EXPECT_EQ(Classify("Could not get room key: " + reason, other), CRYPTCLI_SERVER_ERROR) << status;
    EXPECT_FALSE(IsRetryable(CRYPTCLI_SERVER_ERROR, "Could not get room key: " + reason, other)) << status;
    const FailedExchange keyServer{true, true, false, status, {}, false};
    EXPECT_EQ(Classify(reason, keyServer), CRYPTCLI_SERVER_ERROR) << status;
  }
}

TEST(Classify, DoesNotBlameAServerForAFullDisk) {
  const FailedExchange full{
      true, false, false, 0,
      "Could not receive the response from host:1: could not write \"log\": No space left on "
      "device"};
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
