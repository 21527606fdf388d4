// A server that protects the uploads of its users, with a pool of threads. Each FILE takes the place of the
// body of a request: example_uploads SERVICE-URL ROOM DIRECTORY FILE...
#include <atomic>
#include <cryptcli/cryptcli.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stop_token>
#include <string>
#include <syncstream>
#include <system_error>
#include <thread>
#include <vector>

namespace {

/// The body of a request, with the name for its protected file.
struct Upload {
  std::string id;  // chosen by the server: a name from a user must not become a path
  std::string body;
};

/// Protects uploads. Used by all threads at once, so nothing in it changes.
struct Server {
  cryptcli::Client client;  // one for all threads
  std::string room;
  std::filesystem::path directory;

  // Returns the HTTP status for the user. The reason goes to the operator only.
  int Handle(const Upload& upload, const std::stop_token& stop) const {
    const auto stored = client.Encrypt(room, cryptcli::Source::FromMemory(upload.body),
                                       directory / (upload.id + ".p7m"), {.stop = stop});
    if (stored) return 201;
    const cryptcli::Error& error = stored.error();
    std::osyncstream(std::cerr) << upload.id << ": " << ToString(error.code) << ": " << error.message << "\n";
    return error.retryable ? 503 : 500;
  }
};

bool ReadBody(const char* path, std::string& body) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return false;
  std::ifstream file(path, std::ios::binary);
  body.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return file.good();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::cerr << "usage: example_uploads SERVICE-URL ROOM DIRECTORY FILE...\n";
    return 2;
  }
  auto client = cryptcli::Client::Create({.service = argv[1]});
  if (!client) {
    std::cerr << client.error().message << "\n";
    return 1;
  }
  const Server server{*std::move(client), argv[2], argv[3]};

  std::vector<Upload> uploads;
  for (int i = 4; i < argc; ++i) {
    uploads.push_back({"upload-" + std::to_string(i - 4), {}});
    if (!ReadBody(argv[i], uploads.back().body)) return std::cerr << "Could not read " << argv[i] << "\n", 2;
  }
  std::atomic<std::size_t> next = 0;
  std::atomic<int> failed = 0;
  const auto work = [&](const std::stop_token& stop) {
    for (std::size_t i = next++; i < uploads.size(); i = next++) {
      const int status = server.Handle(uploads[i], stop);
      if (status != 201) ++failed;
      std::osyncstream(std::cout) << status << " " << uploads[i].id << "\n";
    }
  };
  std::vector<std::jthread> pool(4);
  for (std::jthread& thread : pool) thread = std::jthread(work);
  // Waits for the threads. The destructor of a jthread would request a stop, which cancels uploads in
  // progress; a cancelled upload leaves no incomplete file.
  for (std::jthread& thread : pool) thread.join();
  return failed == 0 ? 0 : 1;
}
