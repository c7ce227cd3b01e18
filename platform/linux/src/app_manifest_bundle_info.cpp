#include "applogic/platform/app_manifest_bundle_info.h"

#include <boost/json.hpp>
#include <mutex>

#include "applogic/platform/posix_file.h"
#include "applogic/support/json.h"

namespace applogic::platform {
namespace {

constexpr const char* kManifestName = "app-manifest.json";

class AppManifestBundleInfo final : public BundleInfo {
 public:
  explicit AppManifestBundleInfo(std::filesystem::path path) : path_(std::move(path)) {}

  std::optional<std::string> stringValue(std::string_view key) const override {
    const auto value = json::string(manifest(), key);
    if (!value) return std::nullopt;
    return std::string(*value);
  }

  std::vector<std::string> urlSchemes() const override {
    std::vector<std::string> schemes;
    const JsonArray* types = json::array(manifest(), kCFBundleURLTypesKey);
    if (types == nullptr) return schemes;
    for (const Json& type : *types) {
      const JsonObject* entry = json::object(type);
      const JsonArray* list = entry != nullptr ? json::array(*entry, kCFBundleURLSchemesKey) : nullptr;
      if (list == nullptr) continue;
      for (const Json& scheme : *list) {
        if (const auto text = json::string(scheme)) schemes.emplace_back(*text);
      }
    }
    return schemes;
  }

 private:
  const JsonObject& manifest() const {
    std::call_once(loaded_, [this] {
      const auto text = readWholeFile(path_).bytes;
      if (!text) return;
      boost::system::error_code error;
      Json parsed = boost::json::parse(*text, error);
      if (error) return;
      if (JsonObject* object = parsed.if_object()) manifest_ = std::move(*object);
    });
    return manifest_;
  }

  std::filesystem::path path_;
  mutable std::once_flag loaded_;
  mutable JsonObject manifest_;
};

}  // namespace

std::shared_ptr<const BundleInfo> makeAppManifestBundleInfo(std::filesystem::path path) {
  return std::make_shared<AppManifestBundleInfo>(std::move(path));
}

std::filesystem::path defaultAppManifestPath() {
  std::error_code error;
  const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return kManifestName;
  return executable.parent_path() / kManifestName;
}

}  // namespace applogic::platform
