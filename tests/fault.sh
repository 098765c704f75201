#!/bin/sh
# Runs import, add and commit with the n-th call into the system failing, the disk full from the
# n-th call on, and the process killed at it. Afterwards HEAD is the old or the new commit,
# nothing is damaged or missing, and the next import, add and commit work without a hand.
#   fault.sh BUILD_DIR [POINTS]   points a command and mode; "all" for every call
set -eu
build=$(cd "$1" && pwd)
points=${2:-all}
source=$(cd "$(dirname "$0")" && pwd)
zev=$build/bin/zev
preload=$build/lib/libfault.so
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ZEV_AUTHOR=tester
cd "$work"

first=$source/zev/plan.dxf
second=$work/second.dxf
sed 's/^100\.0$/101.5/' "$first" >"$second"

base=$work/base
"$zev" init "$base" >/dev/null
"$zev" -C "$base" import "$first" plan.dwx >/dev/null 2>&1
mkdir "$base/docs"
echo first >"$base/docs/note.txt"
"$zev" -C "$base" add . >/dev/null 2>&1
"$zev" -C "$base" commit -m first >/dev/null 2>&1
old=$(git -C "$base" rev-parse HEAD)

# What a working copy looks like when its turn comes.
prepare() { # command
  rm -rf "$work/copy"
  cp -a "$base" "$work/copy"
  cd "$work/copy"
  echo second >docs/note.txt
  echo new >docs/new.txt
  [ "$1" = import ] || "$zev" import "$second" plan.dwx >/dev/null 2>&1
  [ "$1" != commit ] || "$zev" add . >/dev/null 2>&1
}

verb() { # command setting...
  case $1 in
  import) set -- "$@" "$zev" import "$second" plan.dwx ;;
  add) set -- "$@" "$zev" add . ;;
  commit) set -- "$@" "$zev" commit -m second ;;
  esac
  shift
  env LD_PRELOAD="$preload" "$@" >/dev/null 2>&1
}

fail() {
  echo "$command, $mode at call $n: $1" >&2
  cp -a "$work/copy" "${TMPDIR:-/tmp}/fault-kept.$$" && echo "kept: ${TMPDIR:-/tmp}/fault-kept.$$" >&2
  exit 1
}

judge() {
  head=$(git rev-parse HEAD) || fail "HEAD cannot be read"
  [ "$head" = "$old" ] || [ "$(git rev-parse HEAD^)" = "$old" ] || fail "HEAD is neither old nor new"
  git fsck --strict >"$work/fsck" 2>&1 || fail "fsck: $(cat "$work/fsck")"
  "$zev" verify >"$work/verify" 2>&1 || fail "verify: $(cat "$work/verify")"
  [ "$(cat docs/note.txt docs/new.txt)" = "second
new" ] || fail "a file of the user is changed"
  # The next day's work.
  "$zev" import "$second" plan.dwx >"$work/next" 2>&1 || fail "import: $(cat "$work/next")"
  echo third >docs/note.txt
  "$zev" add . >"$work/next" 2>&1 || fail "add: $(cat "$work/next")"
  "$zev" commit -m third >"$work/next" 2>&1 || fail "commit: $(cat "$work/next")"
  [ -z "$(git status --porcelain)" ] || fail "not clean after the commit: $(git status --porcelain)"
  "$zev" export plan.dwx "$work/out.dxf" >/dev/null 2>&1 && cmp -s "$work/out.dxf" "$second" ||
    fail "the drawing differs"
  "$zev" cat "$old:plan.dwx" >old.dwx && "$zev" export old.dwx "$work/out.dxf" >/dev/null 2>&1 &&
    cmp -s "$work/out.dxf" "$first" || fail "the first drawing differs"
}

total=0
for command in import add commit; do
  prepare $command
  verb $command ZEV_FAULT_COUNT="$work/count"
  calls=$(cat "$work/count")
  for mode in fail full kill; do
    step=1
    [ "$points" = all ] || [ "$calls" -le "$points" ] || step=$(((calls + points - 1) / points))
    n=1
    while [ "$n" -le "$calls" ]; do
      prepare $command
      verb $command ZEV_FAULT_AT="$n" ZEV_FAULT_MODE="$mode" || true
      judge
      total=$((total + 1))
      n=$((n + step))
    done
  done
  echo "$command: $calls calls that change files"
done
echo "$total points: nothing lost"
