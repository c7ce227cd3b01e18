// tunevo: the command-line host of the applogic library.

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/version.h"
#include "tunevo/apikey.h"
#include "tunevo/catalog_commands.h"
#include "tunevo/demo.h"
#include "tunevo/emulator_command.h"
#include "tunevo/exit_codes.h"
#include "tunevo/parse.h"
#include "tunevo/play.h"
#include "tunevo/redirect_socket.h"
#include "tunevo/signin_commands.h"
#include "tunevo/url_handler.h"

namespace {

int parseCommand(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  return tunevo::runParse(args, std::cin, std::cout, std::cerr);
}

// The version of the library tunevo runs with, which the installed shared library decides.
int versionCommand(int, char**) {
  std::cout << "tunevo (applogic " << applogic::libraryVersion() << ")\n";
  return tunevo::kExitOk;
}

struct Command {
  std::string_view name;
  std::string_view arguments;
  std::string_view summary;
  int (*run)(int argc, char** argv);  // argv[0] is the command's name
};

constexpr Command kCommands[] = {
    {"parse", "KIND [FILE]", "print the records a service answer holds", &parseCommand},
    {"demo", "", "a guided tour of the library, offline", &tunevo::runDemo},
    {"play", "URL|FILE", "play a track preview; Enter pauses, Ctrl-C stops", &tunevo::runPlay},
    {"apikey", "mint|inspect", "issue an API key, or check one as the sign-in client does", &tunevo::runApiKeyCommand},
    {"emulator", "signin|catalog|all [OPTIONS]", "run the local sign-in and catalog servers until Ctrl-C",
     &tunevo::runEmulator},
    {"url-handler", "install|remove", "register tunevo for the app's sign-in redirect scheme", &tunevo::runUrlHandler},
    {"handle-url", "URL", "hand a sign-in redirect to the waiting tunevo", &tunevo::runHandleUrl},
    {"login", "[OPTIONS]", "sign in with an Amazon account in the browser", &tunevo::runLogin},
    {"token", "[--force-refresh]", "print the access token, refreshed when needed", &tunevo::runToken},
    {"profile", "[OPTIONS]", "print the signed-in user's profile (JSON)", &tunevo::runProfile},
    {"logout", "[OPTIONS]", "sign out: forget the tokens and the profile", &tunevo::runLogout},
    {"top", "[OPTIONS]", "the music service's top tracks", &tunevo::runCatalogCommand},
    {"search", "QUERY [OPTIONS]", "search the catalog's tracks", &tunevo::runCatalogCommand},
    {"genres", "[ID] [OPTIONS]", "the top genres, or a genre's top tracks", &tunevo::runCatalogCommand},
    {"favorites", "[OPTIONS]", "the signed-in user's favourite tracks, page by page", &tunevo::runCatalogCommand},
    {"history", "[OPTIONS]", "the tracks the signed-in user played last", &tunevo::runCatalogCommand},
    {"playlist", "ID [OPTIONS]", "a playlist and its tracks, page by page", &tunevo::runCatalogCommand},
    {"preview", "TRACK_ID [OPTIONS]", "play a catalog track's preview", &tunevo::runCatalogCommand},
    {"--version", "", "print the version of the applogic library tunevo runs with", &versionCommand},
};

void printUsage(std::ostream& out) {
  const auto synopsis = [](const Command& command) {
    return command.arguments.empty() ? std::string(command.name)
                                     : std::string(command.name) + " " + std::string(command.arguments);
  };
  std::size_t width = 0;
  for (const Command& command : kCommands) width = std::max(width, synopsis(command).size());
  out << "usage: tunevo COMMAND [ARGS...]\n\ncommands:\n";
  for (const Command& command : kCommands) {
    const std::string text = synopsis(command);
    out << "  " << text << std::string(width + 2 - text.size(), ' ') << command.summary << "\n";
  }
  out << "\n\"tunevo COMMAND --help\" describes a command.\n";
}

int run(int argc, char** argv) {
  if (argc < 2) {
    printUsage(std::cerr);
    return tunevo::kExitUsage;
  }
  const std::string_view name = argv[1];
  if (name == "help" || name == "-h" || name == "--help") {
    printUsage(std::cout);
    return tunevo::kExitOk;
  }
  for (const Command& command : kCommands) {
    if (command.name == name) return command.run(argc - 1, argv + 1);
  }
  std::cerr << "tunevo: unknown command '" << name << "'\n";
  printUsage(std::cerr);
  return tunevo::kExitUsage;
}

}  // namespace

// Commands answer their failures themselves; an exception that still escapes one is a fault of
// tunevo, reported on one line instead of a terminate() and a core dump.
int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "tunevo: internal error: " << error.what() << "\n";
  } catch (...) {
    std::cerr << "tunevo: internal error: an unknown exception\n";
  }
  return tunevo::kExitSoftware;
}
