// The address to listen on, and the host in URLs.
#include "tests/stand/stand_peer.h"

namespace CryptStand {
namespace {

using testing::StartsWith;

Options ListenOptions(const std::string& listen, const std::string& announce = "") {
  Options options;
  options.listen = listen;
  options.announce = announce;
  return options;
}

TEST(ListenTest, HasTheAddressInItsUrls) {
  const struct {
    const char* listen;
    const char* announce;
    const char* url;
    const char* reason;
  } rows[] = {{"127.0.0.1", "", "http://127.0.0.1:", "the default"},
              {"127.0.0.2", "", "http://127.0.0.2:", "another address"},
              {"::1", "", "http://[::1]:", "IPv6 goes into brackets"},
              {"0.0.0.0", "", "http://localhost:", "no client connects to all addresses"},
              {"::", "", "http://localhost:", "nor to all of IPv6"},
              {"0.0.0.0", "127.0.0.3", "http://127.0.0.3:", "announced"}};
  for (const auto& row : rows) {
    Stand stand(ListenOptions(row.listen, row.announce));
    std::string error;
    ASSERT_TRUE(stand.Start(error)) << error;
    EXPECT_THAT(stand.GetServiceUrl(), StartsWith(row.url)) << row.reason;
    EXPECT_THAT(stand.GetKeyServerUrls().front(), StartsWith(row.url)) << row.reason;
    EXPECT_EQ(Get(stand.GetServiceUrl() + "crypt/key/demo").Text("room"), "demo") << row.reason;
    EXPECT_EQ(Get(stand.GetKeyServerUrls().back() + "/status").status, 200) << row.reason;
  }
}

TEST(ListenTest, KeepsItsPortWhileDown) {
  Stand stand(ListenOptions("0.0.0.0"));
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  const std::string url = stand.GetKeyServerUrls().front() + "/status";
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(stand.SetFault(0, {.type = FaultType::Down}));
    EXPECT_EQ(Get(url).status, 0);
    ASSERT_TRUE(stand.ClearFaults(0));
    EXPECT_EQ(Get(url).status, 200);
  }
}

TEST(ListenTest, CertifiesTheAnnouncedHost) {
  Options options = ListenOptions("0.0.0.0", "127.0.0.3");
  options.tls = true;
  Stand stand(options);
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  EXPECT_THAT(stand.GetServiceUrl(), StartsWith("https://127.0.0.3:"));
  EXPECT_EQ(Peer({stand.GetServerAuthority()}).Send("GET", stand.GetServiceUrl() + "crypt/key/demo").status,
            200);
}

TEST(ListenTest, ServesItsPageUnderAnAnnouncedIPv6Address) {
  Stand stand(ListenOptions("::", "fd00:0::1"));
  std::string error;
  ASSERT_TRUE(stand.Start(error)) << error;
  const std::string url = stand.GetServiceUrl();
  ASSERT_THAT(url, StartsWith("http://[fd00:0::1]:"));
  const std::string port = url.substr(url.find("]:") + 1);
  // Browsers write an address in its shortest form.
  for (const std::string host : {"[fd00:0::1]", "[fd00::1]"}) {
    const Reply reply = Peer().Send("GET", "http://[::1]" + port + "stand/v1/events", std::nullopt,
                                    {{"Host", host + port.substr(0, port.size() - 1)}});
    EXPECT_EQ(reply.status, 200) << host << reply.body;
  }
}

TEST(ListenTest, SaysWhichAddressCannotBeUsed) {
  const std::pair<Options, std::string> rows[] = {
      {ListenOptions("localhost"), "localhost: not an IP address"},
      {ListenOptions("127.0.0.1", "a/b"), "The announced host is neither a name nor an IP address"},
      {ListenOptions("127.0.0.1", "a,DNS:b"), "The announced host is neither a name nor an IP address"}};
  for (const auto& [options, reason] : rows) {
    Stand stand(options);
    std::string error;
    EXPECT_FALSE(stand.Start(error));
    EXPECT_EQ(error, reason);
  }
}

}  // namespace
}  // namespace CryptStand
