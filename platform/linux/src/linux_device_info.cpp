#include "applogic/platform/linux_device_info.h"

#include <sys/utsname.h>

#include <array>
#include <optional>
#include <string_view>

#include "applogic/platform/posix_file.h"
#include "applogic/support/strings.h"

namespace applogic::platform {
namespace {

// Values that firmware vendors leave in the product name when they never filled it in.
constexpr std::array<std::string_view, 6> kPlaceholderModels = {
    "to be filled by o.e.m.", "default string", "system product name", "not specified", "none", "not applicable"};

std::optional<std::string> readModel(const std::filesystem::path& file) {
  auto contents = readWholeFile(file).bytes;
  if (!contents) return std::nullopt;
  std::string text = std::move(*contents);
  // The device tree's strings end with a NUL; DMI's with a newline.
  constexpr std::string_view kBlanks = " \t\r\n\v\f";
  const auto nul = text.find('\0');
  if (nul != std::string::npos) text.resize(nul);
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return std::nullopt;
  text = text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
  const std::string lowered = asciiLowercase(text);
  for (const std::string_view placeholder : kPlaceholderModels) {
    if (lowered == placeholder) return std::nullopt;
  }
  return text;
}

std::string orUnknown(std::string text) { return text.empty() ? std::string("unknown") : text; }

struct Uname {
  std::string machine, sysname, release;
};

Uname readUname() {
  utsname names{};
  if (::uname(&names) != 0) return {};
  return {names.machine, names.sysname, names.release};
}

}  // namespace

LinuxDeviceInfo::LinuxDeviceInfo() {
  Uname names = readUname();
  *this = LinuxDeviceInfo("/", std::move(names.machine), std::move(names.sysname), std::move(names.release));
}

LinuxDeviceInfo::LinuxDeviceInfo(const std::filesystem::path& root, std::string machine, std::string systemName,
                                 std::string systemVersion)
    : systemName_(orUnknown(std::move(systemName))), systemVersion_(orUnknown(std::move(systemVersion))) {
  auto model = readModel(root / "sys/class/dmi/id/product_name");
  if (!model) model = readModel(root / "sys/firmware/devicetree/base/model");
  deviceModel_ = model ? std::move(*model) : orUnknown(std::move(machine));
}

}  // namespace applogic::platform
