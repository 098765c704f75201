#!/bin/sh
# make.sh ZEV: makes the pictures beside it, with that program, from the two versions of a drawing.
# The same program gives the same pictures.
set -eu
case "$1" in */*) zev=$(cd "$(dirname "$1")" && pwd)/$(basename "$1") ;; *) zev=$1 ;; esac
cd "$(dirname "$0")"
here=$PWD
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ZEV_AUTHOR=Ann LC_ALL=C.UTF-8

"$zev" init "$work/house" >/dev/null
cd "$work/house"
for version in 1 2; do
  "$zev" import "$here/floor-$version.dxf" floor.dwx >/dev/null
  "$zev" add floor.dwx >/dev/null
  "$zev" commit -m "Version $version" >/dev/null
  "$zev" tag "v$version" >/dev/null
done
"$zev" view floor.dwx v2 -o floor.svg
"$zev" diff floor.dwx v1 v2 --svg changes.svg
mv floor.svg changes.svg "$here"
