#pragma once

namespace tunevo {

/// `tunevo emulator signin [--port N] [--ca-out PATH] [--account EMAIL:PASSWORD] [--bundle-id ID]`:
/// runs the local sign-in server in the foreground until SIGINT or SIGTERM, after printing its
/// base URL, the CA certificate's path, the account and the control address, one per line.
/// Exit statuses: 0 stopped by a signal, 64 usage, 69 the port cannot be bound or the
/// certificates cannot be made, 73 the CA certificate cannot be written. argv[0] is "emulator".
int runEmulator(int argc, char** argv);

}  // namespace tunevo
