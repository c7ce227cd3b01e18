#pragma once

#include <exception>
#include <string>

#include "applogic/export.h"

namespace applogic::signin {

/// Root of the sign-in client's exceptions. These never leave the client: only
/// `AIStorageException` is raised (by `AIKeyChainDataStorage`), and the token manager and the
/// client's entry points catch it; the app sees the code and message that were written into the
/// call's `AIError` before it was raised. The other classes complete the family and are never
/// raised.
///
/// An exception carries the failure's text as its name (also returned by `what()`) and a reason,
/// which the storage leaves empty.
class APPLOGIC_EXPORT AIException : public std::exception {
 public:
  explicit AIException(std::string name, std::string reason = {})
      : name_(std::move(name)), reason_(std::move(reason)) {}

  const std::string& name() const noexcept { return name_; }
  const std::string& reason() const noexcept { return reason_; }
  const char* what() const noexcept override { return name_.c_str(); }

 private:
  std::string name_;
  std::string reason_;
};

class APPLOGIC_EXPORT AIAuthPortalProxyException : public AIException {
  using AIException::AIException;
};
class APPLOGIC_EXPORT AIStorageException : public AIException {
  using AIException::AIException;
};
class APPLOGIC_EXPORT AIStorageNotFoundException : public AIException {
  using AIException::AIException;
};
class APPLOGIC_EXPORT AITokenNotFoundException : public AIException {
  using AIException::AIException;
};
class APPLOGIC_EXPORT AIMissingParameterException : public AIException {
  using AIException::AIException;
};

}  // namespace applogic::signin
