# What `--help` shows, else a file.
_morvellacinto() {
    mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null | sed -nE \
        's/^ +(-[a-z],)?(--[a-z-]+).*/\2/p; s/^([a-z][a-z-]*)$/\1/p; s/^    ([a-z-]+)  +.*/\1/p')" -- "$2")
}
complete -o default -F _morvellacinto morvellacinto morvellacinto-service
