// Sends every request through the application's own HTTP stack, here libcurl with a handle for each thread:
// example_transport SERVICE-URL ROOM FILE
#include <cryptcli/cryptcli.hpp>
#include <curl/curl.h>
#include <iostream>
#include <memory>
#include <string>

namespace {

using cryptcli::HttpRequest;
using cryptcli::HttpResponse;

// The library takes no larger body from a transport.
constexpr std::size_t kMaxBody = std::size_t{64} * 1024 * 1024;

/// Frees the objects of libcurl.
struct Free {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Headers = std::unique_ptr<curl_slist, Free>;

// No exception may cross libcurl. A result other than `size` makes the exchange fail.
std::size_t TakeBody(const char* bytes, std::size_t, std::size_t size, void* context) noexcept {
  auto& body = *static_cast<std::string*>(context);
  if (size > kMaxBody - body.size()) return 0;
  body.append(bytes, size);
  return size;
}

bool Add(Headers& headers, const cryptcli::Header& header) {
  const std::string line = header.name + (header.value.empty() ? ";" : ": " + header.value);
  curl_slist* const longer = curl_slist_append(headers.get(), line.c_str());
  if (longer == nullptr) return false;
  (void)headers.release();  // now a part of the longer list
  headers.reset(longer);
  return true;
}

// Redirects stay off, and libcurl must not change the path: "." can be the name of a room.
cryptcli::Result<HttpResponse> Send(const HttpRequest& request) {
  thread_local const std::unique_ptr<CURL, Free> handle(curl_easy_init());
  CURL* const curl = handle.get();
  bool ok = curl != nullptr;
  const auto set = [&](CURLoption option, auto value) {
    ok = ok && curl_easy_setopt(curl, option, value) == CURLE_OK;
  };
  Headers headers;
  HttpResponse response;
  if (ok) curl_easy_reset(curl);
  for (const cryptcli::Header& header : request.headers) ok = ok && Add(headers, header);
  set(CURLOPT_URL, std::string(request.url).c_str());
  set(CURLOPT_PATH_AS_IS, 1L);
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.connectTimeout.count()));
  set(CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeout.count()));
  set(CURLOPT_HTTPHEADER, headers.get());
  set(CURLOPT_WRITEFUNCTION, &TakeBody);
  set(CURLOPT_WRITEDATA, static_cast<void*>(&response.body));
  if (request.method == "POST") {
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
    set(CURLOPT_POSTFIELDS, request.body.data());
  }
  if (!ok) return cryptcli::Failure(cryptcli::Status::Internal, "libcurl does not take the request");

  const CURLcode code = curl_easy_perform(curl);
  // Without this the application's users would look for a network that is down instead of a server that is
  // slow.
  const bool isLate = code == CURLE_OPERATION_TIMEDOUT;
  if (code != CURLE_OK) {
    return cryptcli::Failure(isLate ? cryptcli::Status::Timeout : cryptcli::Status::Unreachable,
                             curl_easy_strerror(code));
  }
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  response.status = static_cast<std::uint32_t>(status);
  curl_header* header = nullptr;
  while ((header = curl_easy_nextheader(curl, CURLH_HEADER, -1, header)) != nullptr)
    response.headers.push_back({header->name, header->value});
  return response;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: example_transport SERVICE-URL ROOM FILE\n";
    return 2;
  }
  const std::string file = argv[3];
  if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return 1;
  const auto client = cryptcli::Client::Create({.service = argv[1], .transport = Send});
  const auto verified = client.and_then([&](const cryptcli::Client& made) {
    return made.Encrypt(argv[2], file, file + ".p7m").and_then([&](const cryptcli::Report&) {
      return made.Verify(argv[2], file + ".p7m");
    });
  });
  if (!verified) {
    std::cerr << verified.error().message << "\n";
    return 1;
  }
  std::cout << file << ".p7m: signed by group " << verified->signedGroup << "\n";
  return 0;
}
