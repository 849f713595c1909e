#include "devserver/ClientRegistry.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "devserver/RandomToken.h"

namespace velmor::devserver {

namespace {

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) !=
        std::tolower(static_cast<unsigned char>(prefix[i]))) {
      return false;
    }
  }
  return true;
}

// Strict standard Base64 with padding, as HTTP Basic credentials are sent.
std::optional<std::string> decodeBase64(std::string_view text) {
  if (text.empty() || text.size() % 4 != 0) return std::nullopt;
  const bool valid = std::all_of(text.begin(), text.end(), [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '/' || c == '=';
  });
  const std::size_t padding = text.size() - text.find_last_not_of('=') - 1;
  if (!valid || padding > 2 || text.find('=') < text.size() - padding) return std::nullopt;
  std::string decoded(text.size() / 4 * 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(decoded.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
  if (length < 0) return std::nullopt;
  decoded.resize(static_cast<std::size_t>(length) - padding);
  return decoded;
}

bool sameSecret(const std::string& a, const std::string& b) {
  return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

ClientRegistry::ClientRegistry(std::vector<std::string> appTokens)
    : appTokens_(std::move(appTokens)) {}

std::optional<RegisteredClient> ClientRegistry::registerClient(const std::string& appToken,
                                                               std::string clientContext) {
  if (std::find(appTokens_.begin(), appTokens_.end(), appToken) == appTokens_.end()) {
    return std::nullopt;
  }
  RegisteredClient client{RandomToken::make(16), RandomToken::make(32), appToken,
                          std::move(clientContext)};
  clients_[client.clientId] = client;
  return client;
}

const RegisteredClient* ClientRegistry::authenticate(std::string_view authorizationField) const {
  static constexpr std::string_view kScheme = "Basic ";
  if (!startsWithIgnoringCase(authorizationField, kScheme)) return nullptr;
  std::string_view encoded = authorizationField.substr(kScheme.size());
  while (!encoded.empty() && encoded.front() == ' ') encoded.remove_prefix(1);
  const std::optional<std::string> decoded = decodeBase64(encoded);
  if (!decoded) return nullptr;
  const std::size_t colon = decoded->find(':');
  if (colon == std::string::npos) return nullptr;
  const RegisteredClient* client = find(decoded->substr(0, colon));
  if (client == nullptr || !sameSecret(client->clientSecret, decoded->substr(colon + 1))) {
    return nullptr;
  }
  return client;
}

bool ClientRegistry::updateClientContext(const std::string& clientId, std::string clientContext) {
  auto found = clients_.find(clientId);
  if (found == clients_.end()) return false;
  found->second.clientContext = std::move(clientContext);
  return true;
}

const RegisteredClient* ClientRegistry::find(const std::string& clientId) const {
  auto found = clients_.find(clientId);
  return found == clients_.end() ? nullptr : &found->second;
}

}  // namespace velmor::devserver
