# Completion of contentsctl's command line. Commands and options are read from its help; storages
# are queried from the service.

_contentsctl_commands() {
    contentsctl --help | sed -n '/^Commands:/,/^$/s/^  \([a-z][a-z]*\) .*/\1/p'
}

_contentsctl_options() {
    contentsctl --help | sed -n 's/^  \(-[a-z], \)\{0,1\}\(--[a-z-]*\).*/\2/p'
}

# The storages' labels, or ids where there is no label. "$@": options that locate the service.
_contentsctl_storages() {
    contentsctl "$@" --json storages | sed -n \
        -e 's/.*"partitionLabel":"\([^"][^"]*\)".*/\1/p' \
        -e '/"partitionLabel":""/s/.*"id":"\([^"][^"]*\)".*/\1/p'
}

# Offers the lines of standard input that start with what has been typed.
_contentsctl_offer() {
    local line
    while IFS= read -r line; do
        [[ $line == "$cur"* ]] && COMPREPLY+=("$(printf %q "$line")")
    done
}

_contentsctl_argument() { # _contentsctl_argument COMMAND PLACE OPTION...
    case $1-$2 in
        count-0 | query-0 | fetch-0 | browse-0)
            _contentsctl_offer < <(_contentsctl_storages "${@:3}" 2>/dev/null)
            ;;
        count-1 | query-1 | fetch-1) _contentsctl_offer <<<$'photo\nvideo\nmusic' ;;
        register-*) _filedir ;;
    esac
}

_contentsctl() {
    local cur prev words cword i command='' place=0 where=()
    _init_completion -n := || return
    for ((i = 1; i < cword; i++)); do
        case ${words[i]} in
            -a | --address | -b | --bus) where+=("${words[i]}" "${words[++i]}") ;;
            --address=* | --bus=*) where+=("${words[i]}") ;;
            -n | --limit | -t | --timeout | -w | --wait) ((++i)) ;;
            -*) ;;
            *) if [ -z "$command" ]; then command=${words[i]}; else ((++place)); fi ;;
        esac
    done
    case $prev in
        -b | --bus) _contentsctl_offer <<<$'session\nsystem'; return ;;
        -a | --address | -n | --limit | -t | --timeout | -w | --wait) return ;;
    esac
    if [[ $cur == -* ]]; then
        _contentsctl_offer < <(_contentsctl_options)
    elif [ -z "$command" ]; then
        _contentsctl_offer < <(_contentsctl_commands)
    else
        _contentsctl_argument "$command" "$place" "${where[@]}"
    fi
} && complete -F _contentsctl contentsctl
