#include "devserver/ServerCertificate.h"

#include <fcntl.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

namespace velmor::devserver {

namespace {

struct PkeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct X509Deleter {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
struct BignumDeleter {
  void operator()(BIGNUM* number) const { BN_free(number); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyDeleter>;
using Certificate = std::unique_ptr<X509, X509Deleter>;
using File = std::unique_ptr<std::FILE, FileCloser>;
using Bignum = std::unique_ptr<BIGNUM, BignumDeleter>;

constexpr long kDay = 24L * 3600;
constexpr long kCaLifetime = 3650 * kDay;
constexpr long kServerLifetime = 365 * kDay;

// A key and the certificate that goes with it.
struct Identity {
  Pkey key;
  Certificate certificate;
};

bool makeDirectories(const std::string& directory, std::string* error) {
  for (std::size_t slash = 1; slash <= directory.size(); ++slash) {
    if (slash != directory.size() && directory[slash] != '/') continue;
    const std::string prefix = directory.substr(0, slash);
    struct stat existing {};
    if (::stat(prefix.c_str(), &existing) == 0) continue;
    if (::mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) {
      *error = "cannot create " + prefix + ": " + std::strerror(errno);
      return false;
    }
  }
  struct stat status {};
  if (::stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
    *error = directory + " is not a directory";
    return false;
  }
  // It holds private keys: only the user may look inside.
  if ((status.st_mode & 077) != 0 && ::chmod(directory.c_str(), 0700) != 0) {
    *error = "cannot restrict " + directory + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

Pkey readKey(const std::string& path) {
  File file(std::fopen(path.c_str(), "r"));
  return Pkey(file ? PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr) : nullptr);
}

Certificate readCertificate(const std::string& path) {
  File file(std::fopen(path.c_str(), "r"));
  return Certificate(file ? PEM_read_X509(file.get(), nullptr, nullptr, nullptr) : nullptr);
}

std::optional<Identity> readIdentity(const std::string& certificatePath,
                                     const std::string& keyPath) {
  Identity identity{readKey(keyPath), readCertificate(certificatePath)};
  if (!identity.key || !identity.certificate ||
      X509_check_private_key(identity.certificate.get(), identity.key.get()) != 1) {
    return std::nullopt;
  }
  return identity;
}

// Started, and not ending within a day.
bool isCurrent(const X509* certificate) {
  std::time_t tomorrow = std::time(nullptr) + kDay;
  return X509_cmp_time(X509_get0_notBefore(certificate), nullptr) < 0 &&
         X509_cmp_time(X509_get0_notAfter(certificate), &tomorrow) > 0;
}

bool signedBy(X509* certificate, X509* authority) {
  EVP_PKEY* authorityKey = X509_get0_pubkey(authority);
  return authorityKey != nullptr && X509_verify(certificate, authorityKey) == 1;
}

bool addExtension(X509* certificate, X509* issuer, int nid, const char* value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
  if (extension == nullptr) return false;
  const bool added = X509_add_ext(certificate, extension, -1) == 1;
  X509_EXTENSION_free(extension);
  return added;
}

bool setRandomSerial(X509* certificate) {
  Bignum serial(BN_new());
  return serial && BN_rand(serial.get(), 63, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) == 1 &&
         BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate)) != nullptr;
}

// An unsigned certificate for `key`; `issuer` null makes it self-issued.
Certificate newCertificate(EVP_PKEY* key, const char* commonName, X509* issuer, long lifetime) {
  Certificate certificate(X509_new());
  if (!certificate) return nullptr;
  X509* raw = certificate.get();
  X509_NAME* name = X509_get_subject_name(raw);
  const bool ok = X509_set_version(raw, X509_VERSION_3) == 1 && setRandomSerial(raw) &&
                  X509_gmtime_adj(X509_getm_notBefore(raw), -3600) != nullptr &&
                  X509_gmtime_adj(X509_getm_notAfter(raw), lifetime) != nullptr &&
                  X509_set_pubkey(raw, key) == 1 &&
                  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                             reinterpret_cast<const unsigned char*>(commonName), -1,
                                             -1, 0) == 1 &&
                  X509_set_issuer_name(raw, X509_get_subject_name(issuer ? issuer : raw)) == 1;
  return ok ? std::move(certificate) : nullptr;
}

std::optional<Identity> makeAuthority() {
  Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  if (!key) return std::nullopt;
  Certificate certificate =
      newCertificate(key.get(), "Velmor development CA", nullptr, kCaLifetime);
  if (!certificate) return std::nullopt;
  X509* raw = certificate.get();
  const bool ok = addExtension(raw, raw, NID_basic_constraints, "critical,CA:TRUE,pathlen:0") &&
                  addExtension(raw, raw, NID_key_usage, "critical,keyCertSign,cRLSign") &&
                  addExtension(raw, raw, NID_subject_key_identifier, "hash") &&
                  X509_sign(raw, key.get(), EVP_sha256()) > 0;
  if (!ok) return std::nullopt;
  return Identity{std::move(key), std::move(certificate)};
}

std::optional<Identity> makeServerIdentity(const Identity& authority) {
  Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  if (!key) return std::nullopt;
  X509* issuer = authority.certificate.get();
  Certificate certificate =
      newCertificate(key.get(), "Velmor development server", issuer, kServerLifetime);
  if (!certificate) return std::nullopt;
  X509* raw = certificate.get();
  const bool ok = addExtension(raw, issuer, NID_basic_constraints, "critical,CA:FALSE") &&
                  addExtension(raw, issuer, NID_key_usage, "critical,digitalSignature") &&
                  addExtension(raw, issuer, NID_ext_key_usage, "serverAuth") &&
                  addExtension(raw, issuer, NID_authority_key_identifier, "keyid:always") &&
                  addExtension(raw, issuer, NID_subject_alt_name,
                               "DNS:localhost,IP:127.0.0.1,IP:0:0:0:0:0:0:0:1") &&
                  X509_sign(raw, authority.key.get(), EVP_sha256()) > 0;
  if (!ok) return std::nullopt;
  return Identity{std::move(key), std::move(certificate)};
}

// Writes through a temporary file so that a crash never leaves half a PEM.
template <typename Writer>
bool writeFile(const std::string& path, mode_t mode, Writer write, std::string* error) {
  const std::string temporary = path + ".tmp";
  const int descriptor = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (descriptor < 0) {
    *error = "cannot write " + temporary + ": " + std::strerror(errno);
    return false;
  }
  File file(::fdopen(descriptor, "w"));
  if (!file) {
    ::close(descriptor);
    *error = "cannot write " + temporary;
    return false;
  }
  const bool written =
      write(file.get()) && std::fflush(file.get()) == 0 && ::fsync(::fileno(file.get())) == 0;
  file.reset();
  if (!written || ::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    *error = "cannot write " + path;
    return false;
  }
  return true;
}

bool writeIdentity(const Identity& identity, const std::string& certificatePath,
                   const std::string& keyPath, std::string* error) {
  return writeFile(
             keyPath, 0600,
             [&](std::FILE* file) {
               return PEM_write_PrivateKey(file, identity.key.get(), nullptr, nullptr, 0, nullptr,
                                           nullptr) == 1;
             },
             error) &&
         writeFile(
             certificatePath, 0644,
             [&](std::FILE* file) { return PEM_write_X509(file, identity.certificate.get()) == 1; },
             error);
}

}  // namespace

std::optional<CertificateFiles> ServerCertificate::prepare(const std::string& directory,
                                                           std::string* error) {
  std::string ignored;
  if (error == nullptr) error = &ignored;
  if (directory.empty()) {
    *error = "no directory for the certificates";
    return std::nullopt;
  }
  if (!makeDirectories(directory, error)) return std::nullopt;
  const std::string base = directory.back() == '/' ? directory : directory + "/";
  CertificateFiles files{directory, base + "ca.pem", base + "ca-key.pem", base + "server.pem",
                         base + "server-key.pem"};

  std::optional<Identity> authority = readIdentity(files.caCertificate, files.caPrivateKey);
  bool newAuthority = false;
  if (!authority || !isCurrent(authority->certificate.get())) {
    authority = makeAuthority();
    newAuthority = true;
    if (!authority) {
      *error = "cannot make a certificate authority";
      return std::nullopt;
    }
    if (!writeIdentity(*authority, files.caCertificate, files.caPrivateKey, error)) {
      return std::nullopt;
    }
  }
  std::optional<Identity> server = readIdentity(files.certificate, files.privateKey);
  if (newAuthority || !server || !isCurrent(server->certificate.get()) ||
      !signedBy(server->certificate.get(), authority->certificate.get())) {
    server = makeServerIdentity(*authority);
    if (!server) {
      *error = "cannot make a server certificate";
      return std::nullopt;
    }
    if (!writeIdentity(*server, files.certificate, files.privateKey, error)) return std::nullopt;
  }
  return files;
}

}  // namespace velmor::devserver
