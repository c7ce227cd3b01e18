#!/usr/bin/env bash
# readme_examples.sh TUNEVO README SOURCE_DIR: runs the README's shell examples as a reader would.
#
# A block runs when the line before its opening ```sh fence is `<!-- tested -->`. Each runs in
# bash with `set -euo pipefail`, from a directory of its own laid out like the source tree after
# a build (build/tools/tunevo/tunevo is TUNEVO, tools/tunevo/samples the source's samples), with
# HOME, TMPDIR and the XDG directories inside it, and free loopback ports in place of 8443 and 8444. The
# run is bounded; every process a block leaves behind is killed and every file removed. Without
# curl or openssl the test skips (77).
set -euo pipefail

if (($# != 3)); then
  echo "usage: $0 TUNEVO README SOURCE_DIR" >&2
  exit 64
fi
tunevo=$(realpath "$1")
readme=$2
source_dir=$(realpath "$3")
block_seconds=120

for tool in curl openssl; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "readme examples: skipped: no $tool command"
    exit 77
  fi
done

work=$(mktemp -d "${TMPDIR:-/tmp}/readme-examples.XXXXXX")
group=
cleanup() {
  if [[ -n $group ]]; then kill -KILL -- "-$group" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 143' TERM INT

# A port nothing listens on now; the emulator's own bind is the final check.
free_port() {
  local port
  for _ in $(seq 100); do
    port=$((20000 + RANDOM % 40000))
    if ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
      echo "$port"
      return
    fi
  done
  echo "readme examples: no free port found" >&2
  exit 1
}

# Splits the marked blocks into block.N files, each starting with its line number.
awk -v dir="$work" '
  /^<!-- tested -->$/ { marked = NR; next }
  marked == NR - 1 && /^```sh$/ { n++; file = dir "/block." n; print "# README.md line " NR + 1 > file; inside = 1; next }
  inside && /^```$/ { inside = 0; close(file); next }
  inside { print > file }
' "$readme"

blocks=("$work"/block.*)
if [[ ! -e ${blocks[0]} ]]; then
  echo "readme examples: no block of $readme is marked <!-- tested -->" >&2
  exit 1
fi

failed=0
for block in "${blocks[@]}"; do
  name=$(head -n 1 "$block")
  root=$work/root.${block##*.}
  mkdir -p "$root/build/tools/tunevo" "$root/tools/tunevo" "$root/home" "$root/tmp"
  mkdir -m 700 "$root/run"
  ln -s "$tunevo" "$root/build/tools/tunevo/tunevo"
  ln -s "$source_dir/tools/tunevo/samples" "$root/tools/tunevo/samples"
  sed -i "s/\b8443\b/$(free_port)/g; s/\b8444\b/$(free_port)/g" "$block"

  # timeout makes its own process group, so the group id is its pid: whatever the block started
  # in the background is ended with it.
  (
    cd "$root"
    export HOME=$root/home TMPDIR=$root/tmp XDG_RUNTIME_DIR=$root/run XDG_DATA_HOME=$root/home/data \
      XDG_CONFIG_HOME=$root/home/config
    exec timeout -k 5 "$block_seconds" bash -c 'set -euo pipefail; . "$1"' block "$block"
  ) >"$block.log" 2>&1 &
  group=$!
  status=0
  wait "$group" || status=$?
  kill -KILL -- "-$group" 2>/dev/null || true
  group=
  if ((status == 0)); then
    echo "ok: $name"
  else
    failed=1
    reason="exit $status"
    if ((status == 124 || status == 137)); then reason="no end within $block_seconds s"; fi
    echo "FAILED ($reason): $name"
    sed 's/^/    /' "$block.log"
  fi
done
exit "$failed"
