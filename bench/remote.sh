# Scenarios with a server; bench/run reads this file. Each client talks to its server on the
# loopback: straight where the time counts, through bench/relay.py where bytes and round trips do,
# or the time of a line of 20 ms and 20 Mbit/s. The peers' servers ask for no password, ours does.
#
# git-lfs is no peer here: Debian has its client, but no server.

relay=$bench/relay.py
export HOME=$work XDG_CONFIG_HOME=$work/config LC_ALL=C.UTF-8
export GIT_CONFIG_NOSYSTEM=1 GIT_CONFIG_COUNT=2 GIT_CONFIG_KEY_0=gc.auto GIT_CONFIG_VALUE_0=0 \
  GIT_CONFIG_KEY_1=init.defaultBranch GIT_CONFIG_VALUE_1=master

free_port() { python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }
answers() { # port
  for _ in $(seq 100); do
    python3 -c 'import socket, sys; socket.create_connection(("127.0.0.1", int(sys.argv[1])))' "$1" 2>/dev/null && return
    sleep 0.1
  done
  echo "no server at port $1" >&2
  return 1
}

# All three servers, and a port for the relay; they end with the run.
serve() {
  echo secret | zevd init remote-service --password-stdin >/dev/null
  sed -i 's/3001/0/' remote-service/server.conf
  zevd run --config remote-service/server.conf >remote-told 2>zevd.err &
  zevd=$!
  mkdir -p svnroot gitroot
  svn_port=$(free_port) git_port=$(free_port) line=$(free_port)
  svnserve -d --foreground --listen-host 127.0.0.1 --listen-port "$svn_port" -r svnroot &
  servers="$servers $zevd $!"
  git daemon --reuseaddr --listen=127.0.0.1 --port="$git_port" --export-all \
    --enable=receive-pack --base-path="$work/gitroot" 2>/dev/null &
  servers="$servers $!"
  trap 'kill $servers; wait; rm -rf "$work"' EXIT
  until zev_port=$(sed -n 's/^zevd serves port //p' remote-told) && [ -n "$zev_port" ]; do sleep 0.1; done
  answers "$svn_port" && answers "$git_port"
  through "$zev_port" zev login "http://127.0.0.1:$line" --user admin --password-stdin <secret >/dev/null
  zev login "http://127.0.0.1:$zev_port" --user admin --password-stdin <secret >/dev/null
}

# A project of that name at all three servers, each empty; and where it is, by port.
project() {
  zev admin project create "bench/$1" >/dev/null
  svnadmin create "svnroot/$1"
  printf '[general]\nanon-access = write\n' >"svnroot/$1/conf/svnserve.conf"
  git init -q --bare "gitroot/$1"
}
zev_url() { echo "http://127.0.0.1:$1/repos/bench/$2"; }
svn_url() { echo "svn://127.0.0.1:$1/$2"; }
git_url() { echo "git://127.0.0.1:$1/$2"; }
# Empty copies of a project: z-NAME, s-NAME, g-NAME.
copies() {
  zev get "$(zev_url "$zev_port" "$1")" "z-$1" >/dev/null
  svn checkout -q "$(svn_url "$svn_port" "$1")" "s-$1"
  git clone -q "$(git_url "$git_port" "$1")" "g-$1" 2>/dev/null
}
# From here on a copy talks to that port: of its server, or of the line.
zev_at() { sed -i "s#127.0.0.1:[0-9]*#127.0.0.1:$2#" "$1/.git/config"; }
git_at() { zev_at "$@"; }
svn_at() {
  root=$(svn info --show-item repos-root-url "$1")
  next=$(echo "$root" | sed "s#127.0.0.1:[0-9]*#127.0.0.1:$2#")
  [ "$root" = "$next" ] || through "$svn_port" svn relocate "$root" "$next" "$1" >/dev/null
}

# A command over the line: `ms KiB up down trips connections`. The port is the server's.
through() { port=$1 && shift && "$relay" "$line" "$port" 0 0 "$@"; }
slowly() { port=$1 && shift && "$relay" "$line" "$port" 20 20 "$@"; }
# Bytes and round trips of such a line.
show_line() { # scenario program line
  set -- "$1" "$2" $3
  show "$1" "$2" bytes-up "$5"
  show "$1" "$2" bytes-down "$6"
  show "$1" "$2" trips "$7"
}
ratio() { # scenario peer metric ours theirs
  show "$1" "$2" "$3" "$(echo "$4 $5" | awk '{printf "%.3f", $2 ? $1 / $2 : 0}')"
}
field() { echo "$2" | cut -d' ' -f"$1"; }

# What the peers' users type for one `zev commit`.
cat >git-send <<'END'
#!/bin/sh
cd "$1" && shift && git add -A "$@" && git commit -qm "sent" && git push -q origin HEAD
END
cat >svn-send <<'END'
#!/bin/sh
cd "$1" && svn add -q --force . && svn commit -qm sent
END
cat >zev-send <<'END'
#!/bin/sh
cd "$1" && zev add . && zev commit -m sent
END
chmod +x git-send svn-send zev-send
echo secret >secret
serve

# ---- One drawing, one object of a hundred changed each time

# The next version of the drawing in all copies, imported here and in full there, as it would be
# saved; p is the packed form.
edit=0
next_version() {
  edit=$((edit + 1))
  gen_dxf next.dxf "$objects" 500 1 100 "$edit"
  gzip -c next.dxf >next.gz
  zev -C z-drawing import ../next.dxf big.dwx >/dev/null
  for peer in s g; do cp next.dxf "$peer-drawing/big.dxf"; cp next.gz "$peer-packed/big.dxz"; done
}
# The same change at each, by the given way of measuring; a line each of ours, svn, svn packed,
# git, git packed.
send_version() { # time | through | slowly
  next_version
  for copy in drawing packed; do
    [ "$1" = time ] && to_svn=$svn_port to_git=$git_port to_zev=$zev_port ||
      { to_svn=$line to_git=$line to_zev=$line; }
    svn_at "s-$copy" "$to_svn"
    git_at "g-$copy" "$to_git"
  done
  zev_at z-drawing "$to_zev"
  measured "$1" "$zev_port" zev -C z-drawing commit -m sent big.dwx >zev.line
  for copy in drawing packed; do
    measured "$1" "$svn_port" svn commit -qm sent "s-$copy" >"svn-$copy.line"
    measured "$1" "$git_port" ./git-send "g-$copy" >"git-$copy.line"
  done
}
measured() { # how port command...
  how=$1 port=$2
  shift 2
  case $how in time) peak "$@" ;; through) through "$port" "$@" ;; slowly) slowly "$port" "$@" ;; esac
}

if wanted remote-drawing; then
  for name in drawing packed; do project $name && copies $name; done
  gen_dxf next.dxf "$objects" 500 1
  gzip -c next.dxf >next.gz
  show remote-drawing file bytes "$(stat -c %s next.dxf)"
  show remote-drawing packed-file bytes "$(stat -c %s next.gz)"
  zev -C z-drawing import ../next.dxf big.dwx >/dev/null
  for peer in s g; do cp next.dxf "$peer-drawing/big.dxf"; cp next.gz "$peer-packed/big.dxz"; done
  svn add -q s-drawing/big.dxf s-packed/big.dxz
  ours=$(field 1 "$(peak ./zev-send z-drawing)")
  compare "remote-drawing-first" git "$ours" "$(field 1 "$(peak ./git-send g-drawing)")"
  compare "remote-drawing-first" svn "$ours" "$(field 1 "$(peak svn commit -qm sent s-drawing)")"
  svn commit -qm sent s-packed && ./git-send g-packed
  for _ in 1 2 3; do
    send_version time
    for of in zev svn-drawing svn-packed git-drawing git-packed; do
      field 1 "$(cat $of.line)" >>$of.times
    done
  done
  ours=$(middle <zev.times)
  for of in svn-packed git-packed svn-drawing git-drawing; do
    compare "remote-drawing-1%" $of "$ours" "$(middle <$of.times)"
  done
  send_version through
  show_line "remote-drawing-1%" zev "$(cat zev.line)"
  for of in svn-packed git-packed svn-drawing git-drawing; do
    show_line "remote-drawing-1%" $of "$(cat $of.line)"
    ratio "remote-drawing-1%" $of bytes-ratio "$(field 3 "$(cat zev.line)")" "$(field 3 "$(cat $of.line)")"
  done
  send_version slowly
  zev get "$(zev_url "$zev_port" drawing)" z-drawing-too >/dev/null
  cmp z-drawing/big.dwx z-drawing-too/big.dwx
  rm -rf z-drawing-too
  show "remote-drawing-1%-slow" zev trips "$(field 5 "$(cat zev.line)")"
  for of in svn-packed git-packed svn-drawing git-drawing; do
    show "remote-drawing-1%-slow" $of trips "$(field 5 "$(cat $of.line)")"
    compare "remote-drawing-1%-slow" $of "$(field 1 "$(cat zev.line)")" "$(field 1 "$(cat $of.line)")"
  done
fi

# ---- Many files

# A project of that name with the files, in copies of all three.
fill_project() { # name n
  project "$1"
  copies "$1"
  fill "files-$1" "$2"
  for peer in z s g; do cp -a "files-$1/." "$peer-$1/"; done
}

if wanted remote-files; then
  fill_project files "$files"
  cp -a z-files z-behind && rm -rf z-behind/d*
  ours=$(peak ./zev-send z-files)
  theirs=$(peak ./git-send g-files)
  compare "remote-send-$files" git "$(field 1 "$ours")" "$(field 1 "$theirs")"
  compare "remote-send-$files" svn "$(field 1 "$ours")" "$(field 1 "$(peak ./svn-send s-files)")"
  show "remote-send-$files" zev MiB $(($(field 2 "$ours") / 1024))

  ours=$(median 3 'rm -rf z-new' zev get "$(zev_url "$zev_port" files)" z-new)
  compare "remote-get-$files" git "$ours" \
    "$(median 3 'rm -rf g-new' git clone -q "$(git_url "$git_port" files)" g-new)"
  compare "remote-get-$files" svn "$ours" \
    "$(median 3 'rm -rf s-new' svn checkout -q "$(svn_url "$svn_port" files)" s-new)"
  rm -rf z-new g-new s-new
  ours=$(through "$zev_port" zev get "$(zev_url "$line" files)" z-new)
  theirs=$(through "$git_port" git clone -q "$(git_url "$line" files)" g-new)
  show_line "remote-get-$files" zev "$ours"
  show_line "remote-get-$files" git "$theirs"
  show_line "remote-get-$files" svn \
    "$(through "$svn_port" svn checkout -q "$(svn_url "$line" files)" s-new)"
  diff -rq -x .git -x .gitkeep z-new g-new
  zev_at z-new "$zev_port" && git_at g-new "$git_port" && svn_at s-new "$svn_port"

  # A hundred files rewritten in one copy, each in another directory where there are enough; then
  # the others get them.
  some=$((files < 100 ? files : 100)) round=0
  (cd z-files && find d* -name '*.txt' | sort) |
    awk -v step=$((files / some)) 'NR % step == 1 || step == 1' | head -$some >picked
  change_some() {
    round=$((round + 1))
    for peer in z s g; do
      awk -v dir="$peer-files" -v seed=$((100 + round)) 'BEGIN { srand(seed) }
        { f = dir "/" $0
          for (k = 0; k < 250; k++) printf "%07d ", rand() * 1e7 > f
          close(f) }' picked
    done
    ./zev-send z-files >/dev/null && ./svn-send s-files && ./git-send g-files
  }
  rm -f ./*.times
  for _ in 1 2 3; do
    change_some
    field 1 "$(peak zev -C z-new update)" >>zev.times
    field 1 "$(peak git -C g-new pull -q)" >>git.times
    field 1 "$(peak svn update -q s-new)" >>svn.times
  done
  for of in git svn; do
    compare "remote-update-$some-of-$files" $of "$(middle <zev.times)" "$(middle <$of.times)"
  done
  change_some
  zev_at z-new "$line" && git_at g-new "$line" && svn_at s-new "$line"
  ours=$(through "$zev_port" zev -C z-new update)
  theirs=$(through "$git_port" git -C g-new pull -q)
  show_line "remote-update-$some-of-$files" zev "$ours"
  show_line "remote-update-$some-of-$files" git "$theirs"
  show_line "remote-update-$some-of-$files" svn "$(through "$svn_port" svn update -q s-new)"
  diff -rq -x .git -x .gitkeep z-new g-new
  ratio "remote-update-$some-of-$files" git bytes-down-ratio "$(field 4 "$ours")" "$(field 4 "$theirs")"

  # A copy that has nothing yet knows of all of them.
  zev -C z-behind updates >/dev/null
  bench_updates z-behind
fi

# Ten named files: what it costs is not to grow with the project.
commit_ten() { # n
  name=ten-$1
  fill_project "$name" "$1"
  ./zev-send "z-$name" >/dev/null && ./git-send "g-$name"
  ten=$(cd "z-$name" && find d0 -name '*.txt' | sort | head -10)
  change="for f in $(echo $ten); do date +%N >>\$f; done"
  sleep 1.1
  (cd "g-$name" && git status) >/dev/null; (cd "z-$name" && zev status) >/dev/null
  ours=$(cd "z-$name" && median 5 "$change" zev commit -m ten $ten)
  theirs=$(cd "g-$name" && median 5 "$change" ../git-send . $ten)
  compare "remote-commit-ten-of-$1" git "$ours" "$theirs"
  zev_at "z-$name" "$line" && git_at "g-$name" "$line"
  (cd "z-$name" && eval "$change") && (cd "g-$name" && eval "$change")
  show_line "remote-commit-ten-of-$1" zev \
    "$(cd "z-$name" && through "$zev_port" zev commit -m ten $ten)"
  show_line "remote-commit-ten-of-$1" git \
    "$(cd "g-$name" && through "$git_port" ../git-send . $ten)"
  rm -rf "files-$name" ?-"$name"
}
if wanted remote-commit-ten; then
  commit_ten "$files"
  [ "$files" = "$project" ] || commit_ten "$project"
fi

if wanted remote-memory; then
  project big && zev get "$(zev_url "$zev_port" big)" z-big >/dev/null
  head -c "${big}M" /dev/urandom >z-big/big.bin
  zev -C z-big add big.bin >/dev/null
  set -- $(peak zev -C z-big commit -m big)
  show "remote-send-${big}MiB" zev ms "$1"
  show "remote-send-${big}MiB" zev MiB $(($2 / 1024))
  set -- $(peak zev get "$(zev_url "$zev_port" big)" z-big-too)
  show "remote-get-${big}MiB" zev ms "$1"
  show "remote-get-${big}MiB" zev MiB $(($2 / 1024))
  cmp z-big/big.bin z-big-too/big.bin
  show "remote-${big}MiB" zevd MiB $(($(awk '/VmHWM/ {print $2}' "/proc/$zevd/status") / 1024))
fi
