// Named operations: their table, the check of their arguments, and the call of the class. The class ignores a
// member that it does not know and reads one of the wrong type as empty. Here both are refused before
// anything is sent, since a misspelt argument could change a group in another way than was meant.
#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "bindings/c/boundary.h"
#include "bindings/c/client.h"
#include "bindings/c/error.h"
#include "bindings/c/operation.h"
#include "bindings/c/report.h"
#include "bindings/c/text.h"
#include "client/cryptcli.h"
#include "foundation/json.h"
#include "foundation/numbers.h"
#include "foundation/val.h"

namespace CryptCliC {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruGuiBase::ValType;

namespace {

/// The types that an argument can have in JSON.
enum class Type { String, Flag, Object, Strings, Objects };

/// A member of an operation's arguments. `what` describes it in cryptcli_operations.
struct Argument {
  const char* name;
  Type type;
  bool required;
  const char* what;
};

/// A row of the table. It refers to an array of arguments that lives as long as the process.
struct NamedOperation {
  const char* name;
  const char* what;
  std::span<const Argument> arguments;
};

// Arguments that several operations have.
constexpr Argument kKeyServers{"keyserver", Type::Strings, true, "URLs of the key servers"};
constexpr Argument kStatusTimeout{"statustimeout", Type::String, false,
                                  "seconds that the probe of a key server may take"};
constexpr Argument kTransaction{"transaction", Type::String, false,
                                "goes with each request for an authorization token"};
constexpr Argument kGroup{"group", Type::String, true, "identifier of the group"};
constexpr Argument kRoom{"room", Type::String, true, "identifier of the room"};
constexpr Argument kSequence{"seqnr", Type::String, false, "comes back in the result"};
constexpr Argument kCertificates{"certificates", Type::Strings, true, "certificates to wrap keys for"};

constexpr std::array kConfigGroup = {
    kKeyServers,
    kStatusTimeout,
    kTransaction,
    kGroup,
    Argument{"groupname", Type::String, false, "name of the group for people"},
    Argument{"ownergroup", Type::String, false, "identifier of the group that owns it"},
    Argument{"authnrootcerts", Type::Strings, false, "root certificates of its members"},
    Argument{"authnissuingcerts", Type::Strings, false, "issuing certificates of its members"},
    Argument{"authncrlurls", Type::Strings, false, "URLs of certificate revocation lists"}};
constexpr std::array kReencrypt = {kKeyServers, kStatusTimeout, kTransaction, kGroup,
                                   Argument{"enccert", Type::String, true, "the new encryption certificate"}};
constexpr std::array kGetAuditLog = {
    kKeyServers, kStatusTimeout, kGroup,
    Argument{"groupname", Type::String, false, "name of the group for people"}};
constexpr std::array kUpdate = {
    kKeyServers,
    kStatusTimeout,
    kRoom,
    kSequence,
    kCertificates,
    Argument{"keys", Type::Objects, false, "wrapped keys: objects with id and data"},
    Argument{"newkey", Type::Flag, false, "make a new key as well"}};
constexpr std::array kImportKey = {kKeyServers,
                                   kStatusTimeout,
                                   kTransaction,
                                   kGroup,
                                   Argument{"id", Type::String, true, "identifier of the key"},
                                   Argument{"key", Type::String, true, "the key"},
                                   Argument{"password", Type::String, false, "password of the key"}};
constexpr std::array kDeleteKey = {
    kKeyServers, kStatusTimeout, kTransaction, kGroup,
    Argument{"key", Type::Object, true, "handle of the key: type, id and subId"}};
constexpr std::array kSignByKey = {
    kKeyServers,
    kStatusTimeout,
    kTransaction,
    Argument{"object", Type::String, true, "what is signed for: the crypt service's name of it"},
    Argument{"key", Type::Object, false, "handle of the key: type, id and subId"},
    Argument{"id", Type::String, false, "identifier of the key, without a handle"},
    Argument{"subid", Type::String, false, "version of the key, without a handle"},
    Argument{"algorithm", Type::String, true, "name of the signature algorithm"},
    Argument{"hash", Type::String, true, "the hash in base64"}};
constexpr std::array kEncrypt = {kKeyServers, kStatusTimeout, kTransaction, kRoom, kSequence, kCertificates};
constexpr std::array kDecrypt = {
    kKeyServers, kStatusTimeout, kRoom, kSequence,
    Argument{"keys", Type::Objects, true, "wrapped keys: objects with id and data"}};

constexpr std::array kOperations = {
    NamedOperation{"ConfigGroup", "sets up a group on the key servers", kConfigGroup},
    NamedOperation{"Reencrypt", "names a new encryption certificate for a group", kReencrypt},
    NamedOperation{"GetAuditLog", "merges a group's audit logs of all key servers into one file",
                   kGetAuditLog},
    NamedOperation{"Update", "wraps a room's keys again for other certificates", kUpdate},
    NamedOperation{"ImportKey", "brings a key into a group's key store", kImportKey},
    NamedOperation{"DeleteKey", "removes a key from a group's key store", kDeleteKey},
    NamedOperation{"SignByKey", "signs a hash with a key of a group", kSignByKey},
    NamedOperation{"Encrypt", "makes a room key, wrapped for certificates", kEncrypt},
    NamedOperation{"Decrypt", "takes the private keys out of wrapped room keys", kDecrypt},
};

const char* NameOf(Type type) {
  switch (type) {
    case Type::String:
      return "string";
    case Type::Flag:
      return "boolean";
    case Type::Object:
      return "object";
    case Type::Strings:
      return "array of strings";
    default:
      return "array of objects";
  }
}

bool IsArrayOf(const Val& value, ValType type) {
  if (value.GetType() != ValType::Array) return false;
  for (const Val& element : value.AsArray()) {
    if (element.GetType() != type) return false;
  }
  return true;
}

// As the class reads it: "true" for a flag, for instance, would count as false there.
bool HasType(const Val& value, Type type) {
  switch (type) {
    case Type::String:
      return value.GetType() == ValType::String;
    case Type::Flag:
      return value.GetType() == ValType::Bool;
    case Type::Object:
      return value.GetType() == ValType::Map;
    case Type::Strings:
      return IsArrayOf(value, ValType::String);
    default:
      return IsArrayOf(value, ValType::Map);
  }
}

// The class knows each operation with and without the prefix.
const NamedOperation* FindOperation(std::string_view name) {
  constexpr std::string_view kPrefix = "Crypt";
  if (name.starts_with(kPrefix)) name.remove_prefix(kPrefix.size());
  for (const NamedOperation& operation : kOperations) {
    if (name == operation.name) return &operation;
  }
  return nullptr;
}

bool IsKnown(const NamedOperation& operation, std::string_view name) {
  for (const Argument& argument : operation.arguments) {
    if (name == argument.name) return true;
  }
  return false;
}

// Why the arguments do not fit; empty when they do. Names are quoted, values never: they may be secrets.
std::string CheckArguments(const NamedOperation& operation, const KVMap& arguments) {
  for (const AnsiStr& name : arguments.GetKeys()) {
    if (!IsKnown(operation, name.View())) {
      return "Unknown argument \"" + ToString(name) + "\" of " + operation.name;
    }
  }
  for (const Argument& argument : operation.arguments) {
    const bool isGiven = arguments.Contains(argument.name);
    if (!isGiven && !argument.required) continue;
    if (!isGiven) return std::string("Missing argument \"") + argument.name + "\" of " + operation.name;
    if (HasType(arguments.Get(argument.name), argument.type)) continue;
    return std::string("Argument \"") + argument.name + "\" of " + operation.name + " has to be of type " +
           NameOf(argument.type);
  }
  return {};
}

// Why no key server of the list can be asked; empty if one can. The list may be the crypt service's, and the
// class passes over a wrong URL among others.
std::string CheckUrls(const OruGuiBase::Array<Val>& servers) {
  std::string wrong;
  for (const Val& server : servers) {
    OruKalvix::UrlParts parts;
    AnsiStr reason;
    if (OruKalvix::ParseUrl(server.AsString(), parts, reason)) return {};
    const std::string text = ToString(reason);
    if (wrong.empty()) wrong = "Invalid URL of a key server: " + text.substr(text.find(": ") + 2);
  }
  return wrong;
}

// Each of these would fail only after servers were asked, as a fault of theirs, although the caller made the
// mistake. The timeout is read as the class reads it.
std::string CheckValues(const NamedOperation& operation, const KVMap& arguments) {
  const auto servers = arguments.Get(kKeyServers.name).AsArray();
  if (servers.IsEmpty())
    return std::string("Argument \"keyserver\" of ") + operation.name + " has to name a key server";
  std::string wrong = CheckUrls(servers);
  if (!wrong.empty()) return wrong;
  const AnsiStr seconds = arguments.Get(kStatusTimeout.name).AsString();
  std::uint32_t number = 0;
  if (seconds.IsEmpty() || OruGuiBase::Str2ULong(seconds, nullptr, number, /*sign=*/false, /*limit=*/10) == 0)
    return {};
  return std::string("Argument \"statustimeout\" of ") + operation.name + " has to be a number of seconds";
}

cryptcli_status ReadArguments(const NamedOperation& operation, const char* text, KVMap& arguments,
                              cryptcli_error** error) {
  Val value;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(AnsiStr(text), value, reason)) {
    return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "The arguments are no JSON: " + ToString(reason));
  }
  if (value.GetType() != ValType::Map) {
    return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "The arguments are no JSON object");
  }
  arguments = value.AsMap();
  std::string wrong = CheckArguments(operation, arguments);
  if (wrong.empty()) wrong = CheckValues(operation, arguments);
  return wrong.empty() ? CRYPTCLI_OK : Fail(error, CRYPTCLI_INVALID_ARGUMENT, wrong);
}

// The warning about key servers that gave no part of the audit log, as the JSON object of an error. The
// latest exchange may be one with a server that succeeded, so the code is not taken from it but from the
// attempt whose message ends the warning.
Val DescribeWarning(Operation& operation, std::string_view message) {
  Failure failure = operation.MakeFailure(message);
  for (const Attempt& attempt : failure.attempts) {
    if (!message.ends_with(attempt.message)) continue;
    failure.code = attempt.code;
    failure.retryable = attempt.retryable;
    failure.httpStatus = attempt.httpStatus;
    failure.url = attempt.url;
  }
  const std::unique_ptr<cryptcli_error, void (*)(cryptcli_error*)> error(MakeError(std::move(failure)),
                                                                         cryptcli_error_free);
  Val value;
  AnsiStr reason;
  OruGuiBase::JSON2Val(AnsiStr(cryptcli_error_json(error.get())), value, reason);
  return value;
}

cryptcli_status Perform(const cryptcli_client& client, const NamedOperation& named, const KVMap& arguments,
                        cryptcli_call* call, cryptcli_report& report, cryptcli_error** error) {
  Operation operation(client, call);
  Val result;
  AnsiStr message;
  const std::int32_t code = OruKalvix::CryptClient::PerformOperation(
      &operation, ToAnsi(client.options.service), {}, named.name, arguments, result, message);
  if (code < 0) return Fail(error, operation.MakeFailure(message.View()));
  KVMap object = result.AsMap();
  // With a success, a message is a warning: the audit log is there, but without the part of some key servers.
  if (!message.IsEmpty()) {
    SetText(object, "warning", message.View());
    object.Put("failure", DescribeWarning(operation, message.View()));
  }
  report.json = ToJson(object);
  return CRYPTCLI_OK;
}

std::string DescribeOperations() {
  std::string text = "[";
  for (const NamedOperation& operation : kOperations) {
    Array<Val> arguments;
    for (const Argument& argument : operation.arguments) {
      KVMap entry;
      SetText(entry, "name", argument.name);
      SetText(entry, "type", NameOf(argument.type));
      entry.Put("required", Val(argument.required));
      SetText(entry, "description", argument.what);
      arguments.Append(Val(entry));
    }
    KVMap object;
    SetText(object, "name", operation.name);
    SetText(object, "description", operation.what);
    object.Put("arguments", Val(arguments));
    text += (text.size() > 1 ? "," : "") + ToJson(object);
  }
  return text + "]";
}

}  // namespace

}  // namespace CryptCliC

cryptcli_status cryptcli_perform(const cryptcli_client* client, const char* operation, const char* arguments,
                                 cryptcli_call* call, cryptcli_report** report, cryptcli_error** error) {
  using namespace CryptCliC;
  if (report != nullptr) *report = nullptr;
  return Guarded(error, [&]() -> cryptcli_status {
    if (client == nullptr || operation == nullptr || arguments == nullptr) {
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "No client, operation or arguments");
    }
    const NamedOperation* const named = FindOperation(operation);
    if (named == nullptr) {
      return Fail(error, CRYPTCLI_INVALID_ARGUMENT, "Unknown operation \"" + std::string(operation) + "\"");
    }
    OruGuiBase::KVMap map;
    const cryptcli_status status = ReadArguments(*named, arguments, map, error);
    if (status != CRYPTCLI_OK) return status;
    auto made = std::make_unique<cryptcli_report>();
    const cryptcli_status performed = Perform(*client, *named, map, call, *made, error);
    if (performed == CRYPTCLI_OK && report != nullptr) *report = made.release();
    return performed;
  });
}

// Built once and kept: the caller does not free it.
const char* cryptcli_operations(void) {
  try {
    static const std::string text = CryptCliC::DescribeOperations();
    return text.c_str();
  } catch (...) {
    return "[]";
  }
}
