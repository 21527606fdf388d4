// Seeds of the targets of the local test environment: one request of each form, and one to each path of the
// control interface.
#include "fuzz/make_seeds.h"
#include "fuzz/support/input.h"

namespace Fuzz {
namespace {

void MakeRequestSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "stand_request");
  folder.Add("get", "GET /status?1 HTTP/1.1\r\nHost: h\r\n\r\n");
  folder.Add("old", "GET / HTTP/1.0\r\n\r\n");
  folder.Add("two", "HEAD /a%2Fb/c HTTP/1.1\r\nHost: h\r\n\r\nGET /?a=%20+b&c HTTP/1.1\r\nHost: h\r\n\r\n");
  folder.Add("post",
             "POST /rest/json HTTP/1.1\r\nHost: h\r\nContent-Type: text/json; charset=utf-8\r\n"
             "Content-Length: 2\r\n\r\n{}");
  folder.Add(
      "chunks",
      "POST /x HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n2;a=b\r\n{}\r\n0\r\nT: v\r\n\r\n");
  folder.Add("continue", "PUT /x HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 1\r\n\r\nx");
  folder.Add("folded", "GET / HTTP/1.1\r\nA: b\r\n c\r\n\r\n");
  folder.Add("escapes", "GET /%zz/%4 HTTP/1.1\r\n\r\n");
  folder.Add("no-method", " / HTTP/1.1\r\n\r\n");
}

// A method by its place in the target's table, a path below /stand/, a body, all with the token.
std::string RequestTo(std::uint32_t method, std::string_view path, std::string_view body) {
  return InputWriter().Below(method, 6).Byte(0).Text(path).Text(body).Get();
}

void MakeControlSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "stand_control");
  constexpr std::uint32_t kGet = 0;
  constexpr std::uint32_t kPost = 1;
  constexpr std::uint32_t kPut = 2;
  constexpr std::uint32_t kDelete = 3;
  folder.Add("index", RequestTo(kGet, "", ""));
  folder.Add("state", RequestTo(kGet, "v1/state", ""));
  folder.Add("faults", RequestTo(kGet, "v1/faults", ""));
  folder.Add("events", RequestTo(kGet, "v1/events?after=0&limit=1&server=crypt&outcome=ok", ""));
  folder.Add("follow", RequestTo(kGet, "v1/events/follow?after=1", ""));
  folder.Add("room", RequestTo(kGet, "v1/rooms/room%201", ""));
  folder.Add("fault", RequestTo(kPost, "v1/faults",
                                R"({"server":"0","fault":"slow","uses":1,"number":5,"probability":0.5})"));
  folder.Add("down", RequestTo(kPost, "v1/faults", R"({"server":"all","fault":"down"})"));
  folder.Add("new-room", RequestTo(kPost, "v1/rooms", R"({"room":"a","locked":true,"group":"QOB.group-1"})"));
  folder.Add("shown", RequestTo(kPost, "v1/rooms", R"({"room":"room 1","certificate":"expired"})"));
  folder.Add("group", RequestTo(kPost, "v1/groups", R"({"group":"b","name":"B"})"));
  folder.Add("key", RequestTo(kPost, "v1/groups/QOB.group-1/integrity-key", ""));
  folder.Add("renew", RequestTo(kPost, "v1/authorities/renew", R"({"authority":"issuing"})"));
  folder.Add("seed", RequestTo(kPost, "v1/seed", R"({"seed":7})"));
  folder.Add("lists",
             RequestTo(kPut, "v1/lists", R"({"certstore":"x","truststore":null,"integrity":"empty"})"));
  folder.Add("clock", RequestTo(kPut, "v1/clocks", R"({"server":"crypt","seconds":-60})"));
  folder.Add("audit", RequestTo(kPut, "v1/audit", R"({"server":1,"rows":9})"));
  folder.Add("settings", RequestTo(kPut, "v1/settings", R"({"statusTimeout":"1","announcedUrls":["u"]})"));
  folder.Add("clear", RequestTo(kDelete, "v1/faults?server=0", ""));
  folder.Add("clear-one", RequestTo(kDelete, "v1/faults/1", ""));
  folder.Add("clear-log", RequestTo(kDelete, "v1/events", ""));
  folder.Add("no-token", InputWriter().Below(kPost, 6).Byte(1).Text("v1/reset").Text("").Get());
  folder.Add("not-utf8", InputWriter().Below(kGet, 6).Byte(0).Text("v1/events?\xFF=1").Text("\xFF").Get());
}

}  // namespace

void MakeStandSeeds(const std::filesystem::path& root) {
  MakeRequestSeeds(root);
  MakeControlSeeds(root);
}

}  // namespace Fuzz
