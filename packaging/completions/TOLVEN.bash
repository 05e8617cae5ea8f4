# bash completion for TOLVEN

# What an archive holds below the directory that has been typed, one step deep.
_TOLVEN_names() {
  local step='
    { if (sub(/^[^ ]+ +[0-9]+ +[0-9][0-9] [A-Z][a-z][a-z] [0-9]+ [0-9][0-9]:[0-9][0-9] /, "")) ok = 1
      else ok = sub(/^[^ ]+ +[0-9]+ +[A-Z][a-z][a-z] [0-9][0-9] [0-9][0-9]:[0-9][0-9]   /, "") }
    !ok || index($0, ENVIRON["TYPED"]) != 1 { next }
    { sub(/\|.*/, ""); rest = substr($0, length(ENVIRON["TYPED"]) + 1); cut = index(rest, "/")
      name = cut ? ENVIRON["TYPED"] substr(rest, 1, cut) : $0
      if (!seen[name]++) print name }'
  LC_ALL=C TOLVEN -tf "$1" 2>/dev/null | LC_ALL=C TYPED=$2 awk "$step"
}

_TOLVEN() {
  local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command= archive= word i name
  local sign='-key -pwd -H -y -crl -manifest -tsaurl -proxy -L' verify='-V -key -pwd -crl -manifest -L'
  local long=' -X -backup -lower -flat -xnopvalid -V -v -e -g -h -j -n -T -P -p -C -f -A -R -H -key -L -pwd -y -manifest'
  long+=' -crl -F -tsaurl -proxy '
  COMPREPLY=()
  for ((i = 1; i < ${#COMP_WORDS[@]}; i++)); do
    word=${COMP_WORDS[i]}
    [[ $word == -* && $i -ne $COMP_CWORD ]] || continue
    if [[ $long != *" $word "* ]]; then
      name=${word//[^cdxtamlMS]/}
      # S and M are commands only without another one.
      [[ $name == *[cdxtaml]* ]] && name=${name//[MS]/}
      [[ -z $name ]] || command=${name: -1}
    fi
    [[ $word == -f || ($long != *" $word "* && $word == *f*) ]] && archive=${COMP_WORDS[i + 1]:-}
  done
  if [[ $previous == -* && $long != *" $previous "* && $previous == *f* ]]; then previous=-f; fi
  case $previous in
    -f)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$cur"; compgen -f -X '!*.[vV][rR][aA]' -- "$cur")
      return
      ;;
    -C | -R)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$cur")
      return
      ;;
    -A | -X | -T | -manifest | -crl | -L)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      return
      ;;
    -key)
      mapfile -t COMPREPLY < <(cd "${SECUDIR:-$HOME/.tolven/sec}" 2>/dev/null && compgen -f -X '!*.pse' -- "$cur")
      COMPREPLY=("${COMPREPLY[@]%.pse}")
      return
      ;;
    -H | -y)
      mapfile -t COMPREPLY < <(compgen -W 'SHA256 SHA384 SHA512' -- "$cur")
      return
      ;;
    -p | -pwd | -tsaurl | -proxy | -F) return ;;
  esac
  if [[ $cur == -* ]]; then
    case $command in
      '') word='-cf -crf -crSf -af -tf -tVf -xf -xVf -df -dVf -mf -l -Sf -M' ;;
      c) word="-v -n -e -A -X -T -C -P -p -V $sign" ;;
      a) word="-v -n -e -A -X -T -P -p -V $sign" ;;
      t) word="-v -n -e -g -A -R -flat $verify" ;;
      x) word="-v -n -e -g -h -j -A -R -flat -lower -xnopvalid $verify" ;;
      d) word="-v -n -e -g -A -flat $verify" ;;
      m) word='-v -n -e' ;;
      l) word='-e -A -X' ;;
      S) word="-v -e $sign" ;;
      M) word="-v -e $verify" ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$word" -- "$cur")
    return
  fi
  case $command in
    t | x | d)
      archive=${archive//\\/}
      [[ $archive == '~/'* ]] && archive=$HOME/${archive#'~/'}
      [[ -f ${archive:=DEFAULT.VRA} ]] || return
      mapfile -t COMPREPLY < <(_TOLVEN_names "$archive" "$cur")
      [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]] && compopt -o nospace
      for i in "${!COMPREPLY[@]}"; do printf -v "COMPREPLY[$i]" %q "${COMPREPLY[i]}"; done
      ;;
    c | a | l)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      ;;
  esac
}

complete -F _TOLVEN TOLVEN
