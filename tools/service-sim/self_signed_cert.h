#pragma once
// A throw-away TLS identity for the simulated cloud: an EC key and a
// self-signed certificate for 127.0.0.1 and localhost, made in memory at start
// so no key ever lies around on disk. The certificate doubles as the CA that
// the bridge is told to trust.
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <optional>
#include <string>

namespace wren::sim {

struct SelfSignedCert {
  struct KeyFree {
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
  };
  struct CertFree {
    void operator()(X509* c) const { X509_free(c); }
  };
  std::unique_ptr<EVP_PKEY, KeyFree> key;
  std::unique_ptr<X509, CertFree> cert;

  // Nothing (and *error set) when OpenSSL refuses a step.
  static std::optional<SelfSignedCert> make(std::string* error);
  std::string certificatePem() const;
};

}  // namespace wren::sim
