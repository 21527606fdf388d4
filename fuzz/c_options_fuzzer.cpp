// Calls the setters of the C interface's options with strings of the input, makes a client, and looks at the
// requests that a client with a transport callback sends.
#include <cryptcli/cryptcli.h>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/support/c_client.h"
#include "fuzz/support/input.h"
#include "fuzz/support/require.h"
#include "fuzz/support/scratch.h"

namespace {

using Fuzz::CResult;
using Fuzz::Require;

constexpr std::uint32_t kMostSettings = 16;  // each setter twice; more would only take time

bool HasControlCharacter(std::string_view text) {
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) return true;
  }
  return false;
}

// The transport: refuses every exchange. A request must stay one request, whatever the options are.
std::int32_t Refuse(void*, const cryptcli_request* request, cryptcli_response* response) {
  Require(!HasControlCharacter(cryptcli_request_url(request)), "a URL is one line");
  for (std::size_t i = 0; i < cryptcli_request_header_count(request); ++i) {
    const std::string_view name = cryptcli_request_header_name(request, i);
    Require(!name.empty() && !HasControlCharacter(name) && name.find_first_of(" :") == std::string_view::npos,
            "a header has a name");
    Require(!HasControlCharacter(cryptcli_request_header_value(request, i)), "a header is one line");
  }
  return cryptcli_response_set_error(response, "No connection") == 0 ? -1 : -2;
}

// Files are named in a directory that does not exist: a device such as /dev/zero would have no end.
std::string Path(Fuzz::Input& input) {
  return "/nowhere/" + input.Text();
}

cryptcli_status SetOne(cryptcli_options* options, Fuzz::Input& input, cryptcli_error** error) {
  switch (input.Below(8)) {
    case 0:
      return cryptcli_options_set_service(options, input.Text().c_str(), error);
    case 1:
      return cryptcli_options_set_ca_file(options, Path(input).c_str(), error);
    case 2: {
      const std::string certificate = Path(input);
      const std::string key = Path(input);
      return cryptcli_options_set_client_certificate(options, input.Flag() ? certificate.c_str() : nullptr,
                                                     input.Flag() ? key.c_str() : nullptr, nullptr, error);
    }
    case 3:
      return cryptcli_options_set_proxy(options, input.Text().c_str(), error);
    case 4: {
      const std::string name = input.Text();
      return cryptcli_options_add_header(options, name.c_str(), input.Text().c_str(), error);
    }
    case 5:
      return cryptcli_options_set_temporary_directory(options, Path(input).c_str(), error);
    case 6:
      cryptcli_options_set_timeout(options, input.Below(65536));
      cryptcli_options_set_connect_timeout(options, input.Below(65536));
      return CRYPTCLI_OK;
    default:
      cryptcli_options_set_log(
          options, input.Byte(), [](void*, cryptcli_log_level, const char*) {}, nullptr, input.Byte());
      return CRYPTCLI_OK;
  }
}

void Encrypt(const cryptcli_client* client, Fuzz::Input& input) {
  CResult result;
  const cryptcli_status status =
      cryptcli_encrypt(client, input.Text().c_str(), cryptcli_path("/dev/null"), cryptcli_path("/nowhere/x"),
                       nullptr, &result.report, &result.error);
  Require(status != CRYPTCLI_OK, "nothing is protected without a server");
  result.Check(status);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fuzz::Input input(data, size);
  const Fuzz::Scratch& scratch = Fuzz::Scratch::Get();
  const bool isCallback = !input.Flag();
  cryptcli_options* const options = cryptcli_options_new();
  for (std::uint32_t i = 0; i < kMostSettings && !input.IsEmpty(); ++i) {
    CResult result;
    const cryptcli_status status = SetOne(options, input, &result.error);
    Require(status == CRYPTCLI_OK || status == CRYPTCLI_INVALID_ARGUMENT, "an option is taken or refused");
    result.Check(status);
  }
  if (isCallback) cryptcli_options_set_transport(options, &Refuse, nullptr);
  cryptcli_client* client = nullptr;
  {
    CResult result;
    const cryptcli_status status = cryptcli_client_new(options, &client, &result.error);
    Require((client != nullptr) == (status == CRYPTCLI_OK), "a client comes with success alone");
    result.Check(status);
  }
  cryptcli_options_free(options);
  if (client != nullptr && isCallback) Encrypt(client, input);
  cryptcli_client_free(client);
  Require(scratch.IsTemporaryEmpty(), "no temporary file is left");
  return 0;
}
