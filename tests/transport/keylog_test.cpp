// A variable of the environment does not make the transport write the secrets of its sessions to a file.
// libcurl looks at it once for each process, so each case has one of its own.
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <curl/curl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "stand/certmaker.h"
#include "tests/support/files.h"
#include "tests/transport/transporttest.h"

namespace TestSupport {
namespace {

using CryptStand::CertSpec;
using CryptStand::Identity;
using CryptStand::KeyPair;

constexpr const char* kBody = "secure";
constexpr const char* kAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: close\r\n\r\nsecure";

/// Serves one TLS connection on a loopback port.
class OneSession {
 public:
  explicit OneSession(const Identity& server) : context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
    SSL_CTX_use_certificate(context_.get(), server.certificate.Get0());
    SSL_CTX_use_PrivateKey(context_.get(), server.key.Get0());
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, generic, size) != 0 || ::listen(listener_, 1) != 0 ||
        ::getsockname(listener_, generic, &size) != 0) {
      std::abort();
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Serve(); });
  }
  OneSession(const OneSession&) = delete;
  OneSession& operator=(const OneSession&) = delete;
  ~OneSession() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }

  std::string Url() const { return "https://127.0.0.1:" + std::to_string(port_) + "/"; }

 private:
  void Serve() const {
    const int socket = ::accept(listener_, nullptr, nullptr);
    if (socket < 0) return;
    const std::unique_ptr<SSL, decltype(&SSL_free)> session(SSL_new(context_.get()), SSL_free);
    SSL_set_fd(session.get(), socket);
    char request[4096];
    if (SSL_accept(session.get()) == 1 && SSL_read(session.get(), request, sizeof request) > 0) {
      SSL_write(session.get(), kAnswer, static_cast<int>(std::strlen(kAnswer)));
      SSL_shutdown(session.get());
    }
    ::close(socket);
  }

  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::thread thread_;
};

class CurlKeyLog : public ::testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has not used libcurl yet
    WriteFile(scratch_.Path("ca.pem"), authority_.certificate.ToPEM());
    CertSpec spec = CertSpec::EndEntity("server");
    spec.extensions.emplace_back("subjectAltName", "IP:127.0.0.1");
    server_ = Identity::MakeIssued(spec, authority_, KeyPair::MakeEC());
    setenv("SSLKEYLOGFILE", Log().c_str(), 1);
  }
  void TearDown() override { unsetenv("SSLKEYLOGFILE"); }

  std::filesystem::path Log() const { return scratch_.Path("keys.log"); }
  /// Ends the process of a case: 0 if the exchange went well and the log is as it was expected.
  [[noreturn]] void Leave(bool answered, bool isWritten) const {
    std::ifstream file(Log(), std::ios::binary);
    const std::string log(std::istreambuf_iterator<char>(file), {});
    std::fputs(log.c_str(), stderr);
    const bool asExpected = isWritten ? log.find("CLIENT_") != std::string::npos : log.empty();
    std::filesystem::remove_all(scratch_.Path(""));
    if (!answered) std::_Exit(1);
    std::_Exit(asExpected ? 0 : 2);
  }
  std::string AskByTransport() const {
    OruKalvix::CryptClientCurlOptions options;
    options.caFile = Ansi(scratch_.Path("ca.pem").string());
    const OneSession session(server_);
    return Send(*MakeCurl(options), session.Url()).body;
  }
  bool AskByLibcurlAlone() const {
    const OneSession session(server_);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CURL* const handle = curl_easy_init();
    curl_easy_setopt(handle, CURLOPT_URL, session.Url().c_str());
    curl_easy_setopt(handle, CURLOPT_CAINFO, scratch_.Path("ca.pem").c_str());
    curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
    const bool answered = curl_easy_perform(handle) == CURLE_OK;
    curl_easy_cleanup(handle);
    curl_global_cleanup();
    return answered;
  }

  ScratchDirectory scratch_;
  Identity authority_ = Identity::MakeRoot(CertSpec::Authority("Test CA"), KeyPair::MakeEC());
  Identity server_;
};

TEST_F(CurlKeyLog, OfTheEnvironmentStaysEmpty) {
  EXPECT_EXIT(Leave(AskByTransport() == kBody, false), testing::ExitedWithCode(0), "");
}

// Proof that the case above could fail.
TEST_F(CurlKeyLog, IsWrittenByLibcurlAlone) {
  EXPECT_EXIT(Leave(AskByLibcurlAlone(), true), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace TestSupport
