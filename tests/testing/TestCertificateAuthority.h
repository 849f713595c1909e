// A certificate authority made at test time, for HTTPS test servers.
#ifndef VELMOR_TESTING_TEST_CERTIFICATE_AUTHORITY_H_
#define VELMOR_TESTING_TEST_CERTIFICATE_AUTHORITY_H_

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "testing/TemporaryDirectory.h"

namespace velmor::test {

// PEM files of a certificate and its unencrypted private key.
struct CertificateFiles {
  std::string certificate;
  std::string privateKey;
};

// What a leaf certificate says about itself.
struct LeafProfile {
  // Subject alternative names: "DNS:localhost", "IP:127.0.0.1", ...
  std::vector<std::string> alternativeNames = {"DNS:localhost", "IP:127.0.0.1"};
  // Validity period relative to now.
  std::chrono::seconds validFrom = -std::chrono::hours(1);
  std::chrono::seconds validUntil = std::chrono::hours(24);
};

// An EC P-256 CA key and self-signed CA certificate, and the leaf
// certificates it signs, written as PEM files to a temporary directory that
// goes away with the object. Throws std::runtime_error when OpenSSL fails.
// Not thread-safe.
class TestCertificateAuthority final {
 public:
  TestCertificateAuthority();
  ~TestCertificateAuthority();
  TestCertificateAuthority(const TestCertificateAuthority&) = delete;
  TestCertificateAuthority& operator=(const TestCertificateAuthority&) = delete;

  // The CA certificate: what a client must trust to accept the leaves.
  const std::string& caFile() const { return caFile_; }

  CertificateFiles issue(const LeafProfile& profile);
  // For "localhost" and 127.0.0.1, valid from an hour ago for a day.
  CertificateFiles localhostLeaf() { return issue(LeafProfile{}); }
  // For "localhost" and 127.0.0.1, ended a day ago.
  CertificateFiles expiredLeaf();
  // For `dnsName` only.
  CertificateFiles leafForHost(const std::string& dnsName);

 private:
  struct Keys;

  TemporaryDirectory directory_;
  std::unique_ptr<Keys> keys_;
  std::string caFile_;
  long nextSerial_ = 2;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_TEST_CERTIFICATE_AUTHORITY_H_
