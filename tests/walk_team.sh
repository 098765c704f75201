#!/bin/sh
# Two copies of a project on a server walk at random, as the one of walk.sh does: after each step zev
# and git must tell the same kinds in a copy, and after each round, when both have sent what they did
# and fetched the other's, their trees and the server's must be one.
#   walk_team.sh BUILD ROUNDS [SEED]   BUILD holds bin/zev and bin/zevd
set -u
build=$(realpath "$1")
here=$(dirname "$0")
shift
ZEV_BIN=$build/bin/zev
WALK_STEPS_ONLY=1
. "$here/walk.sh"
rounds=$steps step=0 op= served=
trap '[ -z "$served" ] || kill "$served"; rm -rf "$work"' EXIT
export ZEV_USER=admin ZEV_PASSWORD_FILE="$work/password" HOME="$work"

fail() {
  echo "seed $seed, round $round, step $step, operation $op on '${P-}' and '${N-}' in $(pwd): $1" >&2
  cat "$work/out" "$work/errors" >&2
  cp -a "$work" "${TMPDIR:-/tmp}/walk-kept.$$"
  exit 1
}

step_once() {
  rand 22
  op=$R
  case $op in
  [0-9]) by_hand ;;
  10) pick files && "$zev" add -- "$P" ;;
  11) "$zev" add . ;;
  12) pick tracked && "$zev" rm -- "$P" ;;
  13) pick tracked && name && "$zev" mv -- "$P" "$N" ;;
  14) rand 5 && "$zev" mkdir "made$R" ;;
  15) pick tracked && "$zev" revert -- "$P" ;;
  16) pick files && git add -- "$P" ;;
  17) pick tracked && git rm -q --cached -- ":(literal)$P" ;;
  18) pick tracked && "$zev" commit -m "step $step" -- "$P" ;;
  19) pick dirs && "$zev" commit -m "step $step" -- "$P" ;;
  20) "$zev" add . && "$zev" commit -m "step $step" ;;
  21) "$zev" update ;;
  esac
}

compare() {
  ours >"$work/ours" 2>"$work/errors"
  theirs >"$work/theirs"
  cmp -s "$work/ours" "$work/theirs" && [ ! -s "$work/errors" ] && return
  diff "$work/ours" "$work/theirs" >&2
  fail "zev and git tell other kinds"
}

walk() {
  rand 8
  for _ in $(seq $((R + 2))); do
    step=$((step + 1))
    step_once >"$work/out" 2>&1
    compare
  done
}

# All of it goes up, and what is new comes in.
sync_copy() {
  op="sync"
  for _ in 1 2 3; do
    "$zev" update >"$work/out" 2>&1
    if [ -n "$(git ls-files -u)" ]; then
      rand 3
      case $R in 0) side=--mine ;; 1) side=--theirs ;; *) side=--both ;; esac
      "$zev" resolve --all "$side" >>"$work/out" 2>&1 || fail "no resolution"
    fi
    "$zev" commit -m "round $round" . >>"$work/out" 2>&1
    code=$?
    compare
    [ -z "$(git status --porcelain -uall)" ] && return
  done
  fail "does not settle, $code"
}

begin() {
  echo secret >"$work/password"
  "$build/bin/zevd" init "$work/server" --password-stdin <"$work/password" >/dev/null || exit 1
  sed -i -E -e 's/("port"[^0-9]*)[0-9]+/\10/' -e 's/localhost/127.0.0.1/' "$work/server/server.conf"
  mkfifo "$work/told"
  "$build/bin/zevd" run --config "$work/server/server.conf" >"$work/told" 2>"$work/log" &
  served=$!
  exec 3<"$work/told"
  port=
  while [ -z "$port" ] && read -r line <&3; do
    port=$(echo "$line" | sed -n 's/.*zevd serves port \([0-9]*\).*/\1/p')
  done
  url=http://127.0.0.1:$port
  "$zev" admin project create t/a --server "$url" >/dev/null || exit 1
  for copy in one two; do
    "$zev" get "$url/t/a" "$work/$copy" >"$work/out" 2>&1 || fail "get"
    git -C "$work/$copy" config core.quotepath off
    [ "$copy" = two ] || (cd "$work/one" && echo '*.bak' >.gitignore &&
      "$zev" commit -m first . >"$work/out" 2>&1) || fail "the first commit"
  done
}

round=0
: >"$work/errors"
begin
while [ "$round" -lt "$rounds" ]; do
  round=$((round + 1))
  for copy in one two; do cd "$work/$copy" && walk; done
  for copy in one two one; do cd "$work/$copy" && sync_copy; done
  trees=$(for copy in one two; do git -C "$work/$copy" rev-parse 'HEAD^{tree}'; done | sort -u)
  there=$(git -C "$work/server/repos/t/a" -c safe.directory='*' rev-parse 'HEAD^{tree}')
  [ "$trees" = "$there" ] || fail "the trees are others: $trees, $there"
done
for copy in one two; do
  cd "$work/$copy" && "$zev" verify >"$work/out" 2>&1 || fail "verify"
done
git -C "$work/server/repos/t/a" -c safe.directory='*' fsck --strict >"$work/out" 2>&1 || fail "fsck"
echo "$rounds rounds with seed $seed, $step steps," \
  "$(git -C "$work/server/repos/t/a" -c safe.directory='*' rev-list --count HEAD) commits:" \
  "always the same kinds and trees"
