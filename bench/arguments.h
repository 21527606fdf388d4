#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Bench {

/// The command line of a benchmark. The parser is compiled once for all of them: it takes longer to
/// compile than any benchmark itself.
class Arguments {
 public:
  Arguments(const std::string& description, const std::string& program);
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;
  ~Arguments();

  /// A number from 1 to 2^20; without the option the value stays as it is.
  template <class Number>
  void AddCount(const std::string& name, Number& value, const std::string& help) {
    AddNumber(
        name, [&value](unsigned number) { value = static_cast<Number>(number); }, help);
  }
  /// A number of bytes, up to 1 GiB.
  void AddSize(const std::string& name, std::size_t& value, const std::string& help);
  /// Any 32-bit number.
  void AddSeed(const std::string& name, unsigned& value, const std::string& help);
  void AddFlag(const std::string& name, bool& value, const std::string& help);
  /// A directory that exists.
  void AddDirectory(const std::string& name, std::string& path, const std::string& help);
  /// A string that `isValid` takes; `form` says in a message what it should look like.
  void AddText(const std::string& name, const std::function<bool(const std::string&)>& isValid,
               const std::string& form, const std::string& help);
  /// `name` is refused without `other`.
  void Require(const std::string& name, const std::string& other);

  /// Reads the arguments. Help was asked for, or they are wrong, and the program has said so: the exit
  /// status.
  std::optional<int> Parse(int argc, char** argv);

 private:
  void AddNumber(const std::string& name, std::function<void(unsigned)> take, const std::string& help);

  std::unique_ptr<CLI::App> app_;
};

}  // namespace Bench
