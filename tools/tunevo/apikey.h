#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace tunevo {

/// `tunevo apikey mint|inspect ...`: issues API keys for a key pair of your own and checks them
/// the way the sign-in client does. `args` follow "apikey". Exit statuses: 0 minted, or the key
/// is valid; 64 usage; 65 the key is not valid (the reason on `err`) or a PEM key cannot be
/// read as RSA; 66 a key file cannot be read.
int runApiKey(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

/// `runApiKey` over the process's arguments (argv[0] is "apikey") and standard streams.
int runApiKeyCommand(int argc, char** argv);

}  // namespace tunevo
