#include "tls_identity.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include "errors.h"

namespace applogic::emulator::detail {
namespace {

constexpr long kValidBeforeNowSeconds = 3600;  // tolerates a client clock slightly behind
constexpr long kValidAfterNowSeconds = 30L * 24 * 3600;

std::string openSslFailure(const char* what) {
  std::string text = what;
  if (const unsigned long code = ERR_get_error(); code != 0) {
    char buffer[256];
    ERR_error_string_n(code, buffer, sizeof buffer);
    text += ": ";
    text += buffer;
  }
  ERR_clear_error();
  return text;
}

bool addExtension(X509* certificate, X509V3_CTX* context, int nid, const char* value) {
  X509_EXTENSION* extension = X509V3_EXT_nconf_nid(nullptr, context, nid, value);
  if (extension == nullptr) return false;
  const bool added = X509_add_ext(certificate, extension, -1) == 1;
  X509_EXTENSION_free(extension);
  return added;
}

// issuer == nullptr makes a self-signed CA certificate.
X509Ptr makeCertificate(EVP_PKEY* subjectKey, const char* commonName, X509* issuer, EVP_PKEY* issuerKey) {
  X509Ptr certificate(X509_new());
  if (!certificate) return nullptr;
  X509* cert = certificate.get();
  unsigned char serial[16];
  if (RAND_bytes(serial, sizeof serial) != 1) return nullptr;
  serial[0] &= 0x7f;  // a positive serial number
  BIGNUM* number = BN_bin2bn(serial, sizeof serial, nullptr);
  const bool serialSet = number != nullptr && BN_to_ASN1_INTEGER(number, X509_get_serialNumber(cert)) != nullptr;
  BN_free(number);
  if (!serialSet || X509_set_version(cert, 2) != 1 ||
      X509_gmtime_adj(X509_getm_notBefore(cert), -kValidBeforeNowSeconds) == nullptr ||
      X509_gmtime_adj(X509_getm_notAfter(cert), kValidAfterNowSeconds) == nullptr ||
      X509_set_pubkey(cert, subjectKey) != 1) {
    return nullptr;
  }
  X509_NAME* name = X509_get_subject_name(cert);
  const auto text = [](const char* value) { return reinterpret_cast<const unsigned char*>(value); };
  if (X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, text("Tunevo emulator"), -1, -1, 0) != 1 ||
      X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text(commonName), -1, -1, 0) != 1 ||
      X509_set_issuer_name(cert, issuer != nullptr ? X509_get_subject_name(issuer) : name) != 1) {
    return nullptr;
  }
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer != nullptr ? issuer : cert, cert, nullptr, nullptr, 0);
  const bool extended =
      issuer == nullptr
          ? addExtension(cert, &context, NID_basic_constraints, "critical,CA:TRUE,pathlen:0") &&
                addExtension(cert, &context, NID_key_usage, "critical,keyCertSign,cRLSign") &&
                addExtension(cert, &context, NID_subject_key_identifier, "hash")
          : addExtension(cert, &context, NID_basic_constraints, "critical,CA:FALSE") &&
                addExtension(cert, &context, NID_key_usage, "critical,digitalSignature") &&
                addExtension(cert, &context, NID_ext_key_usage, "serverAuth") &&
                addExtension(cert, &context, NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1,IP:::1") &&
                addExtension(cert, &context, NID_subject_key_identifier, "hash") &&
                addExtension(cert, &context, NID_authority_key_identifier, "keyid:always");
  if (!extended || X509_sign(cert, issuerKey, EVP_sha256()) == 0) return nullptr;
  return certificate;
}

std::string toPem(X509* certificate) {
  std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), &BIO_free);
  if (!bio || PEM_write_bio_X509(bio.get(), certificate) != 1) return {};
  char* data = nullptr;
  const long length = BIO_get_mem_data(bio.get(), &data);
  return length > 0 ? std::string(data, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

Result<TlsIdentity> makeLoopbackTlsIdentity() {
  const auto failure = [](const char* what) {
    return Result<TlsIdentity>::failure(serverError(kSignInServerCertificateError, openSslFailure(what)));
  };
  PkeyPtr caKey(EVP_EC_gen("P-256"));
  PkeyPtr serverKey(EVP_EC_gen("P-256"));
  if (!caKey || !serverKey) return failure("cannot make a P-256 key");
  X509Ptr ca = makeCertificate(caKey.get(), "Tunevo emulator CA", nullptr, caKey.get());
  if (!ca) return failure("cannot make the CA certificate");
  X509Ptr server = makeCertificate(serverKey.get(), "localhost", ca.get(), caKey.get());
  if (!server) return failure("cannot make the server certificate");
  std::string pem = toPem(ca.get());
  if (pem.empty()) return failure("cannot write the CA certificate as PEM");
  return Result<TlsIdentity>::success(TlsIdentity{std::move(pem), std::move(server), std::move(serverKey)});
}

}  // namespace applogic::emulator::detail
