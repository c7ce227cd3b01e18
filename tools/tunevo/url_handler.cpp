#include "tunevo/url_handler.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <system_error>

#include "applogic/platform/app_manifest_bundle_info.h"
#include "tunevo/exit_codes.h"

extern char** environ;

namespace tunevo {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: tunevo url-handler install|remove [--manifest FILE | --bundle-id ID]\n"
    "\n"
    "install  writes the desktop entry that opens the app's URL scheme amzn-<bundle id> with\n"
    "         \"tunevo handle-url %u\" into $XDG_DATA_HOME/applications and, when xdg-mime is\n"
    "         installed, makes it the scheme's default handler\n"
    "remove   deletes that desktop entry\n"
    "  --manifest FILE   the app manifest holding CFBundleIdentifier (default: app-manifest.json\n"
    "                    beside the tunevo executable)\n"
    "  --bundle-id ID    the bundle identifier itself\n";

bool isSchemeCharacter(char c, bool first) {
  const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  if (first) return letter;
  return letter || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

// A string value of a desktop entry's Exec key: the argument is quoted for the Exec syntax
// ("`$\ escaped by a backslash inside double quotes), "%" is doubled as a field code would
// otherwise be read, and then every backslash is escaped again for the string value itself.
std::string quotedExecArgument(const std::string& argument) {
  std::string exec = "\"";
  for (const char c : argument) {
    if (c == '"' || c == '`' || c == '$' || c == '\\') exec += '\\';
    if (c == '%') exec += '%';
    exec += c;
  }
  exec += '"';
  std::string value;
  for (const char c : exec) {
    if (c == '\\') value += '\\';
    value += c;
  }
  return value;
}

std::string lowered(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

// Runs `xdg-mime default FILE x-scheme-handler/SCHEME`; a missing xdg-mime is not an error, as
// desktops that read the entry's MimeType find it anyway.
void registerDefaultHandler(const std::string& fileName, const std::string& scheme) {
  std::string program = "xdg-mime";
  std::string verb = "default";
  std::string file = fileName;
  std::string mime = "x-scheme-handler/" + lowered(scheme);
  char* argv[] = {program.data(), verb.data(), file.data(), mime.data(), nullptr};
  pid_t pid = 0;
  if (posix_spawnp(&pid, program.c_str(), nullptr, nullptr, argv, environ) != 0) {
    std::cout << "xdg-mime is not installed: the entry is found through its MimeType line only\n";
    return;
  }
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    std::cout << "default handler of " << mime << ": " << fileName << "\n";
  } else {
    std::cout << "xdg-mime could not make it the default handler of " << mime << "\n";
  }
}

}  // namespace

std::optional<std::string> appUrlScheme(std::string_view bundleId) {
  std::string scheme = "amzn-" + std::string(bundleId);
  for (std::size_t i = 0; i < scheme.size(); ++i) {
    if (!isSchemeCharacter(scheme[i], i == 0)) return std::nullopt;
  }
  if (bundleId.empty()) return std::nullopt;
  return scheme;
}

std::string urlHandlerDesktopFileName(std::string_view scheme) { return "tunevo-" + std::string(scheme) + ".desktop"; }

std::string urlHandlerDesktopEntry(std::string_view scheme, const fs::path& tunevoPath) {
  return "[Desktop Entry]\n"
         "Type=Application\n"
         "Name=tunevo sign-in redirect\n"
         "Comment=Hands the sign-in answer for " + std::string(scheme) + " to the waiting tunevo\n"
         "Exec=" + quotedExecArgument(tunevoPath.string()) + " handle-url %u\n"
         "Terminal=false\n"
         "NoDisplay=true\n"
         "MimeType=x-scheme-handler/" + lowered(scheme) + ";\n";
}

std::optional<fs::path> desktopApplicationsDirectory() {
  if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && data[0] == '/') {
    return fs::path(data) / "applications";
  }
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
    return fs::path(home) / ".local" / "share" / "applications";
  }
  return std::nullopt;
}

int runUrlHandler(int argc, char** argv) {
  if (argc >= 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage;
    return kExitOk;
  }
  if (argc < 2 || (std::string_view(argv[1]) != "install" && std::string_view(argv[1]) != "remove")) {
    std::cerr << kUsage;
    return kExitUsage;
  }
  const bool install = std::string_view(argv[1]) == "install";
  std::optional<fs::path> manifest;
  std::optional<std::string> bundleId;
  for (int i = 2; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if ((arg == "--manifest" || arg == "--bundle-id") && i + 1 < argc) {
      if (arg == "--manifest") manifest = fs::path(argv[++i]);
      else bundleId = argv[++i];
    } else {
      std::cerr << "tunevo url-handler: unexpected argument '" << arg << "'\n" << kUsage;
      return kExitUsage;
    }
  }
  if (!bundleId) {
    const auto path = manifest.value_or(applogic::platform::defaultAppManifestPath());
    bundleId = applogic::platform::makeAppManifestBundleInfo(path)->bundleIdentifier();
    if (!bundleId) {
      std::cerr << "tunevo url-handler: " << path.string() << " holds no CFBundleIdentifier\n";
      return kExitDataError;
    }
  }
  const auto scheme = appUrlScheme(*bundleId);
  if (!scheme) {
    std::cerr << "tunevo url-handler: 'amzn-" << *bundleId << "' is not a valid URL scheme\n";
    return kExitDataError;
  }
  const auto directory = desktopApplicationsDirectory();
  if (!directory) {
    std::cerr << "tunevo url-handler: neither XDG_DATA_HOME nor HOME is an absolute path\n";
    return kExitCantCreate;
  }
  const std::string fileName = urlHandlerDesktopFileName(*scheme);
  const fs::path entry = *directory / fileName;
  std::error_code error;
  if (!install) {
    if (!fs::remove(entry, error) && error) {
      std::cerr << "tunevo url-handler: cannot remove " << entry.string() << ": " << error.message() << "\n";
      return kExitCantCreate;
    }
    std::cout << "removed " << entry.string() << "\n";
    return kExitOk;
  }
  const fs::path self = fs::read_symlink("/proc/self/exe", error);
  if (error) {
    std::cerr << "tunevo url-handler: cannot find the tunevo executable: " << error.message() << "\n";
    return kExitCantCreate;
  }
  fs::create_directories(*directory, error);
  // Written beside the entry and renamed over it, so the desktop never reads half a file.
  const fs::path temporary = *directory / ("." + fileName + ".tmp");
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    out << urlHandlerDesktopEntry(*scheme, self);
    out.close();
    if (!out) {
      std::cerr << "tunevo url-handler: cannot write " << temporary.string() << "\n";
      return kExitCantCreate;
    }
  }
  fs::rename(temporary, entry, error);
  if (error) {
    std::cerr << "tunevo url-handler: cannot write " << entry.string() << ": " << error.message() << "\n";
    return kExitCantCreate;
  }
  std::cout << "wrote " << entry.string() << "\n";
  registerDefaultHandler(fileName, *scheme);
  return kExitOk;
}

}  // namespace tunevo
