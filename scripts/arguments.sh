# shellcheck shell=bash
# Sourced by the other scripts, in the root of the tree and before anything is done.

# take_arguments NAME MOST "$@": --help prints the comment at the head of script NAME; any option, and more than MOST
# arguments, end the script.
take_arguments() {
  local script=$1 most=$2 argument
  shift 2
  for argument in "$@"; do
    case "$argument" in
      -h | --help)
        sed -n '2,/^[^#]/{/^#/s/^# \{0,1\}//p}' "$script"
        exit 0
        ;;
      -*)
        echo "$script: unknown option $argument (try --help)" >&2
        exit 2
        ;;
    esac
  done
  [ $# -le "$most" ] && return
  echo "$script: too many arguments (try --help)" >&2
  exit 2
}
