#include "velmor/VelmorAuthorizationLogger.h"

#include <cstdio>
#include <string>
#include <vector>

#include "support/Format.h"
#include "velmor/Exception.h"

namespace velmor {

namespace {

const char* labelFor(std::int64_t logLevel) {
  switch (logLevel) {
    case VelmorAuthorizationLogger::kLevelSensitive:
      return "SENSITIVE";
    case VelmorAuthorizationLogger::kLevelInfo:
      return "INFO";
    case VelmorAuthorizationLogger::kLevelError:
      return "ERROR";
    default:
      return "UNKNOWN";
  }
}

std::vector<std::string_view> splitOnColons(std::string_view text) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  for (std::size_t colon = text.find(':'); colon != std::string_view::npos;
       colon = text.find(':', start)) {
    parts.push_back(text.substr(start, colon - start));
    start = colon + 1;
  }
  parts.push_back(text.substr(start));
  return parts;
}

std::string describeArgument(const LogArgument& argument, std::string_view methodName) {
  const std::string& tag = argument.typeTag;
  if (tag == "@" || tag == "@?") return stringWithFormat(": '%@'", argument.text);
  if (tag == "^@" || tag == "^I" || tag == "^Q") {
    return stringWithFormat(": '0x%lx'", reinterpret_cast<std::uintptr_t>(argument.pointer));
  }
  if (tag == "I" || tag == "Q") {
    return stringWithFormat(": '%ld'", static_cast<std::int64_t>(argument.number));
  }
  if (tag == "B") return stringWithFormat(": '%@'", argument.number != 0 ? "YES" : "NO");
  if (tag == "c") {
    return stringWithFormat(": '%ld'", static_cast<signed char>(argument.number & 0xFF));
  }
  std::string notice = stringWithFormat("Unknown type: '%s' in '%@'", tag, methodName);
  std::fprintf(stderr, "%s\n", notice.c_str());
  throw GenericException("Unexpected parameter type");
}

}  // namespace

LogArgument LogArgument::object(std::optional<std::string> description) {
  return {"@", std::move(description), 0, nullptr};
}

LogArgument LogArgument::pointerTo(std::string typeTag, const void* pointer) {
  return {std::move(typeTag), std::nullopt, 0, pointer};
}

LogArgument LogArgument::unsignedInteger(std::uint64_t value) {
  return {"Q", std::nullopt, value, nullptr};
}

LogArgument LogArgument::boolean(bool value) {
  return {"B", std::nullopt, value ? 1u : 0u, nullptr};
}

LogArgument LogArgument::yesNo(signed char value) {
  return {"c", std::nullopt, static_cast<unsigned char>(value), nullptr};
}

LogArgument LogArgument::callback(bool isSet) {
  std::optional<std::string> description;
  if (isSet) description = "<__NSMallocBlock__>";
  return {"@?", std::move(description), 0, nullptr};
}

VelmorAuthorizationLogger& VelmorAuthorizationLogger::sharedLogger() {
  // Its destructor is trivial, so logging from other static destructors stays safe.
  static VelmorAuthorizationLogger instance;
  return instance;
}

bool VelmorAuthorizationLogger::isLoggable(std::int64_t logLevel) const {
  return this->logLevel() >= logLevel;
}

void VelmorAuthorizationLogger::log(std::string_view message, std::int64_t logLevel) {
  if (!isLoggable(logLevel)) return;
  VelmorAuthorizationLoggerDelegate* target = delegate();
  if (target == nullptr) return;
  target->velmorAuthorizationLoggerLog(
      *this, stringWithFormat("%@\t%@", labelFor(logLevel), message), logLevel);
}

void VelmorAuthorizationLogger::logMethod(std::string_view methodName,
                                          const std::vector<LogArgument>& arguments) {
  if (!isLoggable(kLevelInfo)) return;
  std::vector<std::string_view> parts = splitOnColons(methodName);
  // Count as the platform does: two implicit arguments come first.
  const std::size_t count = arguments.size() + 2;
  std::string text;
  for (std::size_t i = 2;; ++i) {
    if (i - 2 < parts.size()) text += parts[i - 2];
    if (i >= count) break;
    text += describeArgument(arguments[i - 2], methodName);
    if (i < count - 1) text += ' ';
  }
  log(text, kLevelInfo);
}

}  // namespace velmor
