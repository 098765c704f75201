#!/bin/sh
# Makes Debian packages of a build, installs them over a copy of this system that is thrown away,
# uses and removes them there. Takes root, a mount of its own, and dpkg.
set -eu
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
command -v dpkg-shlibdeps >/dev/null || { echo "no dpkg-dev here" >&2; exit 77; }
[ "$(id -u)" -eq 0 ] || { echo "takes root" >&2; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$build" && cpack -G DEB -B "$work/made" >"$work/log" 2>&1) || { cat "$work/log"; exit 1; }
[ "$(find "$work/made" -maxdepth 1 -name '*.deb' | wc -l)" -eq 4 ]
if command -v lintian >/dev/null; then lintian --fail-on error "$work"/made/*.deb; fi

cat >"$work/inside" <<'END'
set -eux
export LC_ALL=C.UTF-8 ZEV_AUTHOR=Ann HOME=/root
adduser --version >/dev/null || { echo "adduser is not installed" >&2; exit 77; }
dpkg -i /packages/*.deb >/dev/null
[ "$(command -v zev)" = /usr/bin/zev ]
ldd /usr/bin/zev | grep -q 'libzev.so.1 => /.*lib'
cd "$(mktemp -d)"
zev init copy
cd copy
zev import /packages/plan.dxf
zev add .
zev commit -m First
zev log | grep -q First
[ "$(pkg-config --modversion zev)" = "$(zev --version | cut -d' ' -f2)" ]
grep -q '^ExecStart=/usr/bin/zevd ' /usr/lib/systemd/system/zevd.service
[ "$(stat -c '%U %a' /var/lib/zev)" = "zev 700" ]
echo 'one two three' | setpriv --reuid=zev --regid=zev --clear-groups \
  zevd init /var/lib/zev --password-stdin
setpriv --reuid=zev --regid=zev --clear-groups zevd check --config /var/lib/zev/server.conf
dpkg -r zevd zev libzev-dev libzev1 >/dev/null
! command -v zev
[ -f /var/lib/zev/server.conf ] # what it served stays
! ls -d /usr/bin/zev* /usr/lib/*zev* /usr/share/zev /usr/include/zev 2>/dev/null | grep .
END

mkdir "$work/over"
status=0
unshare -m sh -eu -c '
  mount -t tmpfs none "$1/over"
  mkdir "$1/over/upper" "$1/over/work" "$1/over/root"
  mount -t overlay none -o "lowerdir=/,upperdir=$1/over/upper,workdir=$1/over/work" "$1/over/root" || exit 77
  mkdir "$1/over/root/packages"
  cp "$1"/made/*.deb "$1/inside" "$2/zev/plan.dxf" "$1/over/root/packages"
  mount -t proc none "$1/over/root/proc" || mount --bind /proc "$1/over/root/proc"
  mount --bind /dev "$1/over/root/dev"
  exec chroot "$1/over/root" sh /packages/inside' sh "$work" "$here" >"$work/log" 2>&1 || status=$?
[ "$status" -eq 0 ] || cat "$work/log" >&2
exit "$status"
