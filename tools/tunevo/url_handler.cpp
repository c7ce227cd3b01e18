#include "tunevo/url_handler.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <cstring>
#include <memory>
#include <sstream>
#include <system_error>
#include <vector>

#include "applogic/platform/app_manifest_bundle_info.h"
#include "tunevo/exit_codes.h"
#include "tunevo/file_argument.h"

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
    "remove   deletes that desktop entry and its default-handler line from\n"
    "         $XDG_CONFIG_HOME/mimeapps.list, and says when there was nothing to remove\n"
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

std::optional<fs::path> mimeAppsListPath() {
  if (const char* config = std::getenv("XDG_CONFIG_HOME"); config != nullptr && config[0] == '/') {
    return fs::path(config) / "mimeapps.list";
  }
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') {
    return fs::path(home) / ".config" / "mimeapps.list";
  }
  return std::nullopt;
}

enum class MimeAppsEdit { unchanged, changed, failed };

// Takes `fileName` out of every `mime=` line of mimeapps.list (the line goes when nothing is
// left on it), which undoes `xdg-mime default` and leaves other handlers alone. The file is
// rewritten through a renamed temporary, as the install writes the entry.
MimeAppsEdit removeFromMimeAppsList(const fs::path& list, const std::string& mime, const std::string& fileName,
                                    std::string& problem) {
  std::ifstream in(list, std::ios::binary);
  if (!in) return MimeAppsEdit::unchanged;
  std::ostringstream kept;
  bool changed = false;
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with(mime + "=")) {
      kept << line << "\n";
      continue;
    }
    std::string handlers;
    std::istringstream values(line.substr(mime.size() + 1));
    for (std::string handler; std::getline(values, handler, ';');) {
      if (handler == fileName) {
        changed = true;
      } else if (!handler.empty()) {
        handlers += handler + ";";
      }
    }
    if (!handlers.empty()) kept << mime << "=" << handlers << "\n";
  }
  if (!changed) return MimeAppsEdit::unchanged;
  const fs::path temporary = list.parent_path() / ("." + list.filename().string() + ".tunevo.tmp");
  std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
  out << kept.str();
  out.close();
  std::error_code error;
  if (!out) {
    problem = "cannot write " + temporary.string();
  } else {
    fs::rename(temporary, list, error);
    if (!error) return MimeAppsEdit::changed;
    problem = "cannot write " + list.string() + ": " + error.message();
  }
  fs::remove(temporary, error);
  return MimeAppsEdit::failed;
}

int removeHandler(const fs::path& entry, const std::string& fileName, const std::string& scheme) {
  std::error_code error;
  const bool removedEntry = fs::remove(entry, error);
  if (error) {
    std::cerr << "tunevo url-handler: cannot remove " << entry.string() << ": " << error.message() << "\n";
    return kExitCantCreate;
  }
  if (removedEntry) std::cout << "removed " << entry.string() << "\n";
  const std::string mime = "x-scheme-handler/" + lowered(scheme);
  bool removedDefault = false;
  if (const auto list = mimeAppsListPath()) {
    std::string problem;
    const MimeAppsEdit edit = removeFromMimeAppsList(*list, mime, fileName, problem);
    if (edit == MimeAppsEdit::failed) {
      std::cerr << "tunevo url-handler: " << problem << "\n";
      return kExitCantCreate;
    }
    removedDefault = edit == MimeAppsEdit::changed;
    if (removedDefault) std::cout << "removed the default handler of " << mime << " from " << list->string() << "\n";
  }
  if (!removedEntry && !removedDefault) {
    std::cout << "nothing to remove: no " << entry.string() << " and no default handler of " << mime << "\n";
  }
  return kExitOk;
}

// The bundle identifier of the manifest at `path`; absent after saying why on standard error,
// with the exit status in `status`.
std::optional<std::string> manifestBundleId(const fs::path& path, int& status) {
  if (const FileArgument probe = readFileArgument(path, "app manifest"); !probe.text) {
    std::cerr << "tunevo url-handler: " << probe.problem << " (give --manifest FILE or --bundle-id ID)\n";
    status = kExitNoInput;
    return std::nullopt;
  }
  auto bundleId = applogic::platform::makeAppManifestBundleInfo(path)->bundleIdentifier();
  if (!bundleId) {
    std::cerr << "tunevo url-handler: the app manifest " << path.string() << " holds no CFBundleIdentifier\n";
    status = kExitDataError;
  }
  return bundleId;
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
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--help" || std::string_view(argv[i]) == "-h") {
      std::cout << kUsage;
      return kExitOk;
    }
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
    int status = kExitOk;
    bundleId = manifestBundleId(manifest.value_or(applogic::platform::defaultAppManifestPath()), status);
    if (!bundleId) return status;
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
  if (!install) return removeHandler(entry, fileName, *scheme);
  std::error_code error;
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
