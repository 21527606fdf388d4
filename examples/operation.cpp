// Performs a named operation, with its arguments as JSON from standard input, and prints its result:
// example_operation SERVICE-URL OPERATION <ARGUMENTS
//
//     {"keyserver": ["https://ks1.example.com"], "object": "room-1", "id": "integrity",
//      "algorithm": "RSASSA-PKCS1-v1_5-SHA-512", "hash": "..."}
//
// are arguments of the operation SignByKey.
#include <cryptcli/cryptcli.hpp>
#include <iostream>
#include <iterator>
#include <string>

namespace {

// Prints each key server that failed, with the reason: an operation tries them one after another.
int Fail(const cryptcli::Error& error) {
  std::cerr << error.message << "\n";
  for (const cryptcli::Attempt& attempt : error.attempts)
    std::cerr << "  " << attempt.server << ": " << attempt.message << "\n";
  // Unknown, missing and mistyped arguments are refused before anything is sent.
  if (error.code == cryptcli::Status::InvalidArgument) return 2;
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: example_operation SERVICE-URL OPERATION <ARGUMENTS\n"
              << cryptcli::Operations() << "\n";
    return 2;
  }
  const std::string arguments{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};

  const auto client = cryptcli::Client::Create({.service = argv[1]});
  if (!client) return Fail(client.error());

  const auto result = client->Perform(argv[2], arguments);
  if (!result) return Fail(result.error());
  std::cout << *result << "\n";
  return 0;
}
