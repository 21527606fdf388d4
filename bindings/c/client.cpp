// Makes clients: checks the options as a whole and builds the transport. No server is asked here; the files
// that the options name are read, so that an application learns of a wrong one when it starts.
#include "bindings/c/client.h"

#include <cstdint>
#include <new>
#include <utility>

#include "bindings/c/boundary.h"
#include "bindings/c/text.h"
#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "foundation/stream.h"

using CryptCliC::Fail;
using CryptCliC::Guarded;
using CryptCliC::ToAnsi;
using CryptCliC::ToString;
using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;

namespace {

// Far more than any password. A device such as /dev/zero never ends.
constexpr std::uint32_t kMaxPasswordFile = 64 * 1024;

// The password is the first line of the file, without its end.
cryptcli_status ReadPassword(const std::string& path, AnsiStr& password, cryptcli_error** error) {
  OruGuiBase::FileReader reader;
  AnsiStr text;
  char* const bytes = text.Alloc(kMaxPasswordFile + 1);
  if (bytes == nullptr) throw std::bad_alloc();
  const std::int64_t got =
      reader.Open(OruGuiBase::File(ToAnsi(path))) ? reader.Read(bytes, kMaxPasswordFile + 1) : -1;
  if (got < 0) {
    return Fail(error, CRYPTCLI_IO,
                "Could not read \"" + path + "\": " + ToString(OruGuiBase::GetSystemErrorText()));
  }
  if (got > kMaxPasswordFile) {
    return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "The password file \"" + path + "\" is larger than 64 KiB");
  }
  text.Trunc(static_cast<std::uint32_t>(got));
  OruGuiBase::LineIterator lines(text);
  if (lines.ToNext()) password = lines.GetLine();
  return CRYPTCLI_OK;
}

// By the rule for the service's URL: no later attempt reaches a proxy of another type, and a password in the
// URL would get into messages and logs. Without the reason's own first words.
cryptcli_status CheckProxy(const AnsiStr& url, cryptcli_error** error) {
  OruKalvix::UrlParts parts;
  AnsiStr reason;
  if (url.IsEmpty() || OruKalvix::ParseUrl(url, parts, reason)) return CRYPTCLI_OK;
  const std::string text = ToString(reason);
  return Fail(error, CRYPTCLI_INVALID_ARGUMENT,
              "Invalid URL of the proxy: " + text.substr(text.find(": ") + 2));
}

cryptcli_status MakeTransport(cryptcli_client& client, cryptcli_error** error) {
  const cryptcli_options& options = client.options;
  if (options.transport != nullptr) {
    client.callback =
        std::make_unique<CryptCliC::CallbackTransport>(options.transport, options.transportContext);
    return CRYPTCLI_OK;
  }
  const cryptcli_status proxy = CheckProxy(options.curl.proxy, error);
  if (proxy != CRYPTCLI_OK) return proxy;
  // The transport asks for credentials only where a request goes to the crypt service or below it. Its option
  // `headers` would send them to key servers too.
  OruKalvix::CryptClientCurlOptions curl = options.curl;
  curl.serviceUrl = ToAnsi(options.service);
  if (!options.serviceHeaders.IsEmpty()) {
    curl.credentials = [headers = options.serviceHeaders](const AnsiStr&, const AnsiStr&, KVMap& given,
                                                          AnsiStr&) {
      given = headers;
      return true;
    };
  }
  if (!options.clientKeyPasswordFile.empty()) {
    const cryptcli_status status = ReadPassword(options.clientKeyPasswordFile, curl.clientKeyPassword, error);
    if (status != CRYPTCLI_OK) return status;
  }
  AnsiStr reason;
  client.curl = OruKalvix::CryptClientCurl::Create(curl, reason);
  return client.curl != nullptr ? CRYPTCLI_OK : Fail(error, CRYPTCLI_INVALID_ARGUMENT, reason.View());
}

}  // namespace

bool CryptCliC::CheckRoom(const cryptcli_client* client, const char* room, cryptcli_error** error) {
  if (client == nullptr) return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No client"), false;
  const bool isRoom = room != nullptr && *room != '\0' && IsUtf8(room);
  if (!isRoom) return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "The room is empty or not UTF-8"), false;
  return true;
}

bool cryptcli_client::IsAtService(const AnsiStr& url) const {
  OruKalvix::UrlParts parts;
  AnsiStr reason;
  return OruKalvix::ParseUrl(url, parts, reason) && OruKalvix::IsAtOrBelow(service, parts);
}

cryptcli_status cryptcli_client_new(const cryptcli_options* options, cryptcli_client** client,
                                    cryptcli_error** error) {
  if (client != nullptr) *client = nullptr;
  return Guarded(error, [&]() -> cryptcli_status {
    if (options == nullptr || client == nullptr)
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No options or no client");
    if (options->service.empty())
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No URL of the crypt service");
    auto made = std::make_unique<cryptcli_client>();
    made->options = *options;  // the application may change or free its own
    AnsiStr reason;
    if (!OruKalvix::ParseUrl(ToAnsi(options->service), made->service, reason))
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT, reason.View());
    const cryptcli_status status = MakeTransport(*made, error);
    if (status == CRYPTCLI_OK) *client = made.release();
    return status;
  });
}

void cryptcli_client_free(cryptcli_client* client) {
  delete client;
}
