#include "platform/TrustStore.h"

#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <utility>

#include "platform/SystemIdentity.h"

namespace velmor {

namespace {

std::optional<std::string> nonEmptyVariable(const char* name) {
  std::optional<std::string> value = SystemIdentity::defaultIdentity().environmentVariable(name);
  if (value && value->empty()) return std::nullopt;
  return value;
}

}  // namespace

EnvironmentCertificates EnvironmentCertificates::fromEnvironment() {
  return {nonEmptyVariable("SSL_CERT_FILE"), nonEmptyVariable("SSL_CERT_DIR")};
}

std::optional<TrustStore> TrustStore::load(const std::optional<std::string>& systemBundle,
                                           const EnvironmentCertificates& environment,
                                           const std::optional<std::string>& extraFile) {
  X509_STORE* raw = X509_STORE_new();
  if (raw == nullptr) return std::nullopt;
  TrustStore store(raw);
  if (systemBundle) X509_STORE_load_file(raw, systemBundle->c_str());
  if (environment.file) X509_STORE_load_file(raw, environment.file->c_str());
  // OpenSSL splits the list itself.
  if (environment.directories) X509_STORE_load_path(raw, environment.directories->c_str());
  const bool extraLoaded = !extraFile || X509_STORE_load_file(raw, extraFile->c_str()) == 1;
  // Failed loads leave entries in this thread's OpenSSL error queue, where
  // the next TLS handshake on the thread would find and misreport them.
  ERR_clear_error();
  if (!extraLoaded) return std::nullopt;
  return store;
}

TrustStore::TrustStore(TrustStore&& other) noexcept
    : store_(std::exchange(other.store_, nullptr)) {}

TrustStore& TrustStore::operator=(TrustStore&& other) noexcept {
  if (this != &other) {
    X509_STORE_free(store_);
    store_ = std::exchange(other.store_, nullptr);
  }
  return *this;
}

TrustStore::~TrustStore() { X509_STORE_free(store_); }

}  // namespace velmor
