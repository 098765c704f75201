#!/bin/sh
# Plays a document: runs what stands behind "$ " in its ```console blocks, in order, in a directory
# of its own, and compares what comes with the lines below. Ids, times and the sizes of trashed
# files stand for any; "..." for anything in a line, and on a line of its own for any lines.
#   hour.sh [DOCUMENT]   docs/designer.md without one; the program is $ZEV_BIN, else zev
# $docs is the directory of the document. With $ZEVD_BIN a document may start a server: it gets a
# port of its own in place of 3001, and ends with the document.
set -u
hour_document=${1:-$(dirname "$0")/../docs/designer.md}
hour_zev=$(command -v "${ZEV_BIN:-zev}") || { echo "there is no zev" >&2; exit 1; }
[ -d /usr/share/librecad/library ] || { echo "librecad-data is not installed" >&2; exit 77; }
hour_work=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d) # many small files, each synced
hour_end() {
  [ ! -s "$hour_work/pids" ] || kill -9 $(cat "$hour_work/pids") 2>/dev/null
  rm -rf "$hour_work"
}
trap hour_end EXIT
mkdir "$hour_work/bin" "$hour_work/home" "$hour_work/steps"
ln -s "$(realpath "$hour_zev")" "$hour_work/bin/zev"

# Each step: its command, the lines that are to come, its line in the document.
awk -v steps="$hour_work/steps/" '
  /^```/ { inside = /^```console$/; next }
  inside && /^\$ / {
    ++count
    print substr($0, 3) >(steps count ".command")
    print NR >(steps count ".line")
    printf "" >(steps count ".want")
    next
  }
  inside { print >(steps count ".want") }
  END { print count + 0 }' "$hour_document" >"$hour_work/count"
read -r hour_count <"$hour_work/count"
[ "$hour_count" -gt 0 ] || { echo "$hour_document: no commands" >&2; exit 1; }

if [ -n "${ZEVD_BIN:-}" ]; then
  hour_port=$(python3 -c 'import socket
s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  sed -i "s/\b3001\b/$hour_port/g" "$hour_work"/steps/*.command "$hour_work"/steps/*.want
  cat >"$hour_work/bin/zevd" <<END
#!/bin/sh
[ "\$1" != run ] || echo \$\$ >>'$hour_work/pids'
[ "\$1" = init ] || exec '$(realpath "$ZEVD_BIN")' "\$@"
'$(realpath "$ZEVD_BIN")' "\$@" && sed -i 's/3001/$hour_port/' "\$2/server.conf"
END
  chmod +x "$hour_work/bin/zevd"
fi

hour_plain() {
  sed -E 's/\b([0-9a-f]{40}|[0-9a-f]{8})\b/ID/g
    s/[0-9]{4}-[0-9]{2}-[0-9]{2}[T ][0-9]{2}:[0-9]{2}(:[0-9]{2}[+-][0-9]{2}:[0-9]{2})?/TIME/g
    s/TIME  [0-9.]+ (Bytes|KB) */TIME SIZE /' "$1"
}

# Is the second file what the first one wants?
hour_matches() {
  printf '%s\n' "$(hour_plain "$1")" >"$hour_work/want" # without empty lines at the end
  printf '%s\n' "$(hour_plain "$2")" >"$hour_work/got"
  awk '
    function pattern(line) {
      if (line == "...") return "([^\n]*\n)*"
      gsub(/[][\\.^$*+?(){}|\/]/, "\\\\&", line)
      gsub(/\\\.\\\.\\\./, "[^\n]*", line)
      return line "\n"
    }
    FILENAME == ARGV[1] { want = want pattern($0); next }
    { got = got $0 "\n" }
    END { exit got !~ ("^" want "$") }' "$hour_work/want" "$hour_work/got"
}

# The shell of the document: what it sets stays set, so that names of ours are out of the way.
docs=$(cd "$(dirname "$hour_document")" && pwd)
export HOME="$hour_work/home" PATH="$hour_work/bin:$PATH" LC_ALL=C.UTF-8 TZ=UTC
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1
unset ZEV_AUTHOR NO_COLOR LANG XDG_CONFIG_HOME ZEV_SERVER ZEV_USER
cd "$hour_work/home" || exit 1
hour_step=0
while [ "$hour_step" -lt "$hour_count" ]; do
  hour_step=$((hour_step + 1))
  hour_at=$hour_work/steps/$hour_step
  hour_command=$(cat "$hour_at.command")
  eval "$hour_command" >"$hour_at.got" 2>&1 </dev/null
  hour_status=$?
  [ $hour_status -eq 0 ] && hour_matches "$hour_at.want" "$hour_at.got" && continue
  echo "$hour_document:$(cat "$hour_at.line"): \$ $hour_command"
  echo "--- gave $hour_status, and in place of"
  cat "$hour_at.want"
  echo "--- came"
  head -n 40 "$hour_at.got"
  exit 1
done
echo "$hour_count commands, all as told"
