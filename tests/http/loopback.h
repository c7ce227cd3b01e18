#pragma once

// Loopback servers for the HTTP client's tests: cpp-httplib (Debian builds it with OpenSSL, zlib
// and brotli, so text answers are compressed when the client accepts it) and a certificate made
// at test time that is its own authority.

#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

namespace applogic::test {

// The names the certificate is valid for. libcurl resolves every "*.localhost" name to the
// loopback addresses by itself, so the cookie tests can use a host and its parent domain without
// touching /etc/hosts or adding a resolver override to the client.
inline constexpr const char* kServerNames =
    "DNS:localhost,DNS:www.signin.localhost,DNS:other.signin.localhost,DNS:signin.localhost,IP:127.0.0.1";

// A self-signed P-256 certificate for the loopback names, which is also the one authority the
// client trusts (written as PEM for the client's CA-file option).
class TestCertificate {
 public:
  TestCertificate() : key_(EVP_EC_gen("P-256"), EVP_PKEY_free), certificate_(X509_new(), X509_free) {
    X509* cert = certificate_.get();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
    X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert), 24 * 3600);
    X509_set_pubkey(cert, key_.get());
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
    X509_set_issuer_name(cert, name);
    for (const auto& [nid, value] : {std::pair{NID_basic_constraints, "critical,CA:TRUE"},
                                     std::pair{NID_subject_alt_name, kServerNames}}) {
      X509V3_CTX context;
      X509V3_set_ctx_nodb(&context);
      X509V3_set_ctx(&context, cert, cert, nullptr, nullptr, 0);
      X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
      X509_add_ext(cert, extension, -1);
      X509_EXTENSION_free(extension);
    }
    X509_sign(cert, key_.get(), EVP_sha256());
    FILE* out = std::fopen(caFile_.c_str(), "w");
    PEM_write_X509(out, cert);
    std::fclose(out);
  }
  ~TestCertificate() { std::filesystem::remove(caFile_); }

  const std::filesystem::path& caFile() const { return caFile_; }
  X509* certificate() const { return certificate_.get(); }
  EVP_PKEY* key() const { return key_.get(); }

 private:
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_;
  std::unique_ptr<X509, decltype(&X509_free)> certificate_;
  std::filesystem::path caFile_ = std::filesystem::temp_directory_path() / ("applogic-ca-" + std::to_string(::getpid()) + ".pem");
};

// A cpp-httplib server listening on 127.0.0.1 in a thread of its own, from `start` on.
struct LoopbackServer {
  std::unique_ptr<httplib::Server> server;
  std::string scheme;
  int port = 0;
  std::thread thread{};

  ~LoopbackServer() { server->stop(), thread.joinable() ? thread.join() : void(); }
  void start() {
    port = server->bind_to_any_port("127.0.0.1");
    thread = std::thread([this] { server->listen_after_bind(); });
    while (!server->is_running()) std::this_thread::yield();  // `stop` only ends a server that is accepting
  }
  std::string url(const std::string& path, const std::string& host = "127.0.0.1") const {
    return scheme + "://" + host + ":" + std::to_string(port) + path;
  }
};

}  // namespace applogic::test
