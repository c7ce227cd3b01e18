#pragma once

// Certificates for the loopback server: a CA made for one run and a server certificate signed by it.

#include <memory>
#include <string>

#include <openssl/evp.h>
#include <openssl/x509.h>

#include "applogic/support/result.h"

namespace applogic::emulator::detail {

struct X509Free {
  void operator()(X509* certificate) const { X509_free(certificate); }
};
struct PkeyFree {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using X509Ptr = std::unique_ptr<X509, X509Free>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, PkeyFree>;

struct TlsIdentity {
  std::string caPem;
  X509Ptr serverCertificate;
  PkeyPtr serverKey;
};

/// A new CA and a server certificate for "localhost", 127.0.0.1 and ::1 signed by it, both with
/// P-256 keys, valid from an hour ago for 30 days of system time. The CA's key is dropped.
Result<TlsIdentity> makeLoopbackTlsIdentity();

}  // namespace applogic::emulator::detail
