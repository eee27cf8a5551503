# Completion of statedb for bash: options and files. It is installed where bash-completion finds
# it; otherwise, source it.

_statedb() {
   local word=$2 before=$3
   COMPREPLY=()
   case $before in
      --quiet | --notes | --recover | --version | --help) ;;
      --sync)
         mapfile -t COMPREPLY < <(compgen -W "always interval never" -- "$word")
         return
         ;;
      --owner)
         mapfile -t COMPREPLY < <(compgen -u -- "$word")
         return
         ;;
      --*) return ;; # bash offers files
   esac
   mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null |
      sed -n 's/^  \(--[a-z0-9-]*\).*/\1/p')" -- "$word")
   [ ${#COMPREPLY[@]} -ne 1 ] || COMPREPLY[0]+=' '
}

complete -o nospace -o default -F _statedb statedb
