#!/bin/sh
# roundtrip.sh [DIRECTORY [COUNT]]: imports every DXF file below DIRECTORY (the drawings of
# librecad-data) into one working copy, or COUNT of them evenly picked, adds and commits them,
# exports each and compares it with its source by bytes. The program is $ZEV_BIN, else zev.
set -eu
source=${1:-/usr/share/librecad}
count=${2:-0}
zev=${ZEV_BIN:-zev}
export ZEV_AUTHOR=roundtrip LC_ALL=C.UTF-8
[ -d "$source" ] || { echo "$source: no such directory; install librecad-data" >&2; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
find -L "$source" -type f -name '*.dxf' -printf '%P\n' | sort |
  awk -v want="$count" '{line[NR] = $0}
    END {step = want > 0 && want < NR ? NR / want : 1
         for (i = 1; i <= NR; i += step) print line[int(i)]}' >"$work/list"
files=$(wc -l <"$work/list")
[ "$files" -gt 0 ] || { echo "$source: no DXF files" >&2; exit 77; }

"$zev" init "$work/copy" >/dev/null
cd "$work/copy"
sed -n 's,/[^/]*$,,p' "$work/list" | sort -u | tr '\n' '\0' | xargs -0 -r "$zev" mkdir >/dev/null

while IFS= read -r name; do
  "$zev" import "$source/$name" "${name%.dxf}.dwx" --json
done <"$work/list" >"$work/imports"

"$zev" add . >/dev/null
"$zev" commit -m 'All drawings' >/dev/null

bad=0 bytes=0
while IFS= read -r name; do
  rm -f "$work/out.dxf"
  "$zev" export "${name%.dxf}.dwx" "$work/out.dxf" >/dev/null
  cmp "$source/$name" "$work/out.dxf" || bad=$((bad + 1))
  bytes=$((bytes + $(wc -c <"$work/out.dxf")))
done <"$work/list"

"$zev" verify
git fsck --strict
[ -z "$(git status --short)" ] || { git status --short; bad=$((bad + 1)); }

objects=$(sed 's/.*"objects":\([0-9]*\).*/\1/' "$work/imports" | awk '{sum += $1} END {print sum}')
echo "$files files, $bytes bytes, $objects objects, $bad not the same"
[ "$bad" -eq 0 ]
