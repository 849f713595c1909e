// The file that keeps the tool's encryption key between runs.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_KEY_FILE_H_
#define VELMOR_TOOLS_VELMOR_AUTH_KEY_FILE_H_

#include <functional>
#include <optional>
#include <string>

#include "velmor/Data.h"

namespace velmor::tool {

// The key is Base64 text on one line. A missing file is made with a fresh
// key: its directory (and missing parents) with mode 0700, the file itself
// with 0600, written whole before it gets its name, so a reader never sees
// half a key and two runs racing to make it agree on one.
class KeyFile final {
 public:
  KeyFile() = delete;

  // "$XDG_CONFIG_HOME/<name>", XDG_CONFIG_HOME defaulting to "$HOME/.config";
  // empty when there is no home directory.
  static std::string configPath(const std::string& name);

  // The key in `path`, made with `generate` first when the file does not
  // exist. Nothing, with a sentence in `error`, when the file cannot be
  // read, made, or holds no Base64 key.
  static std::optional<Data> loadOrCreate(const std::string& path,
                                          const std::function<Data()>& generate,
                                          std::string* error);
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_KEY_FILE_H_
