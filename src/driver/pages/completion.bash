# shellcheck shell=bash
# The part of bash completion that does not depend on the options: the build puts the table that
# _quorix_fact reads in front of it. It needs nothing but bash 4.

# Names that end in one of the suffixes, and folders; any name if there is none of these.
_quorix_files() {
  local suffix found
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -d -- "$cur")
  for suffix; do
    mapfile -t found < <(compgen -f -X "!*.$suffix" -- "$cur"; compgen -f -X "!*.${suffix^^}" -- "$cur")
    COMPREPLY+=("${found[@]}")
  done
  if [ ${#COMPREPLY[@]} -eq 0 ] || [ $# -eq 0 ]; then mapfile -t COMPREPLY < <(compgen -f -- "$cur"); fi
}

_quorix_words() { mapfile -t COMPREPLY < <(compgen -W "$*" -- "$cur"); }

_quorix() {
  local cur=${COMP_WORDS[COMP_CWORD]} command='' fact='' word i left=0 taken=0 place=0
  COMPREPLY=()
  [ "$cur" = = ] && cur=
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    case $word in
      =) ;;
      -[!0-9.]*)
        _quorix_fact "$command $word"
        left=${fact%% *} taken=0
        ;;
      *)
        if ((left > 0)); then
          left=$((left - 1)) taken=$((taken + 1))
        elif [ -z "$command" ]; then
          command=$word
        else
          place=$((place + 1))
        fi
        ;;
    esac
  done
  case $cur in
    -[!0-9.]* | -)
      _quorix_fact "$command options"
      # shellcheck disable=SC2086
      _quorix_words ${fact#* }
      return
      ;;
  esac
  if ((left == 0)); then
    taken=0
    _quorix_fact "$command $((place + 1))"
  fi
  # shellcheck disable=SC2086
  set -- ${fact#* }
  case $1 in
    files) shift && _quorix_files "$@" ;;
    folders) compopt -o filenames 2>/dev/null && mapfile -t COMPREPLY < <(compgen -d -- "$cur") ;;
    words) if ((taken == 0)); then shift && _quorix_words "$@"; else _quorix_files; fi ;;
  esac
} && complete -F _quorix quorix
