#include "transport/HttpTransactionProtocol.h"

namespace velmor {

HttpTransactionProtocol::~HttpTransactionProtocol() = default;

ErrorRef HttpTransactionProtocol::handleResponseError(const std::shared_ptr<HttpUrlResponse>&,
                                                      const std::optional<Data>&) {
  return nullptr;
}

ErrorRef HttpTransactionProtocol::handleAuthenticateResponseError(const std::optional<Data>&) {
  return nullptr;
}

}  // namespace velmor
