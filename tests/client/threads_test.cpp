#include <thread>

#include "tests/support/clienttest.h"

namespace OruKalvix {
namespace {

using OruGuiBase::AnsiStr;
using TestSupport::Alive;
using TestSupport::Ansi;
using TestSupport::Payload;
using TestSupport::ScriptedHttp;
using TestSupport::Str;
using TestSupport::Strings;
using TestSupport::Token;

constexpr int kRounds = 200;

struct Shared {
  ScriptedHttp http;
  AnsiStr service{"https://crypt.example"};
  AnsiStr room{"room"};
  OruGuiBase::Array<OruGuiBase::Val> servers = Strings({"https://one", "https://two", "https://three"});
  OruGuiBase::KVMap handle = CryptClient::GetKeyHandle("key", "1");
};

// Signs with a new client each time; returns how often it went well.
int SignOften(Shared& shared) {
  int signatures = 0;
  for (int i = 0; i < kRounds; ++i) {
    CryptClient client(&shared.http, shared.service, "", shared.room);
    client.SetKeyServer(shared.servers);
    AnsiStr signature;
    if (client.Sign(shared.handle, "RSA", "AAAA", signature) && signature == "c2lnbmVk") ++signatures;
  }
  return signatures;
}

TEST(Threads, ShareTransportValuesAndTheBaseWithoutALock) {
  Shared shared;
  shared.http.On("GET", "/status?", Alive());
  shared.http.On("POST", "/crypt/authztoken/", Token("t"));
  shared.http.On("POST", "/rest/json", Payload(R"({"type":"signResponse","signedHashes":["c2lnbmVk"]})"));
  int first = 0;
  int second = 0;
  std::thread one([&] { first = SignOften(shared); });
  std::thread two([&] { second = SignOften(shared); });
  one.join();
  two.join();
  EXPECT_EQ(first, kRounds);
  EXPECT_EQ(second, kRounds);
  EXPECT_EQ(shared.http.GetAddRefs(), 2U * kRounds);
  EXPECT_EQ(shared.http.GetReleases(), 2U * kRounds);
}

// Without the scripted transport, whose lock would order the threads.
int RotateOften(const Shared& shared) {
  int taken = 0;
  for (int i = 0; i < kRounds; ++i) {
    CryptClient client(nullptr, shared.service, "", shared.room);
    client.SetKeyServer(shared.servers);
    KeyServerCursor& cursor = CryptClientTestPeer(client).keyServerCursor;
    while (CryptClientTestPeer::NextKeyServer(cursor)) {
      if (cursor.keyServerUrl.View().starts_with("https://")) ++taken;
    }
  }
  return taken;
}

TEST(Threads, RotateSideBySide) {
  const Shared shared;
  int first = 0;
  int second = 0;
  std::thread one([&] { first = RotateOften(shared); });
  std::thread two([&] { second = RotateOften(shared); });
  one.join();
  two.join();
  EXPECT_EQ(first, 3 * kRounds);
  EXPECT_EQ(second, 3 * kRounds);
  EXPECT_LT(*CryptClientTestPeer::GetKeyServerBase(), 3U);
}

TEST(Threads, MakeTheBaseOnce) {
  std::uint32_t* first = nullptr;
  std::uint32_t* second = nullptr;
  std::thread one([&] { first = CryptClientTestPeer::GetKeyServerBase(); });
  std::thread two([&] { second = CryptClientTestPeer::GetKeyServerBase(); });
  one.join();
  two.join();
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(first, second);
}

TEST(Threads, KeepTheFailureOfEachClientItsOwn) {
  ScriptedHttp http;
  CryptClient one(&http, "", "", "");
  CryptClient two(&http, "", "", "");
  std::thread first([&] {
    for (int i = 0; i < kRounds; ++i) one.SetStatusTimeout("one");
  });
  std::thread second([&] {
    for (int i = 0; i < kRounds; ++i) two.SetStatusTimeout("two");
  });
  first.join();
  second.join();
  EXPECT_EQ(Str(one.GetErrorMessage()), "Invalid timeout value [one]");
  EXPECT_EQ(Str(two.GetErrorMessage()), "Invalid timeout value [two]");
}

}  // namespace
}  // namespace OruKalvix
