// The certificates an HTTPS client trusts.
#ifndef VELMOR_PLATFORM_TRUST_STORE_H_
#define VELMOR_PLATFORM_TRUST_STORE_H_

#include <openssl/types.h>

#include <optional>
#include <string>

namespace velmor {

// Owns an OpenSSL X509_STORE holding the system's CA bundle and an optional
// extra PEM file. Loading the system bundle costs tens of milliseconds with
// OpenSSL 3, so a client loads one store and lets all its connections refer
// to it. The store is reference-counted by OpenSSL and safe to use from
// several connections on several threads once loaded. Move-only.
class TrustStore final {
 public:
  // Nothing when `extraFile` is given but cannot be read or holds no
  // certificate, or when OpenSSL cannot allocate the store. A missing or
  // unreadable system bundle leaves only the extra certificates trusted:
  // verification then fails closed rather than trusting anything more.
  static std::optional<TrustStore> load(const std::optional<std::string>& systemBundle,
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
