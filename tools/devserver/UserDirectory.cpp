#include "devserver/UserDirectory.h"

#include <openssl/crypto.h>

namespace velmor::devserver {

namespace {

// Compares without an early exit, so response times say nothing about how
// much of a guess was right.
bool samePassword(const std::string& a, const std::string& b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

UserDirectory::UserDirectory(const std::vector<UserAccount>& users, int maxFailedSignIns,
                             std::chrono::seconds lockoutDuration, const Clock& clock)
    : maxFailedSignIns_(maxFailedSignIns), lockoutDuration_(lockoutDuration), clock_(clock) {
  for (const UserAccount& user : users) accounts_[user.username] = Account{user.password};
}

bool UserDirectory::contains(const std::string& username) const {
  return accounts_.count(username) != 0;
}

UserDirectory::Check UserDirectory::verify(const std::string& username,
                                           const std::string& password) {
  auto found = accounts_.find(username);
  if (found == accounts_.end()) return {Verdict::kRejected};
  Account& account = found->second;
  if (account.lockedUntil) {
    if (clock_.now() < *account.lockedUntil) return {Verdict::kLockedOut, remainingLock(account)};
    account.lockedUntil.reset();
    account.failures = 0;
  }
  if (samePassword(account.password, password)) {
    account.failures = 0;
    return {Verdict::kAccepted};
  }
  ++account.failures;
  if (maxFailedSignIns_ > 0 && account.failures >= maxFailedSignIns_) {
    account.lockedUntil = clock_.now() + lockoutDuration_;
    return {Verdict::kLockedOut, remainingLock(account)};
  }
  return {Verdict::kRejected};
}

std::chrono::seconds UserDirectory::remainingLock(const Account& account) const {
  const auto left = *account.lockedUntil - clock_.now();
  // Rounded up: "0 seconds left" while still locked would invite a retry.
  auto seconds = std::chrono::ceil<std::chrono::seconds>(left);
  return seconds < std::chrono::seconds(1) ? std::chrono::seconds(1) : seconds;
}

}  // namespace velmor::devserver
