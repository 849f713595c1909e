// The user table of the development server, with its lock-out rule.
#ifndef VELMOR_TOOLS_DEVSERVER_USER_DIRECTORY_H_
#define VELMOR_TOOLS_DEVSERVER_USER_DIRECTORY_H_

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "devserver/Clock.h"
#include "devserver/ServiceSettings.h"

namespace velmor::devserver {

// After `maxFailedSignIns` wrong passwords in a row an account is locked for
// `lockoutDuration`: every attempt meanwhile, the right password included, is
// answered with the time left, and the count starts afresh once the lock
// ends. A right password also resets the count. Unknown user names are
// simply rejected; they have no count to lock.
//
// Not thread-safe: the service that owns it serialises the calls. The clock
// must outlive the directory.
class UserDirectory final {
 public:
  enum class Verdict { kAccepted, kRejected, kLockedOut };
  struct Check {
    Verdict verdict;
    // While locked out: the whole seconds until the lock ends, at least 1.
    std::chrono::seconds lockedFor{0};
  };

  UserDirectory(const std::vector<UserAccount>& users, int maxFailedSignIns,
                std::chrono::seconds lockoutDuration, const Clock& clock);

  Check verify(const std::string& username, const std::string& password);
  bool contains(const std::string& username) const;

 private:
  struct Account {
    std::string password;
    int failures = 0;
    std::optional<Clock::TimePoint> lockedUntil{};
  };

  std::chrono::seconds remainingLock(const Account& account) const;

  std::map<std::string, Account> accounts_;
  int maxFailedSignIns_;
  std::chrono::seconds lockoutDuration_;
  const Clock& clock_;
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_USER_DIRECTORY_H_
