#include "CommandLine.h"

#include <utility>

namespace velmor::tool {

namespace {

const OptionSpec* findOption(const std::vector<OptionSpec>& options, std::string_view name) {
  for (const OptionSpec& option : options) {
    if (option.name == name) return &option;
  }
  return nullptr;
}

CommandLine::Result failure(std::string message) { return {std::nullopt, std::move(message)}; }

}  // namespace

std::optional<std::string> Invocation::value(std::string_view option) const {
  auto found = options_.find(std::string(option));
  if (found == options_.end() || found->second.empty()) return std::nullopt;
  return found->second.back();
}

std::vector<std::string> Invocation::values(std::string_view option) const {
  auto found = options_.find(std::string(option));
  return found == options_.end() ? std::vector<std::string>() : found->second;
}

CommandLine::Result CommandLine::parse(const std::vector<std::string>& words,
                                       const std::vector<OptionSpec>& commonOptions,
                                       SyntaxLookup lookup) {
  Invocation invocation;
  const CommandSyntax* syntax = nullptr;
  bool optionsEnded = false;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (!optionsEnded && (word == "--help" || word == "-h")) {
      invocation.helpRequested_ = true;
    } else if (!optionsEnded && word == "--") {
      optionsEnded = true;
    } else if (!optionsEnded && word.size() > 1 && word[0] == '-') {
      const std::size_t equals = word.find('=');
      const std::string name = word.substr(0, equals);
      const OptionSpec* option = findOption(commonOptions, name);
      if (option == nullptr && syntax != nullptr) option = findOption(syntax->options, name);
      if (option == nullptr) {
        if (invocation.helpRequested_) continue;
        return failure(syntax ? "unknown option " + name + " for " + invocation.command_
                              : "unknown option " + name);
      }
      std::vector<std::string>& given = invocation.options_[name];
      if (!given.empty() && !option->repeatable) return failure(name + " is given twice");
      if (!option->takesValue()) {
        if (equals != std::string::npos) return failure(name + " takes no value");
        given.emplace_back();
      } else if (equals != std::string::npos) {
        given.push_back(word.substr(equals + 1));
      } else if (i + 1 < words.size()) {
        given.push_back(words[++i]);
      } else {
        return failure(name + " needs a value (" + std::string(option->valueName) + ")");
      }
    } else if (syntax == nullptr) {
      syntax = lookup(word);
      if (syntax == nullptr) return failure("unknown command '" + word + "'");
      invocation.command_ = word;
    } else {
      invocation.arguments_.push_back(word);
    }
  }
  if (invocation.helpRequested_) return {std::move(invocation), ""};
  if (syntax == nullptr) return failure("no command given");
  const std::size_t expected = syntax->arguments.size();
  if (invocation.arguments_.size() != expected) {
    if (invocation.arguments_.size() > expected) {
      return failure("unexpected argument '" + invocation.arguments_[expected] + "' for " +
                     invocation.command_);
    }
    return failure(invocation.command_ + " needs " +
                   std::string(syntax->arguments[invocation.arguments_.size()]));
  }
  return {std::move(invocation), ""};
}

std::optional<std::uint64_t> parseUnsigned(std::string_view text) {
  if (text.empty() || text.size() > 20) return std::nullopt;
  std::uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    const std::uint64_t digit = static_cast<std::uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10) return std::nullopt;
    value = value * 10 + digit;
  }
  return value;
}

}  // namespace velmor::tool
