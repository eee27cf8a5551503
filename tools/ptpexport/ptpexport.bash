# Completion of ptpexport for bash: options and files. It is installed where bash-completion finds
# it; otherwise, source it.

_ptpexport() {
   local word=$2 before=$3
   COMPREPLY=()
   case $before in
      --version | --help) ;;
      --*) return ;; # bash offers files
   esac
   mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null |
      sed -n 's/^  \(--[a-z0-9-]*\).*/\1/p')" -- "$word")
   [ ${#COMPREPLY[@]} -ne 1 ] || COMPREPLY[0]+=' '
}

complete -o nospace -o default -F _ptpexport ptpexport
