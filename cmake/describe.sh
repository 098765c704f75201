#!/bin/sh
# Writes manual pages and completions as they are installed below share/, from what the program
# says of itself: describe.sh PROGRAM SCDOC DIRECTORY. Without scdoc (empty) no pages.
set -eu
program=$1 scdoc=$2 share=$3
name=$(basename "$program")
mkdir -p "$share/man/man1" "$share/bash-completion/completions" "$share/zsh/site-functions" \
  "$share/fish/vendor_completions.d"
"$program" generate bash >"$share/bash-completion/completions/$name"
"$program" generate zsh >"$share/zsh/site-functions/_$name"
"$program" generate fish >"$share/fish/vendor_completions.d/$name.fish"
[ -n "$scdoc" ] || exit 0
"$program" generate man | "$scdoc" >"$share/man/man1/$name.1"
for verb in $("$program" generate verbs); do
  "$program" generate man "$verb" | "$scdoc" >"$share/man/man1/$name-$verb.1"
done
