#!/usr/bin/env bash
# Moves an installation and sources its setup.sh twice in every shell at hand, under set -eu: it finds
# the new place, what it sets stands first and once, and it prints nothing.
# shellcheck disable=SC2016  # the texts are for other shells
# Usage: setup_in_shells.sh PREFIX NEW-PLACE
set -euo pipefail

place=$2
mv "$1" "$place"

# In the words of any Bourne shell; $1 the script, $2 the place.
inside='
set -eu
case $3 in
  clean) unset MANPATH; PATH=/usr/bin:/bin; rest=$PATH man= ;;
  filled) PATH=/usr/bin:$2/bin:/bin; MANPATH=/a:$2/share/man:; rest=/usr/bin:/bin man=/a: ;;
esac
. "$1"
. "$1"
[ "$PATH" = "$2/bin:$rest" ]
[ "$MANPATH" = "$2/share/man:$man" ]
[ "$ZENVI_DATA" = "$2/share/quorix" ]
[ "$(command -v quorix-map)" = "$2/bin/quorix-map" ]
! set | grep "^_quorix_[a-z]*="
quorix --version >/dev/null
[ "$(man -w quorix-map)" = "$2/share/man/man1/quorix-map.1" ]
[ "$(man -w ls)" != "" ]
'
in_bash='[ "$(complete -p quorix)" = "complete -F _quorix quorix" ]'
in_zsh='
[ $#fpath -eq ${#${(u)fpath}} ]
autoload -Uz compinit && compinit -u -D && [ "$_comps[quorix]" = _quorix ]'
in_zsh_late='
autoload -Uz compinit && compinit -u -D && . "$1" && [ "$_comps[quorix]" = _quorix ]'

check() {
  local output
  for before in clean filled; do
    # shellcheck disable=SC2086
    if ! output=$(env -u ZENVI_DATA -u QUORIX_PREFIX $1 "$inside$2" shell "$script" "$place" "$before" 2>&1) ||
      [ -n "$output" ]; then
      echo "setup.sh in $1, $before: $output" >&2
      exit 1
    fi
  done
}

script=$place/share/quorix/setup.sh
check "dash -c" ""
check "bash --norc -c" "$in_bash"
check "bash --norc --posix -c" "$in_bash"
check "zsh -f -c" "$in_zsh"
check "zsh -f -c" "$in_zsh_late"
cd "$place/share/quorix"
script=./setup.sh
check "dash -c" ""
check "bash --norc -c" ""
check "zsh -f -c" ""
