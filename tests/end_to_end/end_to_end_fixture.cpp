#include "tests/end_to_end/end_to_end_fixture.h"

#include <algorithm>

using OruKalvix::CryptClient;
using OruKalvix::CryptClientCurl;

namespace TestSupport {

void EndToEndTest::SetUp() {
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  OruGuiBase::AnsiStr reason;
  http = CryptClientCurl::Create({}, reason);
  ASSERT_NE(http, nullptr) << reason.GetText();
}

bool EndToEndTest::Encrypt(std::string_view source, std::string_view target, std::string_view room) {
  CryptClient client(http.get(), Ansi(stand.GetServiceUrl()), "", Ansi(room));
  const bool done = client.Encrypt(scratch.File(source), scratch.File(target), keyErrorFlag);
  lastError = Str(client.GetErrorMessage());
  return done;
}

Opened EndToEndTest::Decrypt(std::string_view source, std::string_view target, std::string_view room) {
  CryptClient client(http.get(), Ansi(stand.GetServiceUrl()), "", Ansi(room));
  Opened opened;
  opened.done =
      client.Decrypt(scratch.File(source), scratch.File(target), opened.isSigned, opened.isVerified);
  opened.error = Str(client.GetErrorMessage());
  return opened;
}

void EndToEndTest::Protect(std::string_view bytes, std::string_view room) {
  scratch.Make("plain", bytes);
  ASSERT_TRUE(Encrypt("plain", "secret", room)) << lastError;
}

void EndToEndTest::ExpectComesBack(std::string_view bytes, std::string_view room) {
  const Opened opened = Decrypt("secret", "opened", room);
  ASSERT_TRUE(opened.done) << opened.error;
  EXPECT_TRUE(opened.isSigned);
  EXPECT_TRUE(opened.isVerified) << opened.error;
  EXPECT_EQ(scratch.Read("opened"), bytes);
}

void EndToEndTest::SetFaults(const CryptStand::Fault& fault) {
  for (int server = 0; server < 3; ++server) ASSERT_TRUE(stand.SetFault(server, fault));
}

std::vector<std::string> EndToEndTest::GetOperations() const {
  std::vector<std::string> operations;
  for (const CryptStand::Event& event : stand.GetEvents()) operations.push_back(event.operation);
  return operations;
}

std::size_t EndToEndTest::CountRequests(std::string_view operation) const {
  const std::vector<std::string> operations = GetOperations();
  return static_cast<std::size_t>(std::count(operations.begin(), operations.end(), operation));
}

}  // namespace TestSupport
