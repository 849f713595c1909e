// How a command reports: lines of text for people, or one JSON object with
// --json; errors always also on standard error.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_OUTPUT_PRINTER_H_
#define VELMOR_TOOLS_VELMOR_AUTH_OUTPUT_PRINTER_H_

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "velmor/Error.h"

namespace velmor::tool {

// Exit statuses of every command.
constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;  // an operation failed
constexpr int kExitUsage = 2;    // the command line is wrong

// In text mode lines are written as they come; in JSON mode members are
// collected and finish() writes them as one object on one line. One thread
// at a time.
class OutputPrinter final {
 public:
  OutputPrinter(bool json, std::FILE* out, std::FILE* err);

  bool json() const { return json_; }

  // A member of the JSON object; ignored in text mode.
  void set(const std::string& member, nlohmann::json value);
  // A line for people; ignored in JSON mode.
  void line(std::string_view text);
  // Text written now in either mode, to standard error in JSON mode so that
  // standard output stays one object (a URL to open, a prompt).
  void notice(std::string_view text);

  // Records `error` as the "error" member {"domain", "code", "description"}
  // and writes "velmor-auth: <description> (<domain>, code <code>)" to
  // standard error. Returns kExitFailure.
  int fail(const ErrorRef& error);
  // Writes "velmor-auth: <message>" and a pointer to --help to standard
  // error; no JSON. Returns kExitUsage.
  int usage(std::string_view message, std::string_view command = "");

  // Writes the JSON object (JSON mode, once: later calls write nothing) and
  // returns `status`. A command that keeps running (serve) calls it early.
  int finish(int status);

  // The error's text as the tool shows it: its localized description, else
  // its description, else nothing.
  static std::optional<std::string> describe(const Error& error);

 private:
  bool json_;
  std::FILE* out_;
  std::FILE* err_;
  nlohmann::json object_ = nlohmann::json::object();
  bool finished_ = false;
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_OUTPUT_PRINTER_H_
