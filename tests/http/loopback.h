#pragma once

// Loopback servers for the HTTP client's tests: cpp-httplib (Debian builds it with OpenSSL, zlib
// and brotli, so text answers are compressed when the client accepts it), a certificate authority
// and a server certificate made at test time, gzip, and a run-loop guard that turns a silent
// client into a failed test instead of a hang.

#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <zlib.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "applogic/platform/run_loop.h"
#include "run_until_quit.h"

namespace applogic::test {

struct X509Deleter {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
struct KeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using X509Ptr = std::unique_ptr<X509, X509Deleter>;
using KeyPtr = std::unique_ptr<EVP_PKEY, KeyDeleter>;

// The names the server certificate is valid for. libcurl resolves every "*.localhost" name to the
// loopback addresses by itself, so the cookie tests can use a host and its parent domain without
// touching /etc/hosts or adding a resolver override to the client.
inline constexpr const char* kServerNames =
    "DNS:localhost,DNS:www.signin.localhost,DNS:other.signin.localhost,DNS:signin.localhost,IP:127.0.0.1";

// A CA and a server certificate signed by it (P-256 keys), and the CA written as PEM for the
// client's CA-file option.
class TestCertificates {
 public:
  TestCertificates() {
    caKey_.reset(EVP_EC_gen("P-256"));
    serverKey_.reset(EVP_EC_gen("P-256"));
    ca_ = makeCertificate("AppLogic test CA", caKey_.get(), caKey_.get(), nullptr, true);
    server_ = makeCertificate("localhost", serverKey_.get(), caKey_.get(), ca_.get(), false);
    char pattern[] = "/tmp/applogic-http-XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
    directory_ = pattern;
    caFile_ = directory_ / "ca.pem";
    FILE* out = std::fopen(caFile_.c_str(), "w");
    PEM_write_X509(out, ca_.get());
    std::fclose(out);
  }
  ~TestCertificates() {
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  TestCertificates(const TestCertificates&) = delete;
  TestCertificates& operator=(const TestCertificates&) = delete;

  const std::filesystem::path& caFile() const { return caFile_; }
  X509* serverCertificate() const { return server_.get(); }
  EVP_PKEY* serverKey() const { return serverKey_.get(); }

 private:
  static void addExtension(X509* certificate, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
  }

  static X509Ptr makeCertificate(const char* commonName, EVP_PKEY* key, EVP_PKEY* signer, X509* issuer, bool ca) {
    X509Ptr certificate(X509_new());
    X509* cert = certificate.get();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), ca ? 1 : 2);
    X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert), 24 * 3600);
    X509_set_pubkey(cert, key);
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(commonName), -1, -1, 0);
    X509_set_issuer_name(cert, issuer ? X509_get_subject_name(issuer) : name);
    X509* issuerOrSelf = issuer ? issuer : cert;
    addExtension(cert, issuerOrSelf, NID_subject_key_identifier, "hash");
    if (ca) {
      addExtension(cert, issuerOrSelf, NID_basic_constraints, "critical,CA:TRUE");
      addExtension(cert, issuerOrSelf, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
      addExtension(cert, issuerOrSelf, NID_authority_key_identifier, "keyid:always");
      addExtension(cert, issuerOrSelf, NID_basic_constraints, "CA:FALSE");
      addExtension(cert, issuerOrSelf, NID_key_usage, "critical,digitalSignature");
      addExtension(cert, issuerOrSelf, NID_ext_key_usage, "serverAuth");
      addExtension(cert, issuerOrSelf, NID_subject_alt_name, kServerNames);
    }
    X509_sign(cert, signer, EVP_sha256());
    return certificate;
  }

  KeyPtr caKey_;
  KeyPtr serverKey_;
  X509Ptr ca_;
  X509Ptr server_;
  std::filesystem::path directory_;
  std::filesystem::path caFile_;
};

// A cpp-httplib server listening on 127.0.0.1 in a thread of its own, from construction on.
class LoopbackServer {
 public:
  LoopbackServer(std::unique_ptr<httplib::Server> server, std::string scheme)
      : server_(std::move(server)), scheme_(std::move(scheme)) {}
  ~LoopbackServer() {
    server_->stop();
    if (thread_.joinable()) thread_.join();
  }

  httplib::Server& routes() { return *server_; }

  void start() {
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // `stop` only ends a server that is already accepting.
    while (!server_->is_running()) std::this_thread::yield();
  }

  std::string url(const std::string& path, const std::string& host = "127.0.0.1") const {
    return scheme_ + "://" + host + ":" + std::to_string(port_) + path;
  }

 private:
  std::unique_ptr<httplib::Server> server_;
  std::string scheme_;
  int port_ = 0;
  std::thread thread_;
};

inline std::string gzip(const std::string& text) {
  z_stream stream{};
  // 15 window bits plus 16: a gzip wrapper instead of zlib's.
  deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&stream, text.size()) + 32, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}


}  // namespace applogic::test
