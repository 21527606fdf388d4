// "cryptcli operations": the named operations that "cryptcli call" performs, for people who write its
// arguments. The list is the library's own, which also checks the arguments by it, so the two cannot differ.
#include "tools/operations.h"

#include <CLI/Option.hpp>
#include <algorithm>
#include <cryptcli/cryptcli.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "foundation/array.h"
#include "foundation/json.h"
#include "foundation/val.h"
#include "tools/member.h"
#include "tools/report.h"
#include "tools/suggestion.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Array;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

Array<Val> ReadOperations() {
  Val value;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(AnsiStr(cryptcli::Operations()), value, reason)) return {};
  return value.AsArray();
}

// The library accepts operations under their full names too ("CryptSignByKey"), so "call" and "operations"
// do.
constexpr std::string_view kPrefix = "Crypt";

std::string_view WithoutPrefix(std::string_view name) {
  return name.starts_with(kPrefix) ? name.substr(kPrefix.size()) : name;
}

bool IsName(const KVMap& operation, const std::string& name) {
  return StringOf(operation, "name") == AnsiStr(WithoutPrefix(name));
}

// The members "name" of the objects in a list.
std::vector<std::string> GetNames(const Array<Val>& objects) {
  std::vector<std::string> names;
  for (const Val& object : objects) names.emplace_back(StringOf(object.AsMap(), "name").View());
  return names;
}

std::optional<KVMap> FindOperation(const std::string& name) {
  for (const Val& operation : ReadOperations()) {
    if (IsName(operation.AsMap(), name)) return operation.AsMap();
  }
  return std::nullopt;
}

void ShowArgument(const KVMap& argument, Report& report) {
  report.Line(AnsiStr("  ") + StringOf(argument, "name") + " (" + StringOf(argument, "type") +
              (argument.Get("required").AsBool() ? "): " : ", optional): ") +
              StringOf(argument, "description"));
}

void ShowOperation(const KVMap& operation, Report& report) {
  report.Line(StringOf(operation, "name") + ": " + StringOf(operation, "description"));
  for (const Val& argument : operation.Get("arguments").AsArray()) ShowArgument(argument.AsMap(), report);
}

}  // namespace

CLI::App* AddOperations(CLI::App& app, OperationsOptions& options) {
  CLI::App* const command = app.add_subcommand(
      "operations", "Show the operations that \"call\" performs, what they do and their arguments");
  command->add_option("OPERATION", options.name, "Name of one operation; all without it");
  command->add_flag("--json", options.json, "Report as one JSON object, whatever happens");
  command->footer(DescribeExitCodes({}));
  return command;
}

std::string CheckOperation(const std::string& name) {
  if (FindOperation(name)) return {};
  const std::string_view meant = name == kPrefix ? name : WithoutPrefix(name);
  return "Unknown operation \"" + name + "\"" + Suggest(meant, GetNames(ReadOperations()));
}

std::string CheckArgumentNames(const std::string& operation, const AnsiStr& arguments) {
  const std::optional<KVMap> found = FindOperation(operation);
  Val value;
  AnsiStr reason;
  if (!found || !OruGuiBase::JSON2Val(arguments, value, reason)) return {};
  const std::vector<std::string> known = GetNames(found->Get("arguments").AsArray());
  for (const auto& [key, ignored] : value.AsMap()) {
    const std::string name(key.View());
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    return "Unknown argument \"" + name + "\" of " + std::string(StringOf(*found, "name").View()) +
           Suggest(name, known);
  }
  return {};
}

ExitCode RunOperations(const OperationsOptions& options) {
  Report report("operations", options.json);
  Array<Val> shown;
  for (const Val& operation : ReadOperations()) {
    if (!options.name.empty() && !IsName(operation.AsMap(), options.name)) continue;
    shown.Append(operation);
    ShowOperation(operation.AsMap(), report);
  }
  if (shown.IsEmpty()) {
    report.Fail(AnsiStr(CheckOperation(options.name)));
    return report.Finish(ExitCode::Usage);
  }
  report.Set("operations", shown);
  return report.Finish(ExitCode::Success);
}

}  // namespace CryptCli
