#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "client/cryptcli.h"
#include "stand/stand.h"
#include "tests/support/files.h"
#include "tests/support/text.h"
#include "transport/curlhttp.h"

namespace TestSupport {

/// The outcome of Decrypt.
struct Opened {
  bool done = false;
  bool isSigned = false;
  bool isVerified = false;
  std::string error;
};

/// A crypt service and three key servers in this process, a transport to them over real HTTP, and a directory
/// for files. A temporary file that is still there at the end fails the test.
class EndToEndTest : public ::testing::Test {
 protected:
  static constexpr const char* kRoom = "demo";

  void SetUp() override;

  /// Protects one file with a client of its own; the reason of a failure goes to lastError.
  bool Encrypt(std::string_view source, std::string_view target, std::string_view room = kRoom);
  Opened Decrypt(std::string_view source, std::string_view target, std::string_view room = kRoom);
  /// Makes the file "plain" with the bytes and protects it as "secret".
  void Protect(std::string_view bytes, std::string_view room = kRoom);
  /// Opens "secret" and demands the bytes, a signature and a proven origin.
  void ExpectComesBack(std::string_view bytes, std::string_view room = kRoom);

  void SetFault(int server, const CryptStand::Fault& fault) { ASSERT_TRUE(stand.SetFault(server, fault)); }
  /// The same fault on all three key servers.
  void SetFaults(const CryptStand::Fault& fault);
  /// How many requests of an operation the servers have carried out or refused.
  std::size_t CountRequests(std::string_view operation) const;
  std::vector<std::string> GetOperations() const;

  ScratchDirectory scratch;
  CryptStand::Stand stand;
  OruKalvix::CryptClientCurl::Ptr http;
  bool keyErrorFlag = false;
  std::string lastError;
};

}  // namespace TestSupport
