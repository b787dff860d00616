#include "self_signed_cert.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace wren::sim {

namespace {

// Long enough for any development session, short enough that a leaked file is
// soon worthless.
constexpr long kValiditySeconds = 30L * 24 * 60 * 60;
// Clocks of the client and the simulator may disagree slightly.
constexpr long kBackdateSeconds = 60L * 60;
constexpr int kSerialBytes = 8;

std::string openSslError(const char* step) {
  unsigned long code = ERR_get_error();
  char text[256] = "unknown error";
  if (code != 0) ERR_error_string_n(code, text, sizeof text);
  return std::string(step) + ": " + text;
}

bool addExtension(X509* cert, int nid, const char* value) {
  X509V3_CTX ctx;
  X509V3_set_ctx_nodb(&ctx);
  X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
  X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
  if (!ext) return false;
  bool ok = X509_add_ext(cert, ext, -1) == 1;
  X509_EXTENSION_free(ext);
  return ok;
}

}  // namespace

std::optional<SelfSignedCert> SelfSignedCert::make(std::string* error) {
  SelfSignedCert out;
  out.key.reset(EVP_EC_gen("P-256"));
  if (!out.key) {
    *error = openSslError("key generation");
    return std::nullopt;
  }
  out.cert.reset(X509_new());
  X509* cert = out.cert.get();
  unsigned char serial[kSerialBytes];
  BIGNUM* bn = nullptr;
  bool ok = cert && X509_set_version(cert, 2) == 1 && RAND_bytes(serial, sizeof serial) == 1;
  if (ok) {
    serial[0] &= 0x7F;  // a positive serial number
    bn = BN_bin2bn(serial, sizeof serial, nullptr);
    ok = bn && BN_to_ASN1_INTEGER(bn, X509_get_serialNumber(cert)) != nullptr;
  }
  BN_free(bn);
  ok = ok && X509_gmtime_adj(X509_getm_notBefore(cert), -kBackdateSeconds) &&
       X509_gmtime_adj(X509_getm_notAfter(cert), kValiditySeconds) && X509_set_pubkey(cert, out.key.get()) == 1;
  if (ok) {
    X509_NAME* name = X509_get_subject_name(cert);
    auto text = [](const char* s) { return reinterpret_cast<const unsigned char*>(s); };
    ok = X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, text("Wren service simulator"), -1, -1, 0) == 1 &&
         X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text("127.0.0.1"), -1, -1, 0) == 1 &&
         X509_set_issuer_name(cert, name) == 1;
  }
  ok = ok && addExtension(cert, NID_basic_constraints, "critical,CA:TRUE") &&
       addExtension(cert, NID_key_usage, "critical,digitalSignature,keyCertSign") &&
       addExtension(cert, NID_ext_key_usage, "serverAuth") &&
       addExtension(cert, NID_subject_key_identifier, "hash") &&
       addExtension(cert, NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost") &&
       X509_sign(cert, out.key.get(), EVP_sha256()) > 0;
  if (!ok) {
    *error = openSslError("certificate");
    return std::nullopt;
  }
  return out;
}

std::string SelfSignedCert::certificatePem() const {
  BIO* bio = BIO_new(BIO_s_mem());
  if (!bio) return "";
  std::string pem;
  if (PEM_write_bio_X509(bio, cert.get()) == 1) {
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    if (data && size > 0) pem.assign(data, static_cast<size_t>(size));
  }
  BIO_free(bio);
  return pem;
}

}  // namespace wren::sim
