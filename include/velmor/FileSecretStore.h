// A secret store in files, for machines without a Secret Service (servers,
// SSH sessions, CI).
#ifndef VELMOR_FILE_SECRET_STORE_H_
#define VELMOR_FILE_SECRET_STORE_H_

#include <string>

#include "velmor/SecretStore.h"

namespace velmor {

// One file per item in a directory only the user can open (mode 0700), each
// file (mode 0600) named by the hex SHA-256 of service, NUL, account, and
// holding a binary property list {"Service", "Account", "Data"}. Writes go to
// a temporary file that is flushed and renamed into place, so a crash leaves
// the old or the new item, never a torn one; an advisory lock serialises
// writers across processes. Thread-safe. I/O failures answer -36.
class FileSecretStore final : public SecretStore {
 public:
  // `directory` is created on first write if missing.
  explicit FileSecretStore(std::string directory);

  // $XDG_DATA_HOME/velmor-authorization/keychain (XDG_DATA_HOME defaulting
  // to ~/.local/share).
  static std::string defaultDirectory();

  std::int32_t find(const std::string& service, const std::string& account, Data* data) override;
  std::int32_t add(const std::string& service, const std::string& account,
                   const Data& data) override;
  std::int32_t update(const std::string& service, const std::string& account,
                      const Data& data) override;
  std::int32_t remove(const std::string& service, const std::string& account) override;

  const std::string& directory() const { return directory_; }

 private:
  std::string directory_;
};

}  // namespace velmor

#endif  // VELMOR_FILE_SECRET_STORE_H_
