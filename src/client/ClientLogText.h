// How the client's log lines show the objects handed to it.
#ifndef VELMOR_CLIENT_CLIENT_LOG_TEXT_H_
#define VELMOR_CLIENT_CLIENT_LOG_TEXT_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velmor/HttpUrlResponse.h"
#include "velmor/OperationQueue.h"
#include "velmor/Url.h"
#include "velmor/Value.h"
#include "velmor/VelmorAuthorizationClient.h"

namespace velmor {

// Description texts, absent ("(null)" in a line) for absent objects:
// - a URL: its absolute string;
// - scopes and dictionaries: their property-list description;
// - a queue: OperationQueue::description(), "<OperationQueue: 0x…>";
// - a completion: "<__NSMallocBlock__>" when set, the same text logMethod
//   shows for callbacks;
// - an HTTP response: "<HttpUrlResponse: 0x…> { URL: … } { Status Code: …,
//   Headers {…} }";
// - a delegate: "<VelmorAuthorizationClientDelegate: 0x…>".
// Secrets (the key, passwords, codes, received redirect URLs) do not come
// here: LogSecret decides what a line shows for them. Stateless and
// thread-safe.
class ClientLogText final {
 public:
  ClientLogText() = delete;

  static std::optional<std::string> of(const std::optional<Url>& url);
  static std::optional<std::string> of(const std::optional<std::vector<std::string>>& scopes);
  static std::optional<std::string> of(const std::optional<Dictionary>& dictionary);
  static std::optional<std::string> of(const std::shared_ptr<OperationQueue>& queue);
  static std::optional<std::string> of(const std::shared_ptr<HttpUrlResponse>& response);
  static std::optional<std::string> of(const VelmorAuthorizationClientDelegate* delegate);
  template <typename Result, typename... Arguments>
  static std::optional<std::string> of(const std::function<Result(Arguments...)>& completion) {
    return ofCompletion(static_cast<bool>(completion));
  }

 private:
  static std::optional<std::string> ofCompletion(bool isSet);
};

}  // namespace velmor

#endif  // VELMOR_CLIENT_CLIENT_LOG_TEXT_H_
