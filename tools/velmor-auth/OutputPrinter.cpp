#include "OutputPrinter.h"

#include <utility>

namespace velmor::tool {

OutputPrinter::OutputPrinter(bool json, std::FILE* out, std::FILE* err)
    : json_(json), out_(out), err_(err) {}

void OutputPrinter::set(const std::string& member, nlohmann::json value) {
  if (json_) object_[member] = std::move(value);
}

void OutputPrinter::line(std::string_view text) {
  if (json_) return;
  std::fprintf(out_, "%.*s\n", static_cast<int>(text.size()), text.data());
  std::fflush(out_);
}

void OutputPrinter::notice(std::string_view text) {
  std::FILE* stream = json_ ? err_ : out_;
  std::fprintf(stream, "%.*s\n", static_cast<int>(text.size()), text.data());
  std::fflush(stream);
}

int OutputPrinter::fail(const ErrorRef& error) {
  if (!error) return kExitFailure;
  const std::optional<std::string> description = describe(*error);
  object_["error"] = {{"domain", error->domain()},
                      {"code", error->code()},
                      {"description", description ? nlohmann::json(*description) : nullptr}};
  std::fprintf(err_, "velmor-auth: %s (%s, code %lld)\n", description.value_or("error").c_str(),
               error->domain().c_str(), static_cast<long long>(error->code()));
  std::fflush(err_);
  return kExitFailure;
}

int OutputPrinter::usage(std::string_view message, std::string_view command) {
  std::fprintf(err_, "velmor-auth: %.*s\nTry 'velmor-auth %.*s%s--help'.\n",
               static_cast<int>(message.size()), message.data(), static_cast<int>(command.size()),
               command.data(), command.empty() ? "" : " ");
  std::fflush(err_);
  return kExitUsage;
}

int OutputPrinter::finish(int status) {
  if (json_ && !finished_) {
    finished_ = true;
    std::fprintf(out_, "%s\n", object_.dump().c_str());
    std::fflush(out_);
  }
  return status;
}

std::optional<std::string> OutputPrinter::describe(const Error& error) {
  std::optional<std::string> text = error.localizedDescription();
  return text ? text : error.description();
}

}  // namespace velmor::tool
