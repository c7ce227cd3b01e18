#pragma once

// `tunevo demo`: a guided tour of the library that runs offline.
namespace tunevo {

/// Runs the demo. `argv[0]` is "demo" and the rest are the demo's own arguments, as a
/// sub-program's `main` would see them. Returns the exit status.
int runDemo(int argc, char** argv);

}  // namespace tunevo
