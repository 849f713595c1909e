// The body of an OAuth 2.0 error answer from the authorization server.
#ifndef VELMOR_SERVER_ERROR_RESPONSE_H_
#define VELMOR_SERVER_ERROR_RESPONSE_H_

#include <optional>
#include <string>

#include "velmor/Export.h"
#include "velmor/Value.h"

namespace velmor {

// A plain record of the five fields of an error body; each is absent when
// the body lacks its key.
class VELMOR_EXPORT ServerErrorResponse final {
 public:
  ServerErrorResponse() = default;
  // Reads "error", "error_description", "error_uri", "x_error_reason" and
  // "x_error_reason_detail". Texts are taken as they are, numbers as their
  // decimal text; any other kind of value counts as absent.
  explicit ServerErrorResponse(const Dictionary& dictionary);

  const std::optional<std::string>& error() const { return error_; }
  const std::optional<std::string>& errorDescription() const { return errorDescription_; }
  const std::optional<std::string>& errorUri() const { return errorUri_; }
  const std::optional<std::string>& errorReason() const { return errorReason_; }
  const std::optional<std::string>& errorReasonDetail() const { return errorReasonDetail_; }

  void setError(std::optional<std::string> value) { error_ = std::move(value); }
  void setErrorDescription(std::optional<std::string> value) {
    errorDescription_ = std::move(value);
  }
  void setErrorUri(std::optional<std::string> value) { errorUri_ = std::move(value); }
  void setErrorReason(std::optional<std::string> value) { errorReason_ = std::move(value); }
  void setErrorReasonDetail(std::optional<std::string> value) {
    errorReasonDetail_ = std::move(value);
  }

 private:
  std::optional<std::string> error_;
  std::optional<std::string> errorDescription_;
  std::optional<std::string> errorUri_;
  std::optional<std::string> errorReason_;
  std::optional<std::string> errorReasonDetail_;
};

}  // namespace velmor

#endif  // VELMOR_SERVER_ERROR_RESPONSE_H_
