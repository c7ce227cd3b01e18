#pragma once

// `tunevo top|search|genres|favorites|history|playlist|preview`: a small client of the music
// service over HTTP, through the data controllers, signed in with the stored account.

#include <iosfwd>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "applogic/records/genre.h"
#include "applogic/records/track.h"
#include "tunevo/signin_commands.h"

namespace tunevo {

/// The options of a catalog command, as given.
struct CatalogCommandOptions {
  SignInCommandOptions signIn;
  std::string service;      ///< --service URL (the API base), or $TUNEVO_SERVICE
  bool json = false;        ///< --json
  int limit = 20;           ///< --limit N (top, search, history, genres' tracks): 1 to 500
  int pageSize = 10;        ///< --page-size N (favorites, playlist): 1 to 500
  std::string language;     ///< --lang CODE (genres); default: the system locale's language, else "en"
  std::string sink;         ///< --sink DESCRIPTION (preview)
  std::string argument;     ///< QUERY (search), ID (playlist, genres' tracks), TRACK_ID (preview)
};

/// Reads the options of the catalog command `name` from `args`; the problem as one line when an
/// option is unknown or lacks its value, a number is out of range, or the command's one
/// positional argument is missing or repeated. The sign-in options are those of `tunevo token`
/// (without --force-refresh). `environmentService` is $TUNEVO_SERVICE, used without --service.
std::variant<CatalogCommandOptions, std::string> parseCatalogOptions(std::string_view name,
                                                                     const std::vector<std::string>& args,
                                                                     std::string_view environmentService);

/// A list of tracks as a readable table: a header, then one row per track (position, id, title,
/// artist, album, time as m:ss), columns cut to fit with "…". "(no tracks)" for none.
void printTrackTable(std::ostream& out, const std::vector<applogic::Track>& tracks, int firstPosition = 1);
void printGenreTable(std::ostream& out, const std::vector<applogic::Genre>& genres);

/// `tunevo top|search|genres|favorites|history|playlist|preview [ARG] [OPTIONS]`; argv[0] is the
/// command's name. Exit statuses: 0 done; 1 the service, the sign-in client or the player failed
/// (one line on standard error: "tunevo NAME: DOMAIN code CODE: MESSAGE"); 64 usage; 66 an input
/// file cannot be read; 69 the preview cannot be played; 75 no answer within the timeout; 130
/// Ctrl-C.
int runCatalogCommand(int argc, char** argv);

}  // namespace tunevo
