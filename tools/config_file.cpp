// Reads the configuration files of the command, for configuration.cpp. A file decides which servers get the
// user's credentials and which authorities are trusted, so it is read strictly: whatever is not understood is
// an error with its line, and a file that others can change is not read at all.
#include "tools/config_file.h"

#include <algorithm>

namespace CryptCli {

namespace {

std::string_view Trim(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

bool HasControlCharacter(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

/// Parses one file line by line. Lives as long as one call of ParseConfigFile.
class Parser {
 public:
  explicit Parser(ConfigFile& file) : file_(file) {}

  void Parse(std::string_view text) {
    while (!text.empty()) {
      const std::size_t end = text.find('\n');
      ++line_;
      ParseLine(Trim(text.substr(0, end)));
      text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
  }

 private:
  void Complain(const std::string& reason) {
    file_.problems.push_back(file_.path + ":" + std::to_string(line_) + ": " + reason);
  }

  void ParseLine(std::string_view line) {
    if (line.empty() || line.front() == '#') return;
    if (HasControlCharacter(line)) return Complain("the line contains a control character");
    if (line.front() == '[') return ParseSection(line);
    const std::size_t equals = line.find('=');
    const std::string key(Trim(line.substr(0, equals)));
    // The line is not quoted: somebody may have put a secret there.
    if (equals == std::string_view::npos || key.empty()) {
      return Complain("expected 'key = value', '[profile]' or a comment");
    }
    const std::string value(Trim(line.substr(equals + 1)));
    if (value.empty()) return Complain("'" + key + "' has no value");
    AddEntry(key, value);
  }

  void ParseSection(std::string_view line) {
    const std::string name(line.back() == ']' ? Trim(line.substr(1, line.size() - 2)) : "");
    if (name.empty()) return Complain("expected the name of a profile in brackets, '[name]'");
    // A second section of one name would hide the first one's keys from whoever reads the file.
    if (std::find(file_.sections.begin(), file_.sections.end(), name) != file_.sections.end()) {
      Complain("the profile '" + name + "' appears a second time");
    } else {
      file_.sections.push_back(name);
    }
    section_ = name;
  }

  void AddEntry(const std::string& key, const std::string& value) {
    for (const ConfigEntry& entry : file_.entries) {
      if (entry.section != section_ || entry.key != key) continue;
      return Complain("'" + key + "' is set in line " + std::to_string(entry.line) + " already");
    }
    file_.entries.push_back({section_, key, value, line_});
  }

  ConfigFile& file_;
  std::string section_;
  int line_ = 0;
};

}  // namespace

ConfigFile ParseConfigFile(const std::string& path, std::string_view text) {
  ConfigFile file;
  file.path = path;
  file.isThere = true;
  Parser(file).Parse(text);
  return file;
}

}  // namespace CryptCli
