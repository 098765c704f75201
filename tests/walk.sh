#!/bin/sh
# A random walk over one working copy by hand, by zev and by the system's git: after each step both
# programs must tell the same kinds, and nothing that was ever committed may be missing at the end.
#   walk.sh STEPS [SEED]   the program is $ZEV_BIN, else zev
set -u
steps=${1:-60}
seed=${2:-1}
zev=${ZEV_BIN:-zev}
export ZEV_AUTHOR=walker GIT_AUTHOR_NAME=walker GIT_AUTHOR_EMAIL=w@x GIT_COMMITTER_NAME=walker \
  GIT_COMMITTER_EMAIL=w@x GIT_CONFIG_GLOBAL=/dev/null GIT_EDITOR=true LC_ALL=C.UTF-8
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
state=$seed
rand() { # limit: R is below it
  state=$(((state * 1103515245 + 12345) % 2147483648))
  R=$(((state >> 8) % $1))
}
pick() { # command: P is one of the lines that it prints; false without any
  "$@" >"$work/list"
  lines=$(wc -l <"$work/list")
  P=
  [ "$lines" -eq 0 ] && return 1
  rand "$lines"
  P=$(sed -n "$((R + 1))p" "$work/list")
}
tracked() { git -c core.quotepath=off ls-files -z | tr '\0' '\n' | sort -u; }
drawings() { tracked | grep -v gitkeep; }
files() { find . -name .git -prune -o -type f -printf '%P\n' | sort; }
dirs() { find . -mindepth 1 -name .git -prune -o -type d -printf '%P\n' | sort; }

serial=0 R=0 P= N=
# Each differs from all others in its bytes, so that renames are told alike, and in its length: git
# itself takes a file of the same length and second for unchanged.
content() {
  serial=$((serial + 1))
  printf "%0${serial}d %d\n" "$serial" "$seed"
}
name() { # N: a name that may be taken
  rand 14
  case $R in
  0) N='#1.dwx' ;; 1) N='!x.dwx' ;; 2) N='a[1].dwx' ;; 3) N='st*r.dwx' ;; 4) N='100%s%n.dwx' ;;
  5) N='Zeichnung Größe.dwx' ;; 6) N='図面.dwx' ;; 7) N='blank ' ;; 8) N='old.bak' ;;
  *) N="f$R.txt" ;;
  esac
  rand 8
  case $R in
  0) N="d1/$N" ;; 1) N="d1/e/$N" ;; 2) N="d 2/$N" ;; 3) N="Größe/$N" ;;
  esac
}
conflict() { # two branches that changed one file
  pick drawings || return 1
  [ -z "$(git ls-files -u)" ] || return 1
  git add -A && git commit -qm "step $step"
  [ -f "$P" ] && git checkout -q -b side$step && content >"$P" && git commit -qam side &&
    git checkout -q - && content >"$P" && git commit -qam main && git merge -q side$step
}

by_hand() { # 0 to 9, of any walk
  case $op in
  0 | 1 | 2) name && mkdir -p "$(dirname "./$N")" && content >"$N" ;;
  3 | 4) pick files && content >"$P" ;;
  5) pick files && content >>"$P" ;;
  6) pick files && rm -- "$P" ;;
  7) pick files && name && from=$P && mkdir -p "$(dirname "./$N")" && mv -n -- "$from" "$N" ;;
  8) pick dirs && mv -n -- "$P" "$P-moved" ;;
  9) pick files && touch -- "$P" ;;
  esac
}

step_once() {
  rand 34
  op=$R
  case $op in
  [0-9]) by_hand ;;
  10) rand 3 && ln -sfn /etc/hostname "link$R" ;;
  11) pick files && cp -p -- "$P" "$work/same" && cat "$work/same" >"$P" ;;
  12 | 13) pick files && "$zev" add -- "$P" ;;
  14) "$zev" add . ;;
  15) pick tracked && "$zev" rm -- "$P" ;;
  16) pick dirs && "$zev" rm -- "$P" ;;
  17) pick tracked && name && "$zev" mv -- "$P" "$N" ;;
  18) rand 5 && "$zev" mkdir "made$R" ;;
  19 | 20) pick tracked && "$zev" revert -- "$P" ;;
  21) "$zev" revert --yes ;;
  22 | 23) "$zev" add . ; "$zev" commit -m "step $step" ;;
  24) pick tracked && "$zev" commit -m "step $step" -- "$P" ;;
  25) pick files && git add -- "$P" ;;
  26) pick tracked && git rm -q --cached -- ":(literal)$P" ;;
  27) pick tracked && name && mkdir -p "$(dirname "./$N")" && git mv -- "$P" "$N" ;;
  28) git commit -qam "step $step" ;;
  29) pick tracked && git reset -q -- ":(literal)$P" ;;
  30) pick tracked && git checkout -q -- ":(literal)$P" ;;
  31 | 32 | 33) conflict ;;
  esac
  if [ -n "$(git ls-files -u)" ] && rand 6 && [ "$R" -eq 0 ]; then
    rand 2
    [ "$R" -eq 0 ] && "$zev" resolve --all --mine || "$zev" resolve --all --theirs
  fi
}

# A rename is what went and what came: which of two equal files went where is no kind. Where
# another type of file came in the place of one that moved away, its type changed.
ours() {
  "$zev" --color never status --short --ignored |
    sed -e 's/^R\(.\) \(.*\) -> \(.*\)$/D  \2\nA\1 \3/' |
    awk '{x = substr($0, 1, 1); y = substr($0, 2, 1); path = substr($0, 4)}
      x == "D" && y == " " {gone[path] = 1; next}
      x == "A" {came[path] = y; next}
      {print}
      END {for (path in gone) if (path in came) {print "T" came[path], path; delete came[path]}
                              else print "D ", path
           for (path in came) print "A" came[path], path}' | sort
}
theirs() {
  git status --porcelain=v1 -uall --ignored --no-renames -z | tr '\0' '\n' | sort
}

[ -z "${WALK_STEPS_ONLY-}" ] || return 0 # walk_team.sh goes on from here
"$zev" init "$work/copy" >/dev/null && cd "$work/copy" || exit 1
git config core.quotepath off
echo '*.bak' >.gitignore
step=0
while [ "$step" -lt "$steps" ]; do
  step=$((step + 1))
  step_once >"$work/out" 2>&1
  ours >"$work/ours" 2>"$work/told"
  theirs >"$work/theirs"
  grep -v '^warning: the merge of ' "$work/told" >"$work/errors"
  if ! cmp -s "$work/ours" "$work/theirs" || [ -s "$work/errors" ]; then
    echo "seed $seed, step $step, operation $op on '${P-}' and '${N-}':" >&2
    cat "$work/out" "$work/errors" >&2
    diff "$work/ours" "$work/theirs" >&2
    cp -a "$work/copy" "${TMPDIR:-/tmp}/walk-kept.$$"
    exit 1
  fi
done
"$zev" verify >"$work/out" 2>&1 && git fsck --strict >>"$work/out" 2>&1 || { cat "$work/out" >&2; exit 1; }
echo "$steps steps with seed $seed, $(git rev-list --count --all) commits: always the same kinds"
