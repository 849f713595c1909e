// The error object that every failed operation hands back.
#ifndef VELMOR_ERROR_H_
#define VELMOR_ERROR_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "velmor/Export.h"
#include "velmor/Value.h"

namespace velmor {

// A domain, a signed code and user information, as the platform's errors
// carry. Errors are immutable once made and may be passed between threads.
class VELMOR_EXPORT Error {
 public:
  Error(std::string domain, std::int64_t code, std::optional<Dictionary> userInfo = std::nullopt);
  virtual ~Error();

  Error(const Error&) = default;
  Error& operator=(const Error&) = default;

  const std::string& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  // Absent when the error was made without user information.
  const std::optional<Dictionary>& userInfo() const { return userInfo_; }

  // "Error Domain=<domain> Code=<code> \"<localized description>\"" followed
  // by " UserInfo=<dictionary>" when there is user information. Subclasses
  // may answer nothing at all.
  virtual std::optional<std::string> description() const;
  // The "NSLocalizedDescription" user-information text when there is one,
  // otherwise "The operation couldn’t be completed. (<domain> error <code>.)".
  virtual std::optional<std::string> localizedDescription() const;

 private:
  std::string domain_;
  std::int64_t code_;
  std::optional<Dictionary> userInfo_;
};

// Errors are shared: a completion and the caller's error location may hold
// the same one.
using ErrorRef = std::shared_ptr<Error>;

}  // namespace velmor

#endif  // VELMOR_ERROR_H_
