#!/bin/sh
# Runs every fuzz target for some seconds from its seeds; says how many inputs each took.
#   fuzz.sh FUZZ_BUILD_DIR SECONDS [TARGET...]
set -eu
[ -d "$1/bin" ] || exit 77
bin=$(cd "$1/bin" && pwd)
seconds=$2
shift 2
seeds=$(cd "$(dirname "$0")/../fuzz/seeds" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
[ $# -gt 0 ] || set -- $(cd "$bin" && ls -d fuzz_*)
for target; do
  mkdir -p "corpus-$target"
  own=$seeds/${target#fuzz_}
  [ -d "$own" ] || own=
  # shellcheck disable=SC2086
  if ! "$bin/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 \
    -print_final_stats=1 "corpus-$target" $own >"$target.log" 2>&1; then
    tail -60 "$target.log"
    cp crash-* timeout-* oom-* leak-* "${TMPDIR:-/tmp}" 2>/dev/null || true
    exit 1
  fi
  printf '%s: %s executions\n' "$target" \
    "$(sed -n 's/^stat::number_of_executed_units: *//p' "$target.log")"
done
