#include "applogic/signin/client/ai_api_key_helper.h"

#include <boost/json.hpp>
#include <vector>

#include "applogic/signin/client/ai_rsa_signer.h"
#include "applogic/signin/client/base64.h"
#include "applogic/support/json.h"

namespace applogic::signin {
namespace {

std::optional<std::string> stringOf(const JsonObject& object, std::string_view key) {
  const auto value = json::string(object, key);
  if (!value) return std::nullopt;
  return std::string(*value);
}

std::vector<std::string> stringsOf(const JsonObject& object, std::string_view key) {
  std::vector<std::string> strings;
  if (const JsonArray* list = json::array(object, key)) {
    for (const Json& element : *list) {
      if (const auto text = json::string(element)) strings.emplace_back(*text);
    }
  }
  return strings;
}

}  // namespace

std::string_view describe(AIAPIKeyProblem problem) {
  switch (problem) {
    case AIAPIKeyProblem::none: return "valid";
    case AIAPIKeyProblem::tooFewParts: return "too few parts";
    case AIAPIKeyProblem::badSignature: return "bad signature";
    case AIAPIKeyProblem::badBase64: return "bad Base64";
    case AIAPIKeyProblem::notJson: return "not JSON";
    case AIAPIKeyProblem::unknownVersion: return "unknown version";
    case AIAPIKeyProblem::otherPackage: return "other package";
  }
  return "unknown problem";
}

AIAPIKeyHelper::AIAPIKeyHelper(std::shared_ptr<const platform::Crypto> crypto,
                               std::shared_ptr<const platform::BundleInfo> bundleInfo,
                               ClientConfiguration configuration)
    : crypto_(std::move(crypto)), bundleInfo_(std::move(bundleInfo)), configuration_(std::move(configuration)) {}

std::optional<AIAppInfo> AIAPIKeyHelper::verifyAPIKey(std::string_view key, std::string_view package) const {
  return checkAPIKey(key, package).appInfo;
}

std::optional<AIAppInfo> AIAPIKeyHelper::appInfoForValidAPIKey(std::string_view payload,
                                                               std::string_view package) const {
  return checkPayload(payload, package).appInfo;
}

AIAPIKeyCheck AIAPIKeyHelper::checkAPIKey(std::string_view key, std::string_view package) const {
  // The parts as splitting at every "." gives them; parts after the third are not read.
  std::vector<std::string_view> parts;
  for (std::size_t start = 0; parts.size() < 3;) {
    const std::size_t dot = key.find('.', start);
    parts.push_back(key.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start));
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  if (parts.size() < 3) return {AIAPIKeyProblem::tooFewParts, std::nullopt};

  const std::string message = std::string(parts[0]) + "." + std::string(parts[1]);
  if (!AIRSASigner(crypto_).verifyMessage(message, parts[2], getAPIKeyPublicKey())) {
    return {AIAPIKeyProblem::badSignature, std::nullopt};
  }
  return checkPayload(parts[1], package);
}

AIAPIKeyCheck AIAPIKeyHelper::checkPayload(std::string_view payload, std::string_view package) const {
  const auto bytes = base64::decode(payload);
  if (!bytes) return {AIAPIKeyProblem::badBase64, std::nullopt};
  boost::system::error_code error;
  // Boost.JSON rejects text that is not UTF-8.
  const Json parsed = boost::json::parse(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()), error);
  const JsonObject* object = error ? nullptr : json::object(parsed);
  if (object == nullptr) return {AIAPIKeyProblem::notJson, std::nullopt};

  const auto version = json::string(*object, "ver");
  std::optional<AIAppInfo> info;
  if (version == "3") {
    const auto family = stringOf(*object, "appFamilyId");
    if (const JsonObject* endpoints = json::object(*object, "endpoints")) {
      info.emplace(configuration_, family, stringOf(*object, "bundleSeedId"), stringsOf(*object, "scopes"),
                   stringsOf(*object, "perm"), stringOf(*object, "clientId"), family,
                   stringOf(*object, "appVariantId"), stringOf(*endpoints, "authz"),
                   stringOf(*endpoints, "tokenExchange"));
    } else {
      info.emplace(configuration_, family, stringOf(*object, "bundleSeedId"), stringsOf(*object, "scopes"),
                   stringsOf(*object, "perm"), stringOf(*object, "clientId"), family,
                   stringOf(*object, "appVariantId"));
    }
  } else if (version == "2") {
    info.emplace(configuration_, stringOf(*object, "appId"), stringOf(*object, "bundleSeedId"),
                 stringsOf(*object, "scopes"), stringsOf(*object, "perm"), stringOf(*object, "clientId"));
  } else {
    return {AIAPIKeyProblem::unknownVersion, std::nullopt};
  }
  if (info->packageName() != package) return {AIAPIKeyProblem::otherPackage, std::nullopt};
  return {AIAPIKeyProblem::none, std::move(info)};
}

std::optional<std::string> AIAPIKeyHelper::getAPIKeyCurrentApp() const {
  return bundleInfo_ ? bundleInfo_->stringValue(kIBAAppAPIKeyBundleKey) : std::nullopt;
}

std::optional<std::string> AIAPIKeyHelper::getPackageName() const {
  return bundleInfo_ ? bundleInfo_->bundleIdentifier() : std::nullopt;
}

}  // namespace applogic::signin
