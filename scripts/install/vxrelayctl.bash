# bash completion of vxrelayctl: its commands, their words and the options.
_vxrelayctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} words=""
  local first="" second="" i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --agent | --control | --cell | -i | --interval | --pcap | --index | --direction | --vti | --vlan | --port) ((i++)) ;;
      -*) ;;
      *) if [ -z "$first" ]; then first=${COMP_WORDS[i]}; elif [ -z "$second" ]; then second=${COMP_WORDS[i]}; fi ;;
    esac
  done
  case $first in
    "") words="show counters clear state trace --agent --control --cell --help --version" ;;
    show) [ -z "$second" ] && words="interface arp --json" || words="--json" ;;
    counters) words="--all --interval --json" ;;
    clear) [ -z "$second" ] && words="vxlan varp" ;;
    state)
      case $second in
        "") words="get apply list" ;;
        get | list) words="--json" ;;
        apply) words="--strict"; COMPREPLY=($(compgen -f -- "$cur")) ;;
      esac ;;
    trace)
      case $second in
        "") words="set decode packet" ;;
        decode) COMPREPLY=($(compgen -f -- "$cur")); return ;;
        packet) words="--pcap --index --direction --vti --vlan --port --json" ;;
      esac ;;
  esac
  COMPREPLY+=($(compgen -W "$words" -- "$cur"))
}
complete -F _vxrelayctl vxrelayctl
