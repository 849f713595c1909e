// The server's answer to a client registration.
#ifndef VELMOR_TRANSPORT_ACTIVATE_CLIENT_RESPONSE_H_
#define VELMOR_TRANSPORT_ACTIVATE_CLIENT_RESPONSE_H_

#include <optional>
#include <string>

#include "velmor/Value.h"

namespace velmor {

// A plain record of the parsed answer. A key that is missing or whose
// value is not a text reads as absent.
class ActivateClientResponse final {
 public:
  explicit ActivateClientResponse(Dictionary responseDictionary);

  const Dictionary& responseDictionary() const { return responseDictionary_; }
  const std::optional<std::string>& clientId() const { return clientId_; }  // "client_id"
  const std::optional<std::string>& clientSecret() const {
    return clientSecret_;
  }  // "client_secret"

 private:
  Dictionary responseDictionary_;
  std::optional<std::string> clientId_;
  std::optional<std::string> clientSecret_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_ACTIVATE_CLIENT_RESPONSE_H_
