#ifndef CRYPTCLI_DETAIL_STATE_HPP
#define CRYPTCLI_DETAIL_STATE_HPP

// Part of <cryptcli/cryptcli.hpp>, not for users: making a client from options.

#include <chrono>
#include <cryptcli/cryptcli.h>
#include <cryptcli/detail/abi.hpp>
#include <cryptcli/detail/callables.hpp>
#include <cryptcli/detail/objects.hpp>
#include <cryptcli/options.hpp>
#include <cryptcli/result.hpp>
#include <cryptcli/values.hpp>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {
namespace detail {

/// Copies options into their C object and keeps the first failure. An empty option keeps its default.
class OptionsWriter {
 public:
  explicit OptionsWriter(cryptcli_options* options) : options_(options) {}

  using Setter = cryptcli_status (*)(cryptcli_options*, const char*, cryptcli_error**);
  void Set(Setter setter, const char* what, const std::string& value) {
    if (value.empty() || !Check(what, value)) return;
    Apply([&](cryptcli_error** error) { return setter(options_, value.c_str(), error); });
  }

  void SetCertificate(const ClientCertificate& from) {
    if (from.certificate.empty() && from.key.empty() && from.passwordFile.empty()) return;
    for (const std::filesystem::path* path : {&from.certificate, &from.key, &from.passwordFile}) {
      if (!Check("client certificate's path", path->native())) return;
    }
    Apply([&](cryptcli_error** error) {
      return cryptcli_options_set_client_certificate(options_, OrNull(from.certificate), OrNull(from.key),
                                                     OrNull(from.passwordFile), error);
    });
  }

  void AddHeader(const Header& header) {
    if (!Check("header", header.name) || !Check("header", header.value)) return;
    Apply([&](cryptcli_error** error) {
      return cryptcli_options_add_header(options_, header.name.c_str(), header.value.c_str(), error);
    });
  }

  void SetTimeout(void (*setter)(cryptcli_options*, std::uint32_t), std::chrono::milliseconds timeout) {
    const auto count = timeout.count();
    if (count >= 0 && count <= std::numeric_limits<std::uint32_t>::max()) {
      setter(options_, static_cast<std::uint32_t>(count));
    } else if (!failure_) {
      failure_ = Failure(Status::InvalidArgument, "The timeout is negative or too long").error();
    }
  }

  const std::optional<Error>& GetFailure() const { return failure_; }

 private:
  static const char* OrNull(const std::filesystem::path& path) {
    return path.empty() ? nullptr : path.c_str();
  }
  bool Check(const char* what, std::string_view value) {
    if (failure_) return false;
    if (!HasNul(value)) return true;
    failure_ =
        Failure(Status::InvalidArgument, "The " + std::string(what) + " contains a NUL character").error();
    return false;
  }
  template <class Work>
  void Apply(const Work& work) {
    cryptcli_error* error = nullptr;
    const cryptcli_status status = work(&error);
    const Handle<cryptcli_error> owned(error);
    if (status != CRYPTCLI_OK) failure_ = ToError(status, error);
  }

  cryptcli_options* options_;
  std::optional<Error> failure_;
};

/// Copies all options except for the callables. Returns the failure, if there is one.
inline std::optional<Error> Write(const Options& from, cryptcli_options* options) {
  OptionsWriter writer(options);
  writer.Set(cryptcli_options_set_service, "service's URL", from.service);
  writer.Set(cryptcli_options_set_ca_file, "CA file's path", from.caFile.native());
  writer.SetCertificate(from.clientCertificate);
  writer.Set(cryptcli_options_set_proxy, "proxy's URL", from.proxy);
  for (const Header& header : from.headers) writer.AddHeader(header);
  writer.SetTimeout(cryptcli_options_set_connect_timeout, from.connectTimeout);
  writer.SetTimeout(cryptcli_options_set_timeout, from.timeout);
  writer.Set(cryptcli_options_set_temporary_directory, "temporary directory's path",
             from.temporaryDirectory.native());
  return writer.GetFailure();
}

/// Makes a client with its callables. The C client refers to the state, so that never moves: Client shares
/// it.
inline Result<std::shared_ptr<const State>> MakeState(Options&& from) {
  const Handle<cryptcli_options> options(cryptcli_options_new());
  if (options == nullptr) return NoMemory();
  if (std::optional<Error> failure = Write(from, options.get())) return Unexpected(*std::move(failure));
  auto state = std::make_shared<State>();
  state->log = std::move(from.log);
  state->transport = std::move(from.transport);
  if (state->log.write) {
    cryptcli_options_set_log(options.get(), static_cast<cryptcli_log_level>(state->log.level), &WriteLog,
                             state.get(), state->log.revealSecrets ? 1 : 0);
  }
  if (state->transport) cryptcli_options_set_transport(options.get(), &SendRequest, state.get());
  cryptcli_client* client = nullptr;
  cryptcli_error* error = nullptr;
  const cryptcli_status status = cryptcli_client_new(options.get(), &client, &error);
  const Handle<cryptcli_error> owned(error);
  state->client.reset(client);
  if (status != CRYPTCLI_OK) return Unexpected(ToError(status, error));
  return std::shared_ptr<const State>(std::move(state));
}

}  // namespace detail
}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_DETAIL_STATE_HPP
