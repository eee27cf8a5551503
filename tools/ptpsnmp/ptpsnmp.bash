# Completion of ptpsnmp for bash: options, sockets, and the roots of the server. It is installed
# where bash-completion finds it; otherwise, source it.

_ptpsnmp() {
   local word=$2 before=$3 socket='' i
   COMPREPLY=()
   case $before in
      --root)
         for ((i = 1; i < COMP_CWORD; i++)); do
            [ "${COMP_WORDS[i]}" != --socket ] || socket=${COMP_WORDS[i + 1]}
         done
         local line="ptpstate get ${socket:+--socket $socket }$word"
         mapfile -t COMPREPLY < <(ptpstate complete -- "$line" "${#line}" "$word" 2>/dev/null)
         return
         ;;
      --socket | --agentx) return ;; # bash offers files
   esac
   mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null |
      sed -n 's/^  \(--[a-z0-9-]*\).*/\1/p')" -- "$word")
   [ ${#COMPREPLY[@]} -ne 1 ] || COMPREPLY[0]+=' '
}

complete -o nospace -o default -F _ptpsnmp ptpsnmp
