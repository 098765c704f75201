#!/bin/sh
# Every source is formatted by the style file.
set -eu
cd "$(dirname "$0")/.."
git ls-files '*.c' '*.h' '*.cpp' '*.hpp' | xargs clang-format --dry-run --Werror
