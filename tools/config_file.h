#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace CryptCli {

/// One "key = value" line of a configuration file.
struct ConfigEntry {
  std::string section;  ///< the profile; empty for the part above the first section
  std::string key;
  std::string value;
  int line = 0;  ///< from 1
};

/// A configuration file in memory. A plain value.
struct ConfigFile {
  std::string path;
  bool isThere = false;
  std::vector<ConfigEntry> entries;
  std::vector<std::string> sections;
  /// What is wrong with it, each as "PATH:LINE: REASON". A file with problems must not be used.
  std::vector<std::string> problems;
};

/// Parses the text of a file: "[profile]" sections, "key = value", empty lines, and lines that start with
/// '#'. Blanks around names and values are dropped; a '#' within a value belongs to it. Keys are not looked
/// up here. Every problem is listed, not only the first.
ConfigFile ParseConfigFile(const std::string& path, std::string_view text);

/// Reads and parses a file. One that does not exist is no problem. One that people other than its owner and
/// root can write is refused, and so is one that belongs to somebody other than the user or root.
ConfigFile ReadConfigFile(const std::string& path);

}  // namespace CryptCli
