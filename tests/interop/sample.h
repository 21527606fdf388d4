#pragma once

#include <string>

namespace TestSupport {

/// A string of some hundred thousand bytes, with line ends that mail programs change.
inline const std::string& Sample() {
  static const std::string bytes = [] {
    std::string text;
    for (int i = 0; i < 30000; ++i) text += "line " + std::to_string(i) + "\r\n";
    return text;
  }();
  return bytes;
}

}  // namespace TestSupport
