#include "platform/LinuxSystemIdentity.h"

#include <limits.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>
#include <vector>

#include "platform/FileSystem.h"
#include "support/Text.h"

namespace velmor {

namespace {

// Both files hold a line or a few; anything longer is not what we look for.
constexpr std::size_t kLargestSmallFile = 64 * 1024;

std::optional<std::string> nonEmpty(std::string text) {
  if (text.empty()) return std::nullopt;
  return text;
}

// A shell-style value: double quotes with backslash escapes, single quotes
// taken literally, unquoted text with backslash escapes; unquoted trailing
// blanks are dropped.
std::string unquote(std::string_view value) {
  std::string out;
  char quote = 0;
  std::size_t keptLength = 0;  // up to the last character that is not an unquoted blank
  for (std::size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (quote == '\'') {
      if (c == '\'') {
        quote = 0;
      } else {
        out += c;
      }
    } else if (c == '\\' && i + 1 < value.size()) {
      const char next = value[i + 1];
      // Inside double quotes only these lose their backslash, as in sh.
      if (quote == '"' && next != '"' && next != '\\' && next != '$' && next != '`') out += c;
      out += next;
      ++i;
    } else if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    } else if (quote == '"' && c == '"') {
      quote = 0;
    } else {
      out += c;
      if (quote == 0 && (c == ' ' || c == '\t')) continue;
    }
    keptLength = out.size();
  }
  out.resize(keptLength);
  return out;
}

std::string_view trimBlanks(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    text.remove_suffix(1);
  return text;
}

struct PasswordEntry {
  std::string gecos;
  std::string directory;
};

std::optional<PasswordEntry> currentPasswordEntry() {
  long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 1024);
  for (;;) {
    passwd entry{};
    passwd* result = nullptr;
    const int status = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result);
    if (status == ERANGE && buffer.size() < (std::size_t{1} << 20)) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (status != 0 || result == nullptr) return std::nullopt;
    return PasswordEntry{entry.pw_gecos ? entry.pw_gecos : "", entry.pw_dir ? entry.pw_dir : ""};
  }
}

std::optional<std::string> hostName() {
  char name[HOST_NAME_MAX + 1] = {};
  if (::gethostname(name, sizeof name - 1) != 0) return std::nullopt;
  return nonEmpty(name);
}

std::optional<std::string> machineType() {
  utsname info{};
  if (::uname(&info) != 0) return std::nullopt;
  return nonEmpty(info.machine);
}

}  // namespace

LinuxSystemIdentity::LinuxSystemIdentity(std::string machineInfoPath, std::string productNamePath)
    : machineInfoPath_(std::move(machineInfoPath)), productNamePath_(std::move(productNamePath)) {}

std::optional<std::string> LinuxSystemIdentity::deviceName() {
  if (std::optional<Data> contents = FileSystem::readFile(machineInfoPath_, kLargestSmallFile)) {
    std::string_view text(reinterpret_cast<const char*>(contents->data()), contents->size());
    if (std::optional<std::string> pretty = prettyHostnameFromMachineInfo(text)) return pretty;
  }
  return hostName();
}

std::optional<std::string> LinuxSystemIdentity::hardwareModel() {
  if (std::optional<Data> contents = FileSystem::readFile(productNamePath_, kLargestSmallFile)) {
    std::string_view text(reinterpret_cast<const char*>(contents->data()), contents->size());
    if (std::optional<std::string> product = nonEmpty(text::trimWhitespaceAndNewlines(text)))
      return product;
  }
  return machineType();
}

std::optional<std::string> LinuxSystemIdentity::userFullName() {
  std::optional<PasswordEntry> entry = currentPasswordEntry();
  if (!entry) return std::nullopt;
  return fullNameFromGecos(entry->gecos);
}

std::optional<std::string> LinuxSystemIdentity::homeDirectory() {
  if (std::optional<std::string> home = environmentVariable("HOME"); home && !home->empty())
    return home;
  std::optional<PasswordEntry> entry = currentPasswordEntry();
  if (!entry) return std::nullopt;
  return nonEmpty(entry->directory);
}

std::optional<std::string> LinuxSystemIdentity::environmentVariable(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

std::optional<std::string> LinuxSystemIdentity::prettyHostnameFromMachineInfo(
    std::string_view contents) {
  constexpr std::string_view kKey = "PRETTY_HOSTNAME";
  std::optional<std::string> found;
  while (!contents.empty()) {
    const std::size_t end = contents.find('\n');
    std::string_view line = trimBlanks(contents.substr(0, end));
    contents.remove_prefix(end == std::string_view::npos ? contents.size() : end + 1);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || trimBlanks(line.substr(0, equals)) != kKey) continue;
    found = unquote(trimBlanks(line.substr(equals + 1)));
  }
  if (!found) return std::nullopt;
  return nonEmpty(std::move(*found));
}

std::optional<std::string> LinuxSystemIdentity::fullNameFromGecos(std::string_view gecos) {
  return nonEmpty(std::string(gecos.substr(0, gecos.find(','))));
}

}  // namespace velmor
