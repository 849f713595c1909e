// The clients the development server has registered, and the check of their
// "Basic" credentials.
#ifndef VELMOR_TOOLS_DEVSERVER_CLIENT_REGISTRY_H_
#define VELMOR_TOOLS_DEVSERVER_CLIENT_REGISTRY_H_

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmor::devserver {

struct RegisteredClient {
  std::string clientId;
  std::string clientSecret;
  std::string appToken;
  // What the client last told about its device and user.
  std::string clientContext;
};

// Every registration makes a new client with a fresh id and secret, even for
// an application token registered before: each installation is a client of
// its own. Not thread-safe: the owning service serialises the calls.
class ClientRegistry final {
 public:
  explicit ClientRegistry(std::vector<std::string> appTokens);

  // Nothing when the application token is not one the server knows.
  std::optional<RegisteredClient> registerClient(const std::string& appToken,
                                                 std::string clientContext);
  // The client an "Authorization: Basic base64(id:secret)" field names, when
  // the secret is right; nullptr for anything else (another scheme, bad
  // Base64, no colon, unknown id, wrong secret). Clients are never removed,
  // so the pointer stays valid as long as the registry.
  const RegisteredClient* authenticate(std::string_view authorizationField) const;
  bool updateClientContext(const std::string& clientId, std::string clientContext);
  const RegisteredClient* find(const std::string& clientId) const;
  std::size_t size() const { return clients_.size(); }

 private:
  std::vector<std::string> appTokens_;
  std::map<std::string, RegisteredClient> clients_;
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_CLIENT_REGISTRY_H_
