// The certificate authority and server certificate that let the development
// server speak HTTPS on 127.0.0.1 and localhost.
#ifndef VELMOR_TOOLS_DEVSERVER_SERVER_CERTIFICATE_H_
#define VELMOR_TOOLS_DEVSERVER_SERVER_CERTIFICATE_H_

#include <optional>
#include <string>

namespace velmor::devserver {

// PEM files in one directory.
struct CertificateFiles {
  std::string directory;
  std::string caCertificate;  // "ca.pem": what clients must trust
  std::string caPrivateKey;   // "ca-key.pem", mode 0600
  std::string certificate;    // "server.pem"
  std::string privateKey;     // "server-key.pem", mode 0600
};

// Keeps the files in a directory (created mode 0700, with missing parents)
// so that a CA the user chose to trust stays the same from one run to the
// next. Files are reused while they are still good for at least a day:
// the CA (ten years, EC P-256) is kept if its key matches; the server
// certificate (one year, for "localhost", 127.0.0.1 and ::1) is kept if its
// key matches and the CA signed it, otherwise a new one is issued under the
// same CA. Each file is written to a temporary name and renamed into place.
// Serial numbers are random, so browsers never see two certificates with
// the same issuer and serial.
class ServerCertificate final {
 public:
  ServerCertificate() = delete;

  // The files, or nothing with a sentence in `error` (a directory that
  // cannot be made or written, an OpenSSL failure). Not safe to call for the
  // same directory from two processes at once.
  static std::optional<CertificateFiles> prepare(const std::string& directory, std::string* error);
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_SERVER_CERTIFICATE_H_
