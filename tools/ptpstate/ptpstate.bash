# Completion of ptpstate for bash: commands, options, types of the modules, and paths of the server
# that --socket or PTPSTATE_SOCKET names. It is installed where bash-completion finds it; otherwise,
# source it.

_ptpstate() {
   # $2 is the word that bash will replace: it is aware of quotes, and breaks words at ':' and '='.
   mapfile -t COMPREPLY < <(
      "$1" complete -- "$COMP_LINE" "$COMP_POINT" "$2" 2>/dev/null
   )
}

# Without candidates, bash offers files. Complete candidates end with a blank.
complete -o nospace -o default -F _ptpstate ptpstate
