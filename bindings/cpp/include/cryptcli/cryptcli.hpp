#ifndef CRYPTCLI_CRYPTCLI_HPP
#define CRYPTCLI_CRYPTCLI_HPP

/// @file
/// cryptcli: end-to-end protection of stored files. The C++ interface, header-only above the C interface.
///
/// A file of a *room* is signed with the integrity key of the room's group and encrypted for the room's key.
/// The private keys stay on *key servers*. A *crypt service* names the room's key and its key servers.
///
///     #include <cryptcli/cryptcli.hpp>
///
///     auto client = cryptcli::Client::Create({.service = "https://crypt.example.com/api"});
///     if (!client) return Fail(client.error().message);
///     auto protectedFile = client->Encrypt("room-1", "report.pdf", "report.p7m");
///     if (!protectedFile) return Fail(protectedFile.error().message);
///     auto opened = client->Decrypt("room-1", "report.p7m", "report.pdf");
///     if (!opened) return Fail(opened.error().message);  // not proven: nothing was delivered
///
/// Conventions
/// - Failure. A Result contains an Error with a stable code and a message for people. The only exception is
///   std::bad_alloc, as with any std::string. The headers compile with -fno-exceptions and -fno-rtti.
/// - Safe defaults. Content is delivered only if its origin is proven. Policy names the weaker choices.
/// - Strings are UTF-8, paths are the bytes that the system uses. A string with a NUL byte is refused with
///   Status::InvalidArgument.
/// - Callables run on the thread that called the library, and may use another client. No exception of theirs
///   crosses the library. One of a progress callable cancels the operation (Status::Cancelled); one of a
///   transport is an exchange without a response (Status::Unreachable); what it says is in the message. One
///   of a log is dropped.

#include <cryptcli/cryptcli.h>
#include <cryptcli/detail/abi.hpp>
#include <cryptcli/detail/call.hpp>
#include <cryptcli/detail/files.hpp>
#include <cryptcli/detail/objects.hpp>
#include <cryptcli/detail/state.hpp>
#include <cryptcli/files.hpp>
#include <cryptcli/options.hpp>
#include <cryptcli/result.hpp>
#include <cryptcli/values.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace cryptcli::inline CRYPTCLI_DETAIL_ABI {

/// The version of the library at run time, "1.0.0". CRYPTCLI_VERSION_MAJOR and so on are those of the header.
[[nodiscard]] inline std::string Version() {
  return cryptcli_version();
}

/// A JSON object with strings: "cryptcli" is the version of the library, "transport" names the HTTP and TLS
/// libraries with the versions in use.
[[nodiscard]] inline std::string BuildInfo() {
  return cryptcli_build_info();
}

/// The operations of Client::Perform with what they do and their arguments, as a JSON array.
[[nodiscard]] inline std::string Operations() {
  return cryptcli_operations();
}

/// Protects and opens files with a crypt service and its key servers.
///
/// A client does not change: any number of threads may use it at once, and share its connections. It owns its
/// options and callables; what the callables refer to has to live as long as the client. It may be moved
/// while no other thread uses it. After that, operations of the old object fail with Status::InvalidArgument.
class Client {
 public:
  /// Makes a client. Asks no server. Fails with InvalidArgument if an option is wrong, and with Io if the
  /// password file cannot be read.
  [[nodiscard]] static Result<Client> Create(Options options) {
    auto state = detail::MakeState(std::move(options));
    if (!state) return Unexpected(std::move(state).error());
    return Client(*std::move(state));
  }

  Client(Client&&) noexcept = default;
  Client& operator=(Client&&) noexcept = default;
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  /// Precondition: no operation of the client is in progress on another thread.
  ~Client() = default;

  /// Protects `source` for the room. Makes the room's key if it has none; of several clients that do so at
  /// the same time, all use the one key.
  ///
  ///     client.Encrypt("room-1", "report.pdf", "report.p7m");
  [[nodiscard]] Result<Report> Encrypt(std::string_view room, const Source& source, const Target& target,
                                       const Call& call = {}) const {
    return RunOnFiles(Examines::Nothing, room, source, &target, call,
                      [](auto... arguments) { return cryptcli_encrypt(arguments...); });
  }

  /// Opens the protected file `source` and delivers its content to `target`, if `call.accept` accepts its
  /// origin. Otherwise `target` is unchanged and the error, OriginNotProven, contains the report.
  ///
  ///     std::string content;
  ///     auto opened = client.Decrypt("room-1", "report.p7m", cryptcli::Target::ToMemory(content));
  [[nodiscard]] Result<Report> Decrypt(std::string_view room, const Source& source, const Target& target,
                                       const Call& call = {}) const {
    return RunOnFiles(Examines::Origin, room, source, &target, call,
                      [](auto... arguments) { return cryptcli_decrypt(arguments...); });
  }

  /// Does the same, but delivers nothing.
  ///
  ///     auto verified = client.Verify("room-1", "report.p7m");
  ///     if (verified) std::cout << "signed by group " << verified->signedGroup << "\n";
  [[nodiscard]] Result<Report> Verify(std::string_view room, const Source& source,
                                      const Call& call = {}) const {
    return RunOnFiles(Examines::Origin, room, source, nullptr, call,
                      [](const cryptcli_client* client, const char* name, cryptcli_file from, cryptcli_file,
                         auto... outputs) { return cryptcli_verify(client, name, from, outputs...); });
  }

  /// Opens the protected file at `path`, if `call.accept` accepts its origin, and protects its content with
  /// the room's present key, in place. At any moment the file is the old one or the new one.
  ///
  ///     client.Rekey("room-1", "report.p7m");
  [[nodiscard]] Result<Report> Rekey(std::string_view room, const std::filesystem::path& path,
                                     const Call& call = {}) const {
    return RunOnFiles(Examines::Origin, room, path, nullptr, call,
                      [](const cryptcli_client* client, const char* name, cryptcli_file from, cryptcli_file,
                         auto... outputs) { return cryptcli_rekey(client, name, from.path, outputs...); });
  }

  /// Describes a protected file, as a JSON object, without asking a server. Nothing is verified. The members
  /// are those of cryptcli_inspect in <cryptcli/cryptcli.h>.
  ///
  ///     auto json = cryptcli::Client::Inspect("report.p7m");
  [[nodiscard]] static Result<std::string> Inspect(const Source& source) {
    auto opened = detail::FileAccess::Open(source);
    if (!opened) return Unexpected(std::move(opened).error());
    return ToJson(detail::Run({}, /*hasOrigin=*/false,
                              [&](cryptcli_call*, cryptcli_report** report, cryptcli_error** error) {
                                return cryptcli_inspect(opened->file, report, error);
                              }));
  }

  /// Performs a named operation (see Operations) and returns its result as a JSON object. `arguments` is a
  /// JSON object; an unknown, missing or mistyped member is refused with InvalidArgument before anything is
  /// sent. The result of "Decrypt" holds private keys: the string is the caller's to overwrite.
  ///
  ///     client.Perform("GetAuditLog", R"({"keyserver":["https://ks1.example.com"],"group":"g-7"})");
  [[nodiscard]] Result<std::string> Perform(std::string_view operation, std::string_view arguments,
                                            const Call& call = {}) const {
    if (detail::HasNul(operation) || detail::HasNul(arguments)) return Nul("operation or its arguments");
    const std::string name(operation);
    const std::string json(arguments);
    return Ask(
        call, [](auto... outputs) { return cryptcli_perform(outputs...); }, name.c_str(), json.c_str());
  }

  /// Asks the crypt service what it knows about a room, and returns that as a JSON object: "room", "group",
  /// "keyType", "certificate", "keyServers" and others, which cryptcli_room in <cryptcli/cryptcli.h> lists.
  /// Changes nothing: no key is made.
  [[nodiscard]] Result<std::string> Room(std::string_view room, const Call& call = {}) const {
    if (detail::HasNul(room)) return Nul("room");
    const std::string name(room);
    return Ask(
        call, [](auto... outputs) { return cryptcli_room(outputs...); }, name.c_str());
  }

  /// Asks the crypt service, and with a room each of its key servers, whether they work. Changes nothing. A
  /// server that does not work is a finding in the JSON object, not a failure: "ok" is true if all work, and
  /// "findings" says what is wrong and what to do. cryptcli_check in <cryptcli/cryptcli.h> lists the members.
  ///
  ///     auto json = client.Check("room-1");
  [[nodiscard]] Result<std::string> Check(std::optional<std::string_view> room = std::nullopt,
                                          const Call& call = {}) const {
    if (room && detail::HasNul(*room)) return Nul("room");
    const std::string name(room.value_or(std::string_view()));
    return Ask(
        call, [](auto... outputs) { return cryptcli_check(outputs...); }, room ? name.c_str() : nullptr);
  }

 private:
  using State = std::shared_ptr<const detail::State>;
  enum class Examines { Nothing, Origin };

  explicit Client(State state) : state_(std::move(state)) {}

  static const cryptcli_client* Lend(const State& state) {
    return state != nullptr ? state->client.get() : nullptr;
  }
  static Unexpected Nul(std::string_view what) {
    return Failure(Status::InvalidArgument, "The " + std::string(what) + " contains a NUL character");
  }
  static Result<std::string> ToJson(const Result<detail::Handle<cryptcli_report>>& report) {
    if (!report) return Unexpected(report.error());
    return std::string(cryptcli_report_json(report->get()));
  }

  // `work` is a function of the C interface that asks servers and whose result is JSON.
  template <class Work, class... Arguments>
  Result<std::string> Ask(const Call& call, Work work, Arguments... arguments) const {
    const State state = state_;  // a callable of the caller may move this client away
    return ToJson(detail::Run(call, /*hasOrigin=*/false,
                              [&](cryptcli_call* running, cryptcli_report** report, cryptcli_error** error) {
                                return work(Lend(state), arguments..., running, report, error);
                              }));
  }

  // `work` is a function of the C interface for files, with a target that it may leave out.
  template <class Work>
  Result<Report> RunOnFiles(Examines examines, std::string_view room, const Source& source,
                            const Target* target, const Call& call, Work work) const {
    if (detail::HasNul(room)) return Nul("room");
    const std::string name(room);
    auto from = detail::FileAccess::Open(source);
    if (!from) return Unexpected(std::move(from).error());
    auto to = target != nullptr ? detail::FileAccess::Open(*target)
                                : Result<detail::OpenedFile>(detail::OpenedFile());
    if (!to) return Unexpected(std::move(to).error());
    const State state = state_;  // a callable of the caller may move this client away
    const bool hasOrigin = examines == Examines::Origin;
    const auto report = detail::Run(
        call, hasOrigin, [&](cryptcli_call* running, cryptcli_report** reportPlace, cryptcli_error** error) {
          return work(Lend(state), name.c_str(), from->file, to->file, running, reportPlace, error);
        });
    if (!report) return Unexpected(report.error());
    std::optional<Error> undelivered;
    if (target != nullptr) undelivered = detail::FileAccess::Deliver(*to, *target);
    if (undelivered) return Unexpected(*std::move(undelivered));
    return detail::ToReport(report->get(), hasOrigin);
  }

  State state_;
};

}  // namespace cryptcli::inline CRYPTCLI_DETAIL_ABI

#endif  // CRYPTCLI_CRYPTCLI_HPP
