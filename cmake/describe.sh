#!/bin/sh
# Writes manual pages and completions as they are installed below share/, from what the program
# says of itself: describe.sh ZEV SCDOC DIRECTORY. Without scdoc (empty) no pages.
set -eu
zev=$1 scdoc=$2 share=$3
mkdir -p "$share/man/man1" "$share/bash-completion/completions" "$share/zsh/site-functions" \
  "$share/fish/vendor_completions.d"
"$zev" generate bash >"$share/bash-completion/completions/zev"
"$zev" generate zsh >"$share/zsh/site-functions/_zev"
"$zev" generate fish >"$share/fish/vendor_completions.d/zev.fish"
[ -n "$scdoc" ] || exit 0
"$zev" generate man | "$scdoc" >"$share/man/man1/zev.1"
for verb in $("$zev" generate verbs); do
  "$zev" generate man "$verb" | "$scdoc" >"$share/man/man1/zev-$verb.1"
done
