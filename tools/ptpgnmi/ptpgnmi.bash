# Completion of ptpgnmi for bash: its options. It is installed where bash-completion finds it;
# otherwise, source it.

_ptpgnmi() {
   local word=$2 before=$3
   COMPREPLY=()
   case $before in
      --socket | --tls-* | --listen | --subscribers | --paths | --gather) return ;; # bash offers files
   esac
   mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null |
      sed -n 's/^  \(--[a-z0-9-]*\).*/\1/p')" -- "$word")
   [ ${#COMPREPLY[@]} -ne 1 ] || COMPREPLY[0]+=' '
}

complete -o nospace -o default -F _ptpgnmi ptpgnmi
