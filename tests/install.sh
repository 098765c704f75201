#!/bin/sh
# Installs the build into a directory of its own and uses it from there: pkg-config, the CMake
# package, each header alone, the symbols that are visible.
set -eu
build=$(cd "$1" && pwd)
source=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/root" >/dev/null
# Moved, it is found where it lies.
grep -q "^ExecStart=$work/root/bin/zevd " "$work/root/lib/systemd/system/zevd.service"
mv "$work/root" "$work/moved"
root=$work/moved
lib=$(dirname "$(find "$root" -name libzev.so.1)")
"$root/bin/zev" init "$work/copy-moved"
"$root/bin/zevd" --version

# The desktop tells drawings by how they begin, and asks for their small pictures.
(cd "$work/copy-moved" && "$root/bin/zev" import "$source/tests/zev/plan.dxf")
python3 - "$root/share" "$work/copy-moved/plan.dwx" <<'END'
import sys, xml.etree.ElementTree as tree
share, drawing = sys.argv[1:]
name = "{http://www.freedesktop.org/standards/shared-mime-info}"
kind = tree.parse(share + "/mime/packages/zev.xml").find(name + "mime-type")
match = kind.find(name + "magic/" + name + "match")
assert open(drawing, "rb").read().startswith(match.get("value").encode())
entry = dict(line.strip().split("=", 1) for line in open(share + "/thumbnailers/zev.thumbnailer") if "=" in line)
assert kind.get("type") in entry["MimeType"].split(";")
assert entry["Exec"] == "zev view --thumbnail %i -o %o"
END

# pkg-config, a C compiler, and the examples as a user would build them.
export PKG_CONFIG_PATH="$lib/pkgconfig"
flags=$(pkg-config --cflags --libs zev)
for example in list drawing host; do
  # shellcheck disable=SC2086
  cc -std=c11 -Wall -Wextra -Werror "$source/examples/$example.c" $flags -o "$work/$example"
  LD_LIBRARY_PATH=$lib "$work/$example" "$work/copy-$example"
done | tee "$work/out"
grep -q '1 file(s) in the commit' "$work/out"
grep -qx '101: a circle' "$work/out"
grep -qx '  Reverted note.txt' "$work/out"
git -C "$work/copy-list" fsck --strict
git -C "$work/copy-host" fsck --strict

# The CMake package.
cmake -G Ninja -S "$source/tests/install" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$root" \
  -DEXAMPLE="$source/examples/list.c" >/dev/null
cmake --build "$work/consumer" >/dev/null
"$work/consumer/consumer" "$work/copy-cmake"

# Every installed header stands alone, in both languages.
for header in "$root"/include/zev/*.h; do
  echo "#include \"$header\"" >"$work/alone.c"
  cc -std=c11 -Wall -Wextra -Wpedantic -Werror -I"$root/include" -fsyntax-only "$work/alone.c"
  c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -I"$root/include" -fsyntax-only -x c++ "$work/alone.c"
done

# What the headers declare is there, and only names with a z are visible.
nm -D --defined-only "$lib/libzev.so.1" | awk '{print $3}' | sort >"$work/visible"
if grep -v '^z' "$work/visible"; then echo "visible without a z" >&2; exit 1; fi
echo '#include <zev/zev.h>' | cc -E -P -I"$root/include" -x c - |
  grep -oE '\bz[A-Z][A-Za-z0-9]*\(' | tr -d '(' | sort -u >"$work/declared"
if comm -13 "$work/visible" "$work/declared" | grep .; then echo "declared, not there" >&2; exit 1; fi
if comm -23 "$work/visible" "$work/declared" | grep .; then echo "there, not declared" >&2; exit 1; fi

# The authentication module lies beside the library, finds it there, and shows one symbol.
[ "$(nm -D --defined-only "$lib/libzevauth.so" | awk '{print $3}')" = zAuthSvrInit ]
ldd "$lib/libzevauth.so" | grep -q "libzev.so.1 => $lib/"
