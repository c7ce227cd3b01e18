#include "applogic/platform/linux_device_info.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace applogic {
namespace {

namespace fs = std::filesystem;

// A directory standing for "/", with the two model files the rows ask for.
class FakeRoot {
 public:
  FakeRoot(const std::optional<std::string>& productName, const std::optional<std::string>& deviceTreeModel) {
    char pattern[] = "/tmp/applogic-device-XXXXXX";
    root_ = mkdtemp(pattern);
    if (productName) write("sys/class/dmi/id/product_name", *productName);
    if (deviceTreeModel) write("sys/firmware/devicetree/base/model", *deviceTreeModel);
  }
  ~FakeRoot() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  const fs::path& path() const { return root_; }

 private:
  void write(const fs::path& relative, const std::string& text) {
    fs::create_directories((root_ / relative).parent_path());
    std::ofstream(root_ / relative, std::ios::binary) << text;
  }
  fs::path root_;
};

TEST(LinuxDeviceInfo, TheModelComesFromTheFirmwareThenTheDeviceTreeThenTheArchitecture) {
  using namespace std::string_literals;
  struct Row {
    const char* name;
    std::optional<std::string> productName;
    std::optional<std::string> deviceTreeModel;
    const char* model;
  };
  const Row rows[] = {
      {"firmware name, trimmed", "  ThinkPad X1 Carbon Gen 9\n", "Board\0"s, "ThinkPad X1 Carbon Gen 9"},
      {"device tree, up to its NUL", std::nullopt, "Raspberry Pi 4 Model B Rev 1.4\0"s, "Raspberry Pi 4 Model B Rev 1.4"},
      {"an unfilled firmware name is no name", "To Be Filled By O.E.M.\n", "Board\0"s, "Board"},
      {"placeholder in another case", "DEFAULT STRING\n", std::nullopt, "x86_64"},
      {"blank firmware name", " \n", std::nullopt, "x86_64"},
      {"nothing known", std::nullopt, std::nullopt, "x86_64"},
  };
  for (const auto& row : rows) {
    const FakeRoot root(row.productName, row.deviceTreeModel);
    const platform::LinuxDeviceInfo info(root.path(), "x86_64", "Linux", "6.1.0-18-amd64");
    EXPECT_EQ(info.deviceModel(), row.model) << row.name;
    EXPECT_EQ(info.systemName(), "Linux");
    EXPECT_EQ(info.systemVersion(), "6.1.0-18-amd64");
  }
}

TEST(LinuxDeviceInfo, TheRunningSystemNamesItselfAndAModel) {
  const platform::LinuxDeviceInfo info;
  EXPECT_EQ(info.systemName(), "Linux");
  EXPECT_FALSE(info.systemVersion().empty());
  EXPECT_FALSE(info.deviceModel().empty());
}

}  // namespace
}  // namespace applogic
