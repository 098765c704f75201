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
pick() { # list on stdin: P is one of its lines, empty for an empty list
  cat >"$work/list"
  lines=$(wc -l <"$work/list")
  P=
  [ "$lines" -eq 0 ] && return 1
  rand "$lines"
  P=$(sed -n "$((R + 1))p" "$work/list")
}
tracked() { git -c core.quotepath=off ls-files -z | tr '\0' '\n' | sort -u; }
files() { find . -name .git -prune -o -type f -printf '%P\n' | sort; }
dirs() { find . -mindepth 1 -name .git -prune -o -type d -printf '%P\n' | sort; }

serial=0 R=0 P= N=
content() { # one that no other file has, so that renames are told alike
  serial=$((serial + 1))
  echo "$seed $serial"
  rand 40
  for line in $(seq "$R"); do echo "line $line of $serial"; done
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
  tracked | grep -v gitkeep | pick || return 1
  [ -z "$(git status --porcelain)" ] || return 1
  git checkout -q -b side$step && content >"$P" && git commit -qam side &&
    git checkout -q - && content >"$P" && git commit -qam main && git merge -q side$step
}

step_once() {
  rand 32
  op=$R
  case $op in
  0 | 1 | 2) name && mkdir -p "$(dirname "./$N")" && content >"$N" ;;
  3 | 4) files | pick && content >"$P" ;;
  5) files | pick && content >>"$P" ;;
  6) files | pick && rm -- "$P" ;;
  7) files | pick && name && from=$P && mkdir -p "$(dirname "./$N")" && mv -n -- "$from" "$N" ;;
  8) dirs | pick && mv -n -- "$P" "$P-moved" ;;
  9) files | pick && touch -- "$P" ;;
  10) rand 3 && ln -sfn /etc/hostname "link$R" ;;
  11) files | pick && cp -p -- "$P" "$work/same" && cat "$work/same" >"$P" ;;
  12 | 13) files | pick && "$zev" add -- "$P" ;;
  14) "$zev" add . ;;
  15) tracked | pick && "$zev" rm -- "$P" ;;
  16) dirs | pick && "$zev" rm -- "$P" ;;
  17) tracked | pick && name && "$zev" mv -- "$P" "$N" ;;
  18) rand 5 && "$zev" mkdir "made$R" ;;
  19 | 20) tracked | pick && "$zev" revert -- "$P" ;;
  21) "$zev" revert --yes ;;
  22 | 23) "$zev" add . ; "$zev" commit -m "step $step" ;;
  24) tracked | pick && "$zev" commit -m "step $step" -- "$P" ;;
  25) files | pick && git add -- "$P" ;;
  26) tracked | pick && git rm -q --cached -- ":(literal)$P" ;;
  27) tracked | pick && name && mkdir -p "$(dirname "./$N")" && git mv -- "$P" "$N" ;;
  28) git commit -qam "step $step" ;;
  29) tracked | pick && git reset -q -- ":(literal)$P" ;;
  30) tracked | pick && git checkout -q -- ":(literal)$P" ;;
  31) conflict ;;
  esac
  if [ -n "$(git ls-files -u)" ] && rand 3 && [ "$R" -eq 0 ]; then
    rand 2
    [ "$R" -eq 0 ] && "$zev" resolve --all --mine || "$zev" resolve --all --theirs
  fi
}

# A rename is what went and what came: which of two equal files went where is no kind.
ours() {
  "$zev" --color never status --short --ignored |
    sed -e 's/^R\(.\) \(.*\) -> \(.*\)$/D  \2\nA\1 \3/' | sort
}
theirs() {
  git status --porcelain=v1 -uall --ignored --no-renames -z | tr '\0' '\n' | sort
}

"$zev" init "$work/copy" >/dev/null && cd "$work/copy" || exit 1
git config core.quotepath off
echo '*.bak' >.gitignore
step=0
while [ "$step" -lt "$steps" ]; do
  step=$((step + 1))
  step_once >"$work/out" 2>&1
  ours >"$work/ours" 2>"$work/errors"
  theirs >"$work/theirs"
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
