#include "self_signed_tls.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace vmio::sim {
namespace {

template <auto Free>
struct Freer {
  template <class T>
  void operator()(T* p) const {
    Free(p);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Freer<&EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freer<&X509_free>>;

void Check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string("TLS simulator: cannot ") + what);
}

Certificate SelfSigned(EVP_PKEY* key) {
  Certificate cert(X509_new());
  Check(cert != nullptr, "allocate a certificate");
  X509* c = cert.get();
  Check(X509_set_version(c, 2) == 1, "set the version");  // v3, for the extensions
  Check(ASN1_INTEGER_set(X509_get_serialNumber(c), 1) == 1, "set the serial number");
  Check(X509_gmtime_adj(X509_getm_notBefore(c), -60) && X509_gmtime_adj(X509_getm_notAfter(c), 24 * 60 * 60),
        "set the validity");
  X509_NAME* name = X509_get_subject_name(c);
  Check(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"), -1,
                                   -1, 0) == 1,
        "name the subject");
  Check(X509_set_issuer_name(c, name) == 1 && X509_set_pubkey(c, key) == 1, "set the issuer and key");
  X509V3_CTX ext_ctx;
  X509V3_set_ctx_nodb(&ext_ctx);
  X509V3_set_ctx(&ext_ctx, c, c, nullptr, nullptr, 0);
  // Its own CA, so that trusting the file trusts the server.
  for (const auto& [nid, value] : {std::pair{NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost"},
                                   std::pair{NID_basic_constraints, "critical,CA:TRUE"}}) {
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ext_ctx, nid, value);
    Check(ext != nullptr && X509_add_ext(c, ext, -1) == 1, "add an extension");
    X509_EXTENSION_free(ext);
  }
  Check(X509_sign(c, key, EVP_sha256()) > 0, "sign the certificate");
  return cert;
}

std::string WritePem(X509* cert) {
  const char* dir = std::getenv("TMPDIR");
  std::string path = std::string(dir && *dir ? dir : "/tmp") + "/vmio-sim-ca-XXXXXX";
  const int fd = mkstemp(path.data());
  Check(fd >= 0, "create the certificate file");
  FILE* file = fdopen(fd, "w");
  const bool ok = file && PEM_write_X509(file, cert) == 1;
  if (file) {
    std::fclose(file);
  } else {
    ::close(fd);
  }
  if (!ok) std::remove(path.c_str());
  Check(ok, "write the certificate file");
  return path;
}

std::string Fingerprint(X509* cert) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  Check(X509_digest(cert, EVP_sha256(), digest, &size) == 1, "take the certificate's fingerprint");
  std::string text;
  for (unsigned int i = 0; i < size; ++i) {
    char hex[4];
    std::snprintf(hex, sizeof hex, "%02X", digest[i]);
    if (i > 0) text += ':';
    text += hex;
  }
  return text;
}

}  // namespace

SelfSignedTls::SelfSignedTls() {
  Key key(EVP_EC_gen("P-256"));
  Check(key != nullptr, "make a P-256 key");
  Certificate cert = SelfSigned(key.get());
  context_ = SSL_CTX_new(TLS_server_method());
  Check(context_ != nullptr, "make a server context");
  if (SSL_CTX_use_certificate(context_, cert.get()) != 1 || SSL_CTX_use_PrivateKey(context_, key.get()) != 1) {
    SSL_CTX_free(context_);
    Check(false, "load the certificate");
  }
  try {
    fingerprint_ = Fingerprint(cert.get());
    certificate_file_ = WritePem(cert.get());
  } catch (...) {
    SSL_CTX_free(context_);
    throw;
  }
}

SelfSignedTls::~SelfSignedTls() {
  SSL_CTX_free(context_);
  std::remove(certificate_file_.c_str());
}

}  // namespace vmio::sim
