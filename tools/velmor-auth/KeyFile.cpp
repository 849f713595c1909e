#include "KeyFile.h"

#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "UniqueFd.h"
#include "velmor/Base64.h"

namespace velmor::tool {

namespace {

std::string homeDirectory() {
  const char* home = ::getenv("HOME");
  if (home != nullptr && home[0] == '/') return home;
  const struct passwd* entry = ::getpwuid(::getuid());
  return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "";
}

bool makeParents(const std::string& path, std::string* error) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string directory = path.substr(0, slash);
    struct stat status {};
    if (::stat(directory.c_str(), &status) == 0) continue;
    if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
      *error = "cannot create " + directory + ": " + std::strerror(errno);
      return false;
    }
  }
  return true;
}

std::optional<Data> readKey(const std::string& path, std::string* error) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    *error = "cannot read the key file " + path;
    return std::nullopt;
  }
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  // The decoder skips the line break and any blanks around the key.
  std::optional<Data> key = Base64::decodeBase64WithString(text);
  if (!key || key->empty()) {
    *error = "the key file " + path + " holds no Base64 key";
    return std::nullopt;
  }
  return key;
}

// Writes the key under a temporary name and links it into place, so that
// of two runs making the key at once, one wins and both read its key.
bool writeKey(const std::string& path, const Data& key, std::string* error) {
  const std::string temporary = path + ".tmp-" + std::to_string(::getpid());
  UniqueFd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file.valid()) {
    *error = "cannot create " + temporary + ": " + std::strerror(errno);
    return false;
  }
  const std::string text = Base64::encodeBase64WithData(key).value_or("") + "\n";
  const bool written =
      ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
      ::fsync(file.get()) == 0 && file.close();
  const bool linked = written && (::link(temporary.c_str(), path.c_str()) == 0 || errno == EEXIST);
  const int linkErrno = errno;
  ::unlink(temporary.c_str());
  if (!linked) {
    *error = "cannot write the key file " + path + ": " + std::strerror(linkErrno);
    return false;
  }
  return true;
}

}  // namespace

std::string KeyFile::configPath(const std::string& name) {
  const char* configHome = ::getenv("XDG_CONFIG_HOME");
  if (configHome != nullptr && configHome[0] == '/') return std::string(configHome) + "/" + name;
  const std::string home = homeDirectory();
  return home.empty() ? std::string() : home + "/.config/" + name;
}

std::optional<Data> KeyFile::loadOrCreate(const std::string& path,
                                          const std::function<Data()>& generate,
                                          std::string* error) {
  if (path.empty()) {
    *error = "no key file: there is no home directory; give --key-file";
    return std::nullopt;
  }
  if (::access(path.c_str(), F_OK) != 0) {
    if (!makeParents(path, error) || !writeKey(path, generate(), error)) return std::nullopt;
  }
  return readKey(path, error);
}

}  // namespace velmor::tool
