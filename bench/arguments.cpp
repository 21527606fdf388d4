// The command lines of all benchmarks, on CLI11.
#include "bench/arguments.h"

#include <CLI/CLI.hpp>
#include <utility>

namespace Bench {

namespace {

constexpr unsigned kMaxCount = 1U << 20;
constexpr std::size_t kMaxSize = std::size_t{1} << 30;

}  // namespace

Arguments::Arguments(const std::string& description, const std::string& program)
    : app_(std::make_unique<CLI::App>(description, program)) {}

Arguments::~Arguments() = default;

void Arguments::AddNumber(const std::string& name, std::function<void(unsigned)> take,
                          const std::string& help) {
  app_->add_option_function<unsigned>(name, std::move(take), help)->check(CLI::Range(1U, kMaxCount));
}

void Arguments::AddSize(const std::string& name, std::size_t& value, const std::string& help) {
  app_->add_option(name, value, help)->check(CLI::Range(std::size_t{1}, kMaxSize));
}

void Arguments::AddSeed(const std::string& name, unsigned& value, const std::string& help) {
  app_->add_option(name, value, help);
}

void Arguments::AddFlag(const std::string& name, bool& value, const std::string& help) {
  app_->add_flag(name, value, help);
}

void Arguments::AddDirectory(const std::string& name, std::string& path, const std::string& help) {
  app_->add_option(name, path, help)->check(CLI::ExistingDirectory);
}

void Arguments::AddText(const std::string& name, const std::function<bool(const std::string&)>& isValid,
                        const std::string& form, const std::string& help) {
  const auto ignore = [](const std::string&) {};
  app_->add_option_function<std::string>(name, ignore, help)->check([isValid, form](const std::string& text) {
    return isValid(text) ? std::string() : "not " + form + ": " + text;
  });
}

void Arguments::Require(const std::string& name, const std::string& other) {
  app_->get_option(name)->needs(app_->get_option(other));
}

std::optional<int> Arguments::Parse(int argc, char** argv) {
  try {
    app_->parse(argc, argv);
    return std::nullopt;
  } catch (const CLI::ParseError& error) {
    return app_->exit(error);
  }
}

}  // namespace Bench
