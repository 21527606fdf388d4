// "cryptcli --version", as lines or with --json: what somebody who reports a problem should add to it.
#include "tools/version.h"

#include <cryptcli/cryptcli.hpp>
#include <sstream>

#include "foundation/json.h"
#include "foundation/kvmap.h"
#include "foundation/val.h"
#include "tools/report.h"

namespace CryptCli {

using OruGuiBase::AnsiStr;
using OruGuiBase::Val;

std::string DescribeVersion() {
  std::string lines = "cryptcli " + cryptcli::Version();
  Val info;
  AnsiStr reason;
  if (!OruGuiBase::JSON2Val(AnsiStr(cryptcli::BuildInfo()), info, reason)) return lines;
  // "libcurl/7.88.1 OpenSSL/3.0.17 ...", as the transport names its parts.
  std::istringstream parts{std::string(info.AsMap().Get("transport").AsString().View())};
  for (std::string part; parts >> part;) {
    // "libpsl/0.21.2 (+libidn2/2.3.3)": a remark about the part before it.
    if (part.starts_with('(')) {
      lines += " " + part;
      continue;
    }
    const std::size_t slash = part.find('/');
    if (slash != std::string::npos) part[slash] = ' ';
    lines += "\n" + part;
  }
  return lines;
}

std::string DescribeVersionAsJSON() {
  Report report("version", /*asJSON=*/true);
  report.SetAll(cryptcli::BuildInfo());
  AnsiStr text;
  AnsiStr reason;
  OruGuiBase::Val2JSON(Val(report.ToMap(ExitCode::Success)), text, reason, /*pretty=*/false, /*strict=*/true);
  return std::string(text.View());
}

}  // namespace CryptCli
