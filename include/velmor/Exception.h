// The exceptions the library raises for programming errors. Failures of
// server exchanges and storage are returned as errors, never thrown.
#ifndef VELMOR_EXCEPTION_H_
#define VELMOR_EXCEPTION_H_

#include <exception>
#include <string>

#include "velmor/Export.h"
#include "velmor/Value.h"

namespace velmor {

// An exception with the platform's shape: a name that says what kind of
// mistake it is, a reason naming the offending value, and optional details.
class VELMOR_EXPORT Exception : public std::exception {
 public:
  Exception(std::string name, std::string reason, Dictionary userInfo = {});

  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }
  const Dictionary& userInfo() const { return userInfo_; }
  const char* what() const noexcept override { return reason_.c_str(); }

 private:
  std::string name_;
  std::string reason_;
  Dictionary userInfo_;
};

// "NSInvalidArgumentException": a missing or malformed argument.
class VELMOR_EXPORT InvalidArgumentException final : public Exception {
 public:
  explicit InvalidArgumentException(std::string reason);
};

// "NSRangeException": a value or index out of its allowed range.
class VELMOR_EXPORT RangeException final : public Exception {
 public:
  explicit RangeException(std::string reason);
};

// "NSInternalInconsistencyException": the library was used in a way its
// design rules out, such as calling an abstract method.
class VELMOR_EXPORT InternalInconsistencyException final : public Exception {
 public:
  explicit InternalInconsistencyException(std::string reason);
};

// "NSGenericException": a failure with no more specific kind, such as the
// secure random source or key derivation failing.
class VELMOR_EXPORT GenericException final : public Exception {
 public:
  explicit GenericException(std::string reason);
};

}  // namespace velmor

#endif  // VELMOR_EXCEPTION_H_
