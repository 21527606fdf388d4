#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include "tests/support/client_internals_fixture.h"

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

// Clients on two threads share transport, strings, lists and the base of the rotation.
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

// Two threads that rotate at once each take every server of their lists.
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

// Two threads that are the first to ask for the base of the rotation get one and the same, made once.
TEST(ThreadsDeathTest, MakeTheBaseOnce) {
  // A process of its own, in which nobody has asked for the base yet.
  const std::string before = GTEST_FLAG_GET(death_test_style);
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto run = [] {
    const std::uint32_t* bases[2] = {};
    std::uint32_t values[2] = {};
    const auto ask = [&](int i) {
      bases[i] = CryptClientTestPeer::GetKeyServerBase();
      values[i] = *bases[i];
    };
    std::thread one(ask, 0);
    std::thread two(ask, 1);
    one.join();
    two.join();
    std::_Exit(bases[0] != nullptr && bases[0] == bases[1] && values[0] == values[1] ? 0 : 1);
  };
  EXPECT_EXIT(run(), ::testing::ExitedWithCode(0), "");
  GTEST_FLAG_SET(death_test_style, before);
}

// Operations by their names run side by side, each with a client of its own.
TEST(Threads, PerformOperationsSideBySide) {
  Shared shared;
  shared.http.On("GET", "/status?", Alive());
  shared.http.On("POST", "/crypt/authztoken/", Token("t"));
  shared.http.On("POST", "/rest/json", Payload(R"({"type":"reencryptResponse"})"));
  OruGuiBase::KVMap arguments;
  arguments.Set("keyserver", OruGuiBase::Val(shared.servers));
  arguments.Set("group", "g");
  const auto perform = [&](std::string_view operation, int& succeeded) {
    for (int i = 0; i < kRounds; ++i) {
      OruGuiBase::Val result;
      AnsiStr error;
      const std::int32_t code = CryptClient::PerformOperation(&shared.http, shared.service, "",
                                                              Ansi(operation), arguments, result, error);
      if (code == 0 && error.IsEmpty() && result.GetType() == OruGuiBase::ValType::Map) ++succeeded;
    }
  };
  int good = 0;
  int bad = 0;
  std::thread one([&] { perform("Reencrypt", good); });
  std::thread two([&] { perform("ConfigGroup", bad); });
  one.join();
  two.join();
  EXPECT_EQ(good, kRounds);
  EXPECT_EQ(bad, 0);
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
