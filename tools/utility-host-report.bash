# bash completion for utility-host-report. What there is to complete stands in its own --help.
_utility_host_report() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local help words
  help=$("$1" --help 2>/dev/null) || return
  case $previous in
    -o | --output)
      # The columns of the sections that were named, or of all, after those that are there already.
      local named=" ${COMP_WORDS[*]:1} "
      words=$(awk -v named="$named" '
        /^[a-z]/ { section = $1 }
        /^    [A-Z]/ { all = all " " $1; if (index(named, " " section " ")) some = some " " $1 }
        END { print some == "" ? all : some }' <<<"$help")
      local before=${current%"${current##*[,+]}"}
      COMPREPLY=($(compgen -P "$before" -W "$words" -- "${current#"$before"}"))
      compopt -o nospace
      return
      ;;
    --protocol) words="tcp tcp4 tcp6 udp udp4 udp6" ;;
    -u | --user) words=$(compgen -u) ;;
    --pid) words=$(cd /proc && printf '%s\n' [0-9]*) ;;
    -p | --port | -w | --watch | --name) return ;;
    *)
      if [[ $current == -* ]]; then
        words=$(grep -oE -e '--[a-z]+ ' <<<"$help")
      else
        words=$(awk '/^[a-z]/ { print $1 }' <<<"$help")
      fi
      ;;
  esac
  COMPREPLY=($(compgen -W "$words" -- "$current"))
}
complete -F _utility_host_report utility-host-report
