#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# shellcheck disable=SC2016
# The manual page and the completions against the help that they are made from.
# Usage: help_pages_test.sh TQTORTHO PAGES
set -uo pipefail
tqtortho=$1 pages=$(readlink -f "$2")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
failed=0
same() {  # WHAT WANTED GOT
  [ "$2" = "$3" ] && return
  echo "FAILED: $1"; diff <(echo "$2") <(echo "$3") | sed 's/^/  /'
  failed=1
}
names() { sed -nE 's/^  (-[-a-z0-9,]+).*/\1/p' | tr ',' '\n' | sort; }

# What the help lists, the page lists, command by command, and nothing else.
commands=$("$tqtortho" --help | sed -n '/^Subcommands:/,$p' | sed -nE 's/^  ([a-z-]+) .*/\1/p')
[ "$(wc -w <<<"$commands")" -ge 10 ] || { echo "FAILED: only found commands: $commands"; failed=1; }
sed -e 's/\\f[BIR]//g; s/\\-/-/g' "$pages/tqtortho.1" >"$dir/plain"
same "commands of the page" "$commands" "$(sed -n 's/^\.SS //p' "$dir/plain")"
for command in $commands; do
  awk -v c="$command" '/^\.S[SH]/ {on = $0 == ".SS " c} on' "$dir/plain" >"$dir/section"
  same "page: options of $command" "$("$tqtortho" "$command" --help | names)" \
    "$(grep -A1 '^\.TP' "$dir/section" | sed -nE 's/^(-.*)/\1/p' | grep -oE -- '(^|[ ,])--?[a-z][-a-z0-9]*' | tr -d ' ,' | sort)"
done

# Made anew it is the same page; the tools that read it find nothing to complain about.
date=$(sed -nE '1s/.*"([0-9]{4}-[0-9]{2}-[0-9]{2})".*/\1/p' "$pages/tqtortho.1")
same "page made again" "$(<"$pages/tqtortho.1")" "$("$tqtortho" help-pages man --date "$date")"
if command -v man >/dev/null; then
  same "man --warnings" "" "$(MANWIDTH=80 man --warnings -E UTF-8 -l "$pages/tqtortho.1" 2>&1 >/dev/null)"
fi
if command -v mandoc >/dev/null; then
  same "mandoc -Tlint" "" "$(mandoc -Tlint -W warning "$pages/tqtortho.1" 2>&1)"
fi

# bash: the words before the cursor, as the shell would hand them over.
cd "$dir" && mkdir -p "dsm dir" && touch "dsm dir/a.tif" dsm.tif
bash_offers() {
  bash -c 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tqtortho; printf "%s\n" "${COMPREPLY[@]}"' \
    "$pages/tqtortho" "$@" | sort | xargs -d '\n'
}
same "bash: commands" "$(sort <<<"$commands" | xargs)" "$(bash_offers tqtortho '')"
same "bash: options of the command itself" "--help --version" "$(bash_offers tqtortho -)"
same "bash: choices" "bilinear nearest" "$(bash_offers tqtortho run --quiet --resampling '')"
same "bash: choices after an equals sign" "bilinear" "$(bash_offers tqtortho run --resampling = b)"
same "bash: files" "dsm dir dsm.tif" "$(bash_offers tqtortho run --dsm ds)"
same "bash: directories" "dsm dir" "$(bash_offers tqtortho run --odm ds)"
same "bash: a number has none" "" "$(bash_offers tqtortho run --gsd '')"
same "bash: files of a positional" "dsm dir dsm.tif" "$(bash_offers tqtortho self-test ds)"
for command in $commands; do
  same "bash: options of $command" "$("$tqtortho" "$command" --help | names | grep -- -- | xargs)" \
    "$(bash_offers tqtortho "$command" -)"
done

if command -v fish >/dev/null; then
  fish_offers() {
    HOME=$dir fish -c 'source $argv[1]; complete -C $argv[2]' "$pages/tqtortho.fish" "$1" | cut -f1 | sort | xargs
  }
  same "fish: commands" "$(sort <<<"$commands" | xargs)" "$(fish_offers 'tqtortho ')"
  same "fish: choices" "bilinear nearest" "$(fish_offers 'tqtortho run --resampling ')"
  same "fish: options" "--photo-gsd --photos" "$(fish_offers 'tqtortho sample --ph')"
fi
if command -v zsh >/dev/null; then
  same "zsh: syntax" "" "$(zsh -n "$pages/_tqtortho" 2>&1)"
  # Without a terminal zsh completes nothing; what the script asks it for can still be looked at.
  zsh_asks() {
    zsh -f -c 'words=("${@:2}"); _arguments() { if [[ -z $state ]]; then state=argument line=($words[2])
      else print -rl -- "$@"; fi }; source $1' zsh "$pages/_tqtortho" "$@"
  }
  same "zsh: options of run" "$("$tqtortho" run --help | names | grep -- -- | xargs)" \
    "$(zsh_asks tqtortho run | grep -oE '^--[a-z0-9-]+' | sort | xargs)"
  same "zsh: choices" 1 "$(zsh_asks tqtortho run | grep -c '^--resampling=.*:TEXT:(nearest bilinear)$')"
fi
exit $failed
