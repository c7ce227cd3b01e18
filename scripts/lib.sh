# Shared by scripts/demo, scripts/test and .ci/run; sourced, never run.
# Puts the shell in the repository root and defines how build directories are configured.

cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Override with APPLOGIC_BUILD_DIR (the README commands use build/) and APPLOGIC_JOBS.
APPLOGIC_BUILD_DIR=${APPLOGIC_BUILD_DIR:-build}
APPLOGIC_JOBS=${APPLOGIC_JOBS:-$(nproc)}

# ccache, when the machine has it, serves objects built before, also those of another clone or
# build directory: paths are taken relative to the repository, and the working directory (which
# only the debug information records) is left out of the match.
if command -v ccache >/dev/null 2>&1; then
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD}
  export CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
  APPLOGIC_LAUNCHER=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
else
  APPLOGIC_LAUNCHER=()
fi

# configure DIR [CMAKE ARGS...]: configures a new build directory with Ninja, or reconfigures an
# existing one with the generator it already has.
applogic_configure() {
  local dir=$1
  shift
  local generator=()
  [[ -f $dir/CMakeCache.txt ]] || generator=(-G Ninja)
  cmake -S . -B "$dir" "${generator[@]}" "${APPLOGIC_LAUNCHER[@]}" "$@"
}

# applogic_build DIR [TARGETS...]: builds everything, or the given targets.
applogic_build() {
  local dir=$1
  shift
  local targets=()
  (($# == 0)) || targets=(--target "$@")
  cmake --build "$dir" --parallel "$APPLOGIC_JOBS" "${targets[@]}"
}

# applogic_has_target DIR TARGET: whether the configured build directory defines TARGET.
applogic_has_target() {
  cmake --build "$1" --target help | grep -Eq "(^|\.\.\. )$2(: phony)?\$"
}
