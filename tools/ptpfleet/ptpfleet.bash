# Completion of ptpfleet for bash: its command, options and files. It is installed where
# bash-completion finds it; otherwise, source it.

_ptpfleet() {
   local word=$2 before=$3
   COMPREPLY=()
   case $before in
      --storage)
         mapfile -t COMPREPLY < <(compgen -W "file memory" -- "$word")
         return
         ;;
      --socket | --creds | --password-file | --tls-ca | --tls-cert | --tls-key) return ;; # files
   esac
   if [ "$COMP_CWORD" -eq 1 ]; then
      mapfile -t COMPREPLY < <(compgen -W "publish --help --version" -- "$word")
   else
      mapfile -t COMPREPLY < <(compgen -W "$("$1" publish --help 2>/dev/null |
         sed -n 's/^  \(--[a-z0-9-]*\).*/\1/p')" -- "$word")
   fi
   [ ${#COMPREPLY[@]} -ne 1 ] || COMPREPLY[0]+=' '
}

complete -o nospace -o default -F _ptpfleet ptpfleet
