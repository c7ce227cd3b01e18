#include "tunevo/emulator_command.h"

#include <signal.h>

#include <charconv>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "emulator/signin_server.h"
#include "tunevo/exit_codes.h"

namespace tunevo {
namespace {

using applogic::emulator::SignInServer;
using applogic::emulator::SignInServerOptions;

constexpr const char* kUsage =
    "usage: tunevo emulator signin [--port N] [--ca-out PATH] [--account EMAIL:PASSWORD] [--bundle-id ID]\n"
    "\n"
    "Runs a local sign-in server (HTTPS on 127.0.0.1) until Ctrl-C: the sign-in page /ap/oa, the\n"
    "token endpoint /auth/o2/token, the profile /user/profile, and test controls under /__control/.\n"
    "Its certificate is signed by a CA made at start, written to PATH (default: a temporary file).\n"
    "  --port N          the port; 0, the default, takes any free one\n"
    "  --ca-out PATH     where the CA certificate (PEM) goes\n"
    "  --account E:P     the test account's e-mail address and password\n"
    "                    (default listener@tunevo.test:tunevo-password)\n"
    "  --bundle-id ID    accept only the redirect address amzn-ID://... (default: any amzn- scheme)\n";

extern "C" void onStopSignal(int /*signal*/) {}

int usageError(const std::string& message) {
  std::cerr << "tunevo emulator: " << message << "\n" << kUsage;
  return kExitUsage;
}

std::optional<std::uint16_t> parsePort(std::string_view text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value > 65535) return std::nullopt;
  return static_cast<std::uint16_t>(value);
}

// Waits for SIGINT or SIGTERM. The signals are blocked before the server starts its threads, so
// that they inherit the mask and only this wait receives them; a do-nothing handler replaces an
// inherited "ignore" (a background job of a shell), which would discard them.
class StopSignals {
 public:
  StopSignals() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    struct sigaction action {};
    action.sa_handler = &onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    pthread_sigmask(SIG_BLOCK, &set_, &previous_);
  }
  ~StopSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  void wait() const {
    int received = 0;
    sigwait(&set_, &received);
  }

 private:
  sigset_t set_;
  sigset_t previous_;
};

int runSignIn(int argc, char** argv) {
  SignInServerOptions options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return kExitOk;
    }
    const bool takesValue = arg == "--port" || arg == "--ca-out" || arg == "--account" || arg == "--bundle-id";
    if (!takesValue) return usageError("unexpected argument '" + std::string(arg) + "'");
    if (i + 1 >= argc) return usageError(std::string(arg) + " needs a value");
    const std::string_view value = argv[++i];
    if (arg == "--port") {
      const auto port = parsePort(value);
      if (!port) return usageError("--port takes a number from 0 to 65535");
      options.port = *port;
    } else if (arg == "--ca-out") {
      if (value.empty()) return usageError("--ca-out needs a path");
      options.caOut = std::string(value);
    } else if (arg == "--account") {
      const std::size_t colon = value.find(':');
      if (colon == std::string_view::npos || colon == 0 || colon + 1 == value.size()) {
        return usageError("--account takes EMAIL:PASSWORD");
      }
      options.email = std::string(value.substr(0, colon));
      options.password = std::string(value.substr(colon + 1));
    } else {
      if (value.empty()) return usageError("--bundle-id needs an identifier");
      options.bundleId = std::string(value);
    }
  }

  const StopSignals signals;
  const std::string email = options.email;
  const std::string password = options.password;
  auto started = SignInServer::start(std::move(options));
  if (!started) {
    const auto& info = started.error().userInfo;
    const auto message = info.find(applogic::emulator::kSignInServerErrorMessageKey);
    std::cerr << "tunevo emulator signin: "
              << (message != info.end() ? std::get<std::string>(message->second) : std::string("cannot start"))
              << "\n";
    return started.error().code == applogic::emulator::kSignInServerCaFileError ? kExitCantCreate
                                                                                 : kExitUnavailable;
  }
  const SignInServer& server = *started.value();
  std::cout << "sign-in server: " << server.baseUrl() << "\n"
            << "CA certificate: " << server.caPath().string() << "\n"
            << "account: " << email << " " << password << "\n"
            << "control: " << server.baseUrl() << "/__control/\n"
            << "Ctrl-C stops the server." << std::endl;
  signals.wait();
  started.value().reset();
  std::cout << "stopped" << std::endl;
  return kExitOk;
}

}  // namespace

int runEmulator(int argc, char** argv) {
  if (argc < 2) return usageError("name the server to run");
  const std::string_view which = argv[1];
  if (which == "--help" || which == "-h") {
    std::cout << kUsage;
    return kExitOk;
  }
  if (which == "signin") return runSignIn(argc - 1, argv + 1);
  return usageError("unknown server '" + std::string(which) + "'");
}

}  // namespace tunevo
