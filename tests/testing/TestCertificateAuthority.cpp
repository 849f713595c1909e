#include "testing/TestCertificateAuthority.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace velmor::test {

namespace {

struct PkeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct X509Deleter {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
struct FileDeleter {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyDeleter>;
using Certificate = std::unique_ptr<X509, X509Deleter>;

void require(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string("test certificate: ") + what);
}

Pkey makeKey() {
  Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  require(key != nullptr, "key generation");
  return key;
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
  require(extension != nullptr, "extension");
  const int added = X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
  require(added == 1, "adding an extension");
}

// A certificate for `key` named `commonName`, not yet signed; `issuer` null
// makes it its own issuer.
Certificate makeCertificate(EVP_PKEY* key, const std::string& commonName, X509* issuer, long serial,
                            std::chrono::seconds from, std::chrono::seconds until) {
  Certificate certificate(X509_new());
  require(certificate != nullptr, "allocation");
  X509* raw = certificate.get();
  require(X509_set_version(raw, X509_VERSION_3) == 1 &&
              ASN1_INTEGER_set(X509_get_serialNumber(raw), serial) == 1 &&
              X509_gmtime_adj(X509_getm_notBefore(raw), static_cast<long>(from.count())) &&
              X509_gmtime_adj(X509_getm_notAfter(raw), static_cast<long>(until.count())) &&
              X509_set_pubkey(raw, key) == 1,
          "fields");
  X509_NAME* name = X509_get_subject_name(raw);
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                                     -1, 0) == 1,
          "subject");
  require(X509_set_issuer_name(raw, X509_get_subject_name(issuer ? issuer : raw)) == 1, "issuer");
  return certificate;
}

void sign(X509* certificate, EVP_PKEY* key) {
  require(X509_sign(certificate, key, EVP_sha256()) > 0, "signing");
}

void writeCertificate(const std::string& path, X509* certificate) {
  std::unique_ptr<std::FILE, FileDeleter> file(std::fopen(path.c_str(), "w"));
  require(file != nullptr && PEM_write_X509(file.get(), certificate) == 1, "writing a certificate");
}

void writeKey(const std::string& path, EVP_PKEY* key) {
  std::unique_ptr<std::FILE, FileDeleter> file(std::fopen(path.c_str(), "w"));
  require(file != nullptr &&
              PEM_write_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1,
          "writing a key");
}

}  // namespace

struct TestCertificateAuthority::Keys {
  Pkey key;
  Certificate certificate;
};

TestCertificateAuthority::TestCertificateAuthority() : keys_(std::make_unique<Keys>()) {
  keys_->key = makeKey();
  keys_->certificate = makeCertificate(keys_->key.get(), "Velmor Test CA", nullptr, 1,
                                       -std::chrono::hours(1), std::chrono::hours(48));
  X509* ca = keys_->certificate.get();
  addExtension(ca, ca, NID_basic_constraints, "critical,CA:TRUE");
  addExtension(ca, ca, NID_key_usage, "critical,keyCertSign,cRLSign");
  addExtension(ca, ca, NID_subject_key_identifier, "hash");
  sign(ca, keys_->key.get());
  caFile_ = directory_.pathOf("ca.pem");
  writeCertificate(caFile_, ca);
}

TestCertificateAuthority::~TestCertificateAuthority() = default;

CertificateFiles TestCertificateAuthority::issue(const LeafProfile& profile) {
  const long serial = nextSerial_++;
  Pkey key = makeKey();
  X509* ca = keys_->certificate.get();
  Certificate leaf = makeCertificate(key.get(), "Velmor Test Server", ca, serial, profile.validFrom,
                                     profile.validUntil);
  std::string names;
  for (const std::string& name : profile.alternativeNames) {
    names += (names.empty() ? "" : ",") + name;
  }
  addExtension(leaf.get(), ca, NID_basic_constraints, "critical,CA:FALSE");
  addExtension(leaf.get(), ca, NID_key_usage, "critical,digitalSignature");
  addExtension(leaf.get(), ca, NID_ext_key_usage, "serverAuth");
  addExtension(leaf.get(), ca, NID_authority_key_identifier, "keyid:always");
  if (!names.empty()) addExtension(leaf.get(), ca, NID_subject_alt_name, names);
  sign(leaf.get(), keys_->key.get());

  const std::string stem = "leaf-" + std::to_string(serial);
  CertificateFiles files{directory_.pathOf(stem + ".pem"), directory_.pathOf(stem + "-key.pem")};
  writeCertificate(files.certificate, leaf.get());
  writeKey(files.privateKey, key.get());
  return files;
}

CertificateFiles TestCertificateAuthority::expiredLeaf() {
  LeafProfile profile;
  profile.validFrom = -std::chrono::hours(48);
  profile.validUntil = -std::chrono::hours(24);
  return issue(profile);
}

CertificateFiles TestCertificateAuthority::leafForHost(const std::string& dnsName) {
  LeafProfile profile;
  profile.alternativeNames = {"DNS:" + dnsName};
  return issue(profile);
}

}  // namespace velmor::test
