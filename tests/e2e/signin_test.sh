#!/usr/bin/env bash
# signin_test.sh TUNEVO NPM_DIR: the end-to-end sign-in in headless Chromium (run_signin_test.cjs).
#
# Installs the driver's one npm package (playwright-core, pinned by package-lock.json) with
# `npm ci` into NPM_DIR, a directory of the build tree, again only when the lock file changed.
# Without Chromium, Node.js 18 or later, npm, or the package, the test skips (exit 77) and says
# why; with APPLOGIC_REQUIRE_BROWSER=1 (CI) that is a failure instead.
set -euo pipefail

if (($# != 2)); then
  echo "usage: $0 TUNEVO NPM_DIR" >&2
  exit 64
fi
tunevo=$1
npm_dir=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

unavailable() {
  if [[ ${APPLOGIC_REQUIRE_BROWSER:-} == 1 ]]; then
    echo "e2e: $1; APPLOGIC_REQUIRE_BROWSER=1 makes that a failure (scripts/install-deps.sh installs it)" >&2
    exit 1
  fi
  echo "e2e: skipped: $1 (scripts/install-deps.sh installs it)"
  exit 77
}

export APPLOGIC_E2E_CHROMIUM=${APPLOGIC_E2E_CHROMIUM:-/usr/bin/chromium}
# Only Debian's Chromium is used: Playwright must never fetch a browser of its own.
export PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1

[[ -x $APPLOGIC_E2E_CHROMIUM ]] || unavailable "no Chromium at $APPLOGIC_E2E_CHROMIUM (Debian package chromium)"
command -v node >/dev/null 2>&1 || unavailable "no node command (Debian package nodejs)"
command -v npm >/dev/null 2>&1 || unavailable "no npm command (Debian package npm)"
node_major=$(node -p 'process.versions.node.split(".")[0]')
((node_major >= 18)) || unavailable "Node.js $(node --version) is older than 18"

stamp=$npm_dir/node_modules/.applogic-package-lock.json
if ! cmp -s "$here/package-lock.json" "$stamp"; then
  mkdir -p "$npm_dir"
  rm -f "$stamp"
  cp "$here/package.json" "$here/package-lock.json" "$npm_dir/"
  echo "e2e: npm ci in $npm_dir"
  if ! (cd "$npm_dir" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error); then
    unavailable "npm ci could not install playwright-core from the registry"
  fi
  cp "$here/package-lock.json" "$stamp"
fi

NODE_PATH=$npm_dir/node_modules exec node "$here/run_signin_test.cjs" "$tunevo"
