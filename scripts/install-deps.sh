#!/usr/bin/env bash
# Installs the Debian 12 packages that the build, the tests, the sanitizer builds, the fuzz targets
# and the benchmarks need, and only those that are missing. Run as root (or as a user with sudo).
# Nothing is downloaded at build time and nothing is vendored: this list is the whole dependency set.
set -euo pipefail

PACKAGES=(
  # Build tools
  cmake ninja-build g++ make pkg-config git
  # Library: JSON values and URLs (only the versioned Boost 1.81 packages: the unversioned
  # libboost-dev is 1.74 and conflicts with them), Unicode normalisation and graphemes
  libboost-json1.81-dev libboost-url1.81-dev
  libutf8proc-dev
  # Sign-in client: OpenSSL 3 (secure random bytes, SHA-256) and SQLite 3 (the secure token store)
  libssl-dev libsqlite3-dev
  # Desktop keyring secure store (libsecret); its tests run against a throw-away GNOME keyring on a
  # private session bus (gnome-keyring-daemon, dbus-run-session from dbus-daemon)
  libsecret-1-dev gnome-keyring dbus-daemon
  # Linux HTTP client port: libcurl (OpenSSL flavour); zlib gzips answers in its tests
  libcurl4-openssl-dev zlib1g-dev
  # Linux media player port: GStreamer's playbin, WAV/MP3/AAC parsing and http(s) sources
  libgstreamer1.0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  # Linux audio session port: the sound server's default output (PulseAudio protocol, also PipeWire's);
  # its tests run against a throw-away PulseAudio server with null sinks (scripts/with-test-pulse:
  # pulseaudio, and pactl from pulseaudio-utils)
  libpulse-dev pulseaudio pulseaudio-utils
  # Tests
  libgtest-dev libgmock-dev googletest
  # Loopback HTTP servers in tests (the media player port plays clips served with Range support)
  # and the local sign-in server of tools/emulator (HTTPS; Debian builds it with OpenSSL)
  libcpp-httplib-dev
  # Fuzz targets and clang sanitizer runtimes (libFuzzer lives in libclang-rt)
  clang libclang-rt-14-dev
  # Benchmarks; nlohmann-json and simdjson are baselines used only in bench/
  libbenchmark-dev nlohmann-json3-dev libsimdjson-dev
  # The end-to-end sign-in test's browser: headless Chromium (driven from Node.js, below)
  chromium
  # The README's examples, which a test runs as they are written (openssl makes keys, curl is the
  # quick start's browser); ccache lets a second build directory reuse the first one's objects
  curl openssl ccache
  # Debian packages of the library and tunevo (cpack computes their Depends with dpkg-shlibdeps;
  # help2man writes tunevo's manual page from its --help)
  dpkg-dev help2man
)

is_installed() {
  [[ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

missing=()
for package in "${PACKAGES[@]}"; do
  is_installed "$package" || missing+=("$package")
done
# Node.js and npm run the end-to-end sign-in test's browser driver (its one npm package,
# playwright-core, is installed by that test with `npm ci`). Debian's packages come only when the
# commands are missing: a Node.js from elsewhere (NodeSource's bundles npm) stays, and Debian's
# npm would conflict with it.
command -v node >/dev/null 2>&1 || missing+=(nodejs)
command -v npm >/dev/null 2>&1 || missing+=(npm)

if ((${#missing[@]} == 0)); then
  echo "install-deps: all ${#PACKAGES[@]} packages, node and npm are installed"
  exit 0
fi

as_root=()
if ((EUID != 0)); then
  if command -v sudo >/dev/null 2>&1; then
    as_root=(sudo)
  else
    echo "install-deps: missing packages: ${missing[*]}" >&2
    echo "install-deps: run this script as root (sudo is not available)" >&2
    exit 1
  fi
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -q --no-install-recommends "${missing[@]}"
