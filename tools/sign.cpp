// "cryptcli sign": hashes a file on this machine and has a key server sign the hash through the named
// operation SignByKey. Only the hash leaves the machine.
#include "tools/sign.h"

#include <CLI/Option.hpp>
#include <string_view>

#include "foundation/blob.h"
#include "foundation/encoding.h"
#include "foundation/errorstate.h"
#include "foundation/filehandle.h"
#include "security/cms/digest.h"
#include "tools/files.h"
#include "tools/staging_file.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Blob;
using OruGuiBase::File;
using OruGuiBase::KVMap;

namespace {

// The digest that a signature algorithm is named after, as in "RSASSA-PKCS1-v1_5-SHA-512", or null. For other
// names the user computes the hash, since only the key server knows what they mean.
const char* FindDigest(std::string_view algorithm) {
  for (const char* digest : {"SHA-256", "SHA-384", "SHA-512"}) {
    if (algorithm.ends_with(digest)) return digest;
  }
  return nullptr;
}

/// One run of the command. Lives on the stack of RunSign; `options` must outlive it.
class Signing {
 public:
  explicit Signing(const SignOptions& options) : options_(options), session_("sign", options.session) {}

  ExitCode Finish() { return session_.Finish(Run()); }

 private:
  // What is wrong with the command line comes first, then what this machine cannot do: nothing is asked of a
  // server before the signature can be written.
  ExitCode Run() {
    if (options_.source.empty() == options_.hash.empty()) return Refuse("Name either a FILE or a --hash");
    if (options_.source == kStandardStream) return Refuse("Standard input cannot be signed: name a FILE");
    if (options_.binary && options_.session.json && options_.output.empty()) {
      return Refuse("--binary with --json needs --output");
    }
    if (!options_.source.empty() && FindDigest(options_.algorithm) == nullptr) {
      return Refuse("No digest is known for this algorithm: give a --hash instead of the FILE");
    }
    ExitCode code = options_.keyServers.Check(session_, options_.session.connection.room);
    if (code == ExitCode::Success) code = session_.Open();
    if (code != ExitCode::Success) return code;
    AnsiStr errorText;
    if (!options_.output.empty() && !staging_.Open(options_.output, options_.force, errorText)) {
      return session_.FailFile(errorText);
    }
    if (staging_.IsStandardOutput()) session_.GetReport().LeaveStandardOutput();
    return session_.Watched("Signing", [&] { return Sign(); });
  }

  ExitCode Refuse(const char* reason) { return session_.Fail(ExitCode::Usage, reason); }

  // The file is hashed first, since a file that cannot be read should cost no request.
  ExitCode Sign() {
    AnsiStr hash;
    AnsiStr errorText;
    if (!GetHash(hash, errorText)) return session_.FailFile(errorText);
    KVMap arguments;
    ExitCode code = options_.keyServers.GetArguments(session_, options_.session.connection.room, arguments);
    if (code != ExitCode::Success) return code;
    AddArguments(hash, arguments);
    KVMap result;
    code = session_.Perform("SignByKey", arguments, result);
    if (code != ExitCode::Success) return code;
    const AnsiStr signature = result.Get("signature").AsString();
    session_.GetReport().Set("hash", hash);
    session_.GetReport().Set("signature", signature);
    return Deliver(signature, errorText) ? code : session_.FailFile(errorText);
  }

  bool GetHash(AnsiStr& hash, AnsiStr& errorText) const {
    hash = AnsiStr(options_.hash);
    if (options_.source.empty()) return true;
    Blob digest;
    if (OruOssSec::DigestFile(File(AnsiStr(options_.source)), FindDigest(options_.algorithm), digest)) {
      hash = OruGuiBase::Binary2B64Str(digest.GetData(), digest.GetSize(), 0, "\r\n");
      return true;
    }
    errorText = DescribeFailure("read", AnsiStr(options_.source));
    return false;
  }

  void AddArguments(const AnsiStr& hash, KVMap& arguments) const {
    arguments.Set("transaction", AnsiStr(options_.transaction));
    arguments.Set("object", AnsiStr(options_.object));
    arguments.Set("id", AnsiStr(options_.keyId));
    arguments.Set("subid", AnsiStr(options_.keySubId));
    arguments.Set("algorithm", AnsiStr(options_.algorithm));
    arguments.Set("hash", hash);
  }

  // A line with base64, so that a terminal and a script can read it; the bytes themselves only if asked for.
  bool Deliver(const AnsiStr& signature, AnsiStr& errorText) {
    AnsiStr bytes = signature + "\n";
    if (options_.binary) {
      Blob binary;
      if (!OruGuiBase::B64Str2Blob(signature, binary, "\r\n")) {
        errorText = AnsiStr("The signature is no base64: ") + OruGuiBase::GetSystemErrorText();
        return false;
      }
      bytes = AnsiStr(reinterpret_cast<const char*>(binary.GetData()), binary.GetSize());
    }
    if (options_.output.empty()) {
      session_.GetReport().Bytes(bytes.View());
      return true;
    }
    if (!Write(bytes, errorText) || !staging_.Commit(errorText)) return false;
    session_.GetReport().Line(AnsiStr("Wrote the signature to " + NameTarget(options_.output)));
    return true;
  }

  bool Write(const AnsiStr& bytes, AnsiStr& errorText) const {
    OruGuiBase::FileWriter writer;
    if (writer.Open(staging_.GetFile()) && writer.Write(bytes.GetText(), bytes.GetLength()) &&
        writer.Close()) {
      return true;
    }
    errorText = DescribeFailure("write", AnsiStr(options_.output));
    return false;
  }

  const SignOptions& options_;
  // Before the staging file: it sets the temporary directory of everything that makes a file.
  Session session_;
  StagingFile staging_;
};

}  // namespace

CLI::App* AddSign(CLI::App& app, SignOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "sign", "Have a key server sign the digest of FILE, or a hash, with a key of a group");
  const auto add = [&](const char* name, std::string& value, const char* type, const char* text) {
    return command->add_option(name, value, text)->type_name(type);
  };
  command->add_option("FILE", options.source, "File to sign; it never leaves this machine");
  add("--hash", options.hash, "BASE64", "Hash to sign instead of a file; its length must fit the algorithm");
  add("--object", options.object, "ID", "Room or group whose key signs")->required();
  add("--key-id", options.keyId, "ID", "Identifier of the key")->required();
  add("--key-sub-id", options.keySubId, "ID", "Its sub-identifier");
  add("--algorithm", options.algorithm, "NAME", "Signature algorithm")->capture_default_str();
  add("--transaction", options.transaction, "TEXT", "Sent with the request for an authorization token");
  add("-o,--output", options.output, "FILE", "File to write instead of standard output");
  command->add_flag("--binary", options.binary, "Write the signature's bytes instead of base64");
  command->add_flag("--force", options.force, "Replace the output file if it exists");
  options.session.AddOptions(*command);
  options.session.connection.AddRoomOption(*command)->required(false);
  options.keyServers.AddOptions(*command);
  command->footer(DescribeExitCodes({ExitCode::KeyRefused, ExitCode::TryLater, ExitCode::Unauthorised}));
  return command;
}

ExitCode RunSign(const SignOptions& options) {
  return Signing(options).Finish();
}

}  // namespace CryptCli
