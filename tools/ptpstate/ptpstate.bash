# Completion of ptpstate for bash: commands, options, types of the modules, and paths of the server
# that --socket or PTPSTATE_SOCKET names. Installed where bash-completion finds it; else source it.

_ptpstate() {
   # The word as bash replaces it: it knows of quotes, and breaks words at ':' and '='.
   mapfile -t COMPREPLY < <(
      "$1" complete -- "$COMP_LINE" "$COMP_POINT" "$2" 2>/dev/null
   )
}

# Without candidates, files are offered. A blank comes with the candidates that are complete.
complete -o nospace -o default -F _ptpstate ptpstate
