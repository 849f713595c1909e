// The certificates an HTTPS client trusts.
#ifndef VELMOR_PLATFORM_TRUST_STORE_H_
#define VELMOR_PLATFORM_TRUST_STORE_H_

#include <openssl/types.h>

#include <optional>
#include <string>

namespace velmor {

// Where the environment names more certificates to trust, read as OpenSSL
// and curl read it: SSL_CERT_FILE a PEM file, SSL_CERT_DIR a colon-separated
// list of directories of certificates named by subject hash ("c_rehash").
// Unset and empty values name nothing.
struct EnvironmentCertificates {
  std::optional<std::string> file;
  std::optional<std::string> directories;

  // From SystemIdentity's environment.
  static EnvironmentCertificates fromEnvironment();
};

// Owns an OpenSSL X509_STORE holding the system's CA bundle, the
// environment's certificates and an optional extra PEM file. Loading the system bundle costs tens
// of milliseconds with OpenSSL 3, so a client loads one store and lets all its connections refer to
// it. The store is reference-counted by OpenSSL and safe to use from several connections on several
// threads once loaded. Move-only.
class TrustStore final {
 public:
  // Nothing when `extraFile` is given but cannot be read or holds no
  // certificate, or when OpenSSL cannot allocate the store. A missing or
  // unreadable system bundle or environment file is skipped, as OpenSSL
  // skips them: verification then fails closed rather than trusting
  // anything more. Directories are read when a certificate is looked up.
  static std::optional<TrustStore> load(const std::optional<std::string>& systemBundle,
                                        const EnvironmentCertificates& environment,
                                        const std::optional<std::string>& extraFile);

  TrustStore(TrustStore&& other) noexcept;
  TrustStore& operator=(TrustStore&& other) noexcept;
  TrustStore(const TrustStore&) = delete;
  TrustStore& operator=(const TrustStore&) = delete;
  ~TrustStore();

  // Never null; still owned by this object (take a reference to keep it).
  X509_STORE* get() const { return store_; }

 private:
  explicit TrustStore(X509_STORE* store) : store_(store) {}

  X509_STORE* store_;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_TRUST_STORE_H_
