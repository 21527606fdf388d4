// What a user's program may do with the headers, without any server: check-headers.sh compiles it in each
// mode that is supported, links it with the shared library and runs it. Returns the number of mistakes.
#include <cryptcli/cryptcli.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#if defined(__cpp_exceptions)
#include <stdexcept>
#endif

// check-headers.sh links several of these into one program, each with another name.
#ifndef CONSUMER_NAME
#define CONSUMER_NAME main
#endif
int CONSUMER_NAME();

namespace {

using cryptcli::Client;
using cryptcli::HttpRequest;
using cryptcli::HttpResponse;
using cryptcli::Result;
using cryptcli::Status;

int mistakes = 0;

void Expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  ++mistakes;
}

// Throws if exceptions are on. The result must be an error of the library, in whatever mode the other
// translation units are compiled.
Result<HttpResponse> Send(const HttpRequest& request) {
#if defined(__cpp_exceptions)
  if (request.method == "GET") throw std::runtime_error("no tunnel");
#endif
  return cryptcli::Failure(Status::Unreachable, request.url.empty() ? "no URL" : "no tunnel");
}

Result<Client> MakeClient(std::string& log) {
  return Client::Create({.service = "https://crypt.example/api",
                         .headers = {{"Authorization", "Bearer 7"}},
                         .timeout = std::chrono::seconds(1),
                         .log = {.level = cryptcli::LogLevel::Debug,
                                 .write = [&](cryptcli::LogLevel, std::string_view line) { log += line; }},
                         .transport = Send});
}

void UseFiles(const Client& client) {
  const std::stop_source stop;
  std::string text = "as before";
  std::vector<std::byte> bytes;
  const auto made =
      client.Encrypt("room", cryptcli::Source::FromMemory("content"), cryptcli::Target::ToMemory(text));
  Expect(!made && made.error().code == Status::Unreachable, "Encrypt needs the service");
  Expect(!made && made.error().message.find("no tunnel") != std::string::npos,
         "the transport's reason comes back");
  Expect(text == "as before", "a target in memory stays");
  const auto opened =
      client.Decrypt("room", cryptcli::Source::FromMemory("no message"), cryptcli::Target::ToMemory(bytes),
                     {.accept = cryptcli::Policy::AnySigner,
                      .progress = [](std::uint64_t done, std::uint64_t total) { return done <= total; },
                      .stop = stop.get_token()});
  Expect(!opened && opened.error().code == Status::NotProtected, "Decrypt needs a protected file");
  Expect(!client.Verify("room", "/nowhere").has_value(), "Verify needs a file");
  Expect(!client.Rekey("room", std::string("/nowhere")).has_value(), "Rekey needs a file");
  Expect(!Client::Inspect(cryptcli::Source::FromDescriptor(-1)).has_value(), "Inspect needs a file");
  Expect(!client.Encrypt("room", "/dev/null", cryptcli::Target::ToDescriptor(-1)), "Encrypt needs a target");
}

void UseServers(const Client& client) {
  Expect(!client.Room("room").has_value(), "Room needs the service");
  const auto check = client.Check().transform([](const std::string& json) { return json.size(); });
  Expect(check.value_or(0U) > 0, "Check reports a service that is down");
  const auto performed =
      client.Perform("NoSuch", "{}").or_else([](const cryptcli::Error& error) -> Result<std::string> {
        return std::string(ToString(error.code));
      });
  Expect(performed.value() == "invalid_argument", "Perform refuses an unknown operation");
}

}  // namespace

int CONSUMER_NAME() {
  std::string log;
  auto client = MakeClient(log);
  Expect(client.has_value(), "a client is made");
  if (!client) return mistakes;
  UseFiles(*client);
  UseServers(*client);
  Expect(!log.empty(), "the log gets messages");
  Expect(!cryptcli::Version().empty() && !cryptcli::BuildInfo().empty(), "the library has a version");
  const auto length =
      Client::Create({}).and_then([](const Client&) -> Result<std::size_t> { return std::size_t{0}; });
  Expect(!length && length.error().code == Status::InvalidArgument, "a client needs a service");
  return mistakes;
}
