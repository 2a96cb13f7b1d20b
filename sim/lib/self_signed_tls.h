#pragma once
// The TLS side of a simulated device: a key and a self-signed certificate for 127.0.0.1 and
// localhost, made at start and valid for a day, and the certificate as a PEM file a client can
// be told to trust (VMIO_CA_FILE). The file goes when this does.
#include <string>

typedef struct ssl_ctx_st SSL_CTX;

namespace vmio::sim {

class SelfSignedTls {
 public:
  // Raises std::runtime_error when the key, certificate or file cannot be made.
  SelfSignedTls();
  ~SelfSignedTls();
  SelfSignedTls(const SelfSignedTls&) = delete;
  SelfSignedTls& operator=(const SelfSignedTls&) = delete;

  // A server context that presents the certificate.
  SSL_CTX* Context() const { return context_; }
  const std::string& CertificateFile() const { return certificate_file_; }
  // The certificate's SHA-256 fingerprint as openssl prints it ("AB:CD:...").
  const std::string& Sha256Fingerprint() const { return fingerprint_; }

 private:
  SSL_CTX* context_ = nullptr;
  std::string certificate_file_;
  std::string fingerprint_;
};

}  // namespace vmio::sim
