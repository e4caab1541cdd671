# shellcheck shell=sh
# Makes the installation that this file lies in ready for use, wherever it has been moved to:
# programs, data, manual pages, completion. Source it (". PREFIX/share/quorix/setup.sh") in bash, zsh
# or another Bourne shell; what it sets comes first, once, however often it is sourced.
#
# A shell other than bash and zsh does not say which file it reads. On Linux its open files tell;
# elsewhere set QUORIX_PREFIX before.

_quorix_here=
if [ -n "${QUORIX_PREFIX-}" ]; then
  _quorix_here=$QUORIX_PREFIX/share/quorix/setup.sh
elif [ -n "${BASH_VERSION-}" ]; then
  # shellcheck disable=SC3028,SC3054
  _quorix_here=${BASH_SOURCE[0]}
elif [ -n "${ZSH_VERSION-}" ]; then
  eval '_quorix_here=${(%):-%x}'
elif [ -r /proc/self/stat ]; then
  read -r _quorix_pid _quorix_file </proc/self/stat
  for _quorix_file in /proc/self/fd/*; do
    _quorix_file=$(readlink "/proc/$_quorix_pid/fd/${_quorix_file##*/}") || continue
    case $_quorix_file in */share/quorix/setup.sh) _quorix_here=$_quorix_file ;; esac
  done
  unset _quorix_pid _quorix_file
fi
_quorix_prefix=$(CDPATH='' cd -- "${_quorix_here%/*}/../.." >/dev/null 2>&1 && pwd) || _quorix_prefix=
unset _quorix_here
if [ ! -d "$_quorix_prefix/share/quorix/xray" ]; then
  unset _quorix_prefix
  echo "setup.sh: cannot tell where it is: set QUORIX_PREFIX to the installation's folder" >&2
  return 1
fi

# LIST without ENTRY, colons between.
_quorix_without() {
  set -- ":$1:" "$2"
  while case $1 in *":$2:"*) true ;; *) false ;; esac do
    set -- "${1%%":$2:"*}:${1#*":$2:"}" "$2"
  done
  set -- "${1#:}"
  printf '%s' "${1%:}"
}

_quorix_rest=$(_quorix_without "${PATH-}" "$_quorix_prefix/bin")
export PATH="$_quorix_prefix/bin${_quorix_rest:+:$_quorix_rest}"
# An empty place in this list stands for the system's own pages.
_quorix_rest=$(_quorix_without "${MANPATH-}" "$_quorix_prefix/share/man")
export MANPATH="$_quorix_prefix/share/man:$_quorix_rest"
export ZENVI_DATA="$_quorix_prefix/share/quorix"

# shellcheck disable=SC3028,SC3054
if [ -n "${BASH_VERSION-}" ] && [ "${BASH_VERSINFO[0]}" -ge 4 ]; then
  # shellcheck source=/dev/null
  . "$_quorix_prefix/share/bash-completion/completions/quorix"
elif [ -n "${ZSH_VERSION-}" ]; then
  eval '
    fpath=("$_quorix_prefix/share/zsh/site-functions" ${fpath:#$_quorix_prefix/share/zsh/site-functions})
    if (( $+functions[compdef] )); then autoload -Uz _quorix && compdef _quorix quorix; fi'
fi
unset _quorix_prefix _quorix_rest
unset -f _quorix_without
