// "cryptcli operations": the named operations that "cryptcli call" performs, for people who write its
// arguments. The list is the library's own, which also checks the arguments by it, so the two cannot differ.
#include "tools/operations.h"

#include <CLI/Option.hpp>
#include <cryptcli/cryptcli.hpp>
#include <vector>

#include "foundation/array.h"
#include "foundation/json.h"
#include "foundation/val.h"
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

AnsiStr TextOf(const KVMap& map, const char* name) {
  return map.Get(name).AsString();
}

// As "call" takes them.
bool IsName(const KVMap& operation, const std::string& name) {
  const std::string own(TextOf(operation, "name").View());
  return name == own || name == "Crypt" + own;
}

void ShowArgument(const KVMap& argument, Report& report) {
  report.Line(AnsiStr("  ") + TextOf(argument, "name") + " (" + TextOf(argument, "type") +
              (argument.Get("required").AsBool() ? "): " : ", optional): ") +
              TextOf(argument, "description"));
}

void Show(const KVMap& operation, Report& report) {
  report.Line(TextOf(operation, "name") + ": " + TextOf(operation, "description"));
  for (const Val& argument : operation.Get("arguments").AsArray()) ShowArgument(argument.AsMap(), report);
}

ExitCode FailUnknown(const std::string& name, const std::vector<std::string>& known, Report& report) {
  std::string text = "Unknown operation \"" + name + "\"";
  const std::string similar = FindSimilar(name, known);
  if (!similar.empty()) text += "; did you mean \"" + similar + "\"?";
  report.Fail(AnsiStr(text));
  return ExitCode::Usage;
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

ExitCode RunOperations(const OperationsOptions& options) {
  Report report("operations", options.json);
  Array<Val> shown;
  std::vector<std::string> known;
  for (const Val& operation : ReadOperations()) {
    known.emplace_back(TextOf(operation.AsMap(), "name").View());
    if (!options.name.empty() && !IsName(operation.AsMap(), options.name)) continue;
    shown.Append(operation);
    Show(operation.AsMap(), report);
  }
  if (shown.IsEmpty()) return report.Finish(FailUnknown(options.name, known, report));
  report.Set("operations", shown);
  return report.Finish(ExitCode::Success);
}

}  // namespace CryptCli
