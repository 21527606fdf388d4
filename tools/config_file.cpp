// Reads the configuration files of the command, for configuration.cpp. A file decides which servers get the
// user's credentials and which authorities are trusted, so it is read strictly: whatever is not understood is
// an error with its line, and a file that others can change is not read at all.
#include "tools/config_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/text_checks.h"

namespace CryptCli {

namespace {

// Far above any real configuration; keeps a path that names the wrong file from filling the memory.
constexpr std::size_t kLargestFile = std::size_t{1024} * 1024;

std::string_view Trim(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
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
    if (OruGuiBase::HasControlCharacter(line)) return Complain("the line contains a control character");
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

  // A key that is set twice is an error: whoever reads the file could not see which of the two lines counts.
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

/// Closes a descriptor at the end of its scope.
struct Descriptor {
  explicit Descriptor(int descriptor) : number(descriptor) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  const int number;
};

// Empty when the file may be trusted. Looks at the open file and not at its path, so that it cannot be
// exchanged between the check and the reading.
std::string FindFault(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return "not a regular file";
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) return "belongs to another user";
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return "others can write to it, and so choose your servers and trusted authorities (chmod go-w)";
  }
  if (static_cast<std::size_t>(status.st_size) > kLargestFile) return "larger than 1 MiB";
  return {};
}

// Bounded although FindFault has looked at the size: the file may have grown since then.
bool ReadAll(int descriptor, std::string& text) {
  char chunk[4096];
  ssize_t got = 1;
  while (got != 0 && text.size() <= kLargestFile) {
    got = ::read(descriptor, chunk, sizeof chunk);
    if (got < 0 && errno != EINTR) return false;
    if (got > 0) text.append(chunk, static_cast<std::size_t>(got));
  }
  return true;
}

ConfigFile Refuse(const std::string& path, const std::string& reason) {
  ConfigFile file;
  file.path = path;
  file.isThere = true;
  file.problems.push_back(path + ": " + reason);
  return file;
}

}  // namespace

ConfigFile ParseConfigFile(const std::string& path, std::string_view text) {
  ConfigFile file;
  file.path = path;
  file.isThere = true;
  Parser(file).Parse(text);
  return file;
}

ConfigFile ReadConfigFile(const std::string& path) {
  // O_NONBLOCK: opening a FIFO would wait for a writer.
  const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (descriptor.number < 0 && (errno == ENOENT || errno == ENOTDIR)) {
    ConfigFile absent;
    absent.path = path;
    return absent;
  }
  struct stat status {};
  if (descriptor.number < 0 || ::fstat(descriptor.number, &status) != 0) {
    return Refuse(path, std::strerror(errno));
  }
  const std::string fault = FindFault(status);
  if (!fault.empty()) return Refuse(path, fault);
  std::string text;
  if (!ReadAll(descriptor.number, text)) return Refuse(path, std::strerror(errno));
  return ParseConfigFile(path, text);
}

}  // namespace CryptCli
