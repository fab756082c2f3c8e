# bash completion for quirepad

# Lines printed by "quirepad ARGS...", or nothing when it fails.
_quirepad_words()
{
    "${COMP_WORDS[0]}" "$@" 2>/dev/null
}

_quirepad()
{
    local cur=${COMP_WORDS[COMP_CWORD]}
    local command=${COMP_WORDS[1]}
    local sub=${COMP_WORDS[2]}
    local IFS=$'\n'
    COMPREPLY=()

    if ((COMP_CWORD == 1)); then
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W $'--help\n--version\n--headless' -- "$cur"))
        else
            COMPREPLY=($(compgen -W "$(_quirepad_words --commands)"$'\nhelp' -- "$cur"))
            [[ ${#COMPREPLY[@]} -eq 0 ]] && COMPREPLY=($(compgen -f -- "$cur"))
        fi
        return
    fi
    if [[ $command == help ]]; then
        ((COMP_CWORD == 2)) && COMPREPLY=($(compgen -W "$(_quirepad_words --commands)" -- "$cur"))
        return
    fi
    if ((COMP_CWORD == 2)); then
        local subcommands
        subcommands=$(_quirepad_words --subcommands "$command")
        if [[ -n $subcommands ]]; then
            COMPREPLY=($(compgen -W "$subcommands" -- "$cur"))
            return
        fi
    fi
    case $command in
    defaults)
        case $sub in
        read | write | delete)
            ((COMP_CWORD == 3)) && COMPREPLY=($(compgen -W "$(_quirepad_words defaults keys)" -- "$cur"))
            ;;
        esac
        ;;
    destinations)
        case $sub in
        set | remove | move | export)
            local position=3
            [[ $sub == export ]] && position=4
            if ((COMP_CWORD == position)) || [[ $sub == move && ${COMP_WORDS[COMP_CWORD - 1]} == --* ]]; then
                COMPREPLY=($(compgen -W "$(_quirepad_words destinations list --names)" -- "$cur"))
            elif [[ $sub == move && COMP_CWORD -eq 4 ]]; then
                COMPREPLY=($(compgen -W $'--after\n--before' -- "$cur"))
            elif [[ $sub == export || $sub == import ]]; then
                COMPREPLY=($(compgen -f -- "$cur"))
            fi
            ;;
        list)
            COMPREPLY=($(compgen -W $'--long\n--json\n--names\n--width' -- "$cur"))
            ;;
        import | add-path)
            COMPREPLY=($(compgen -f -- "$cur"))
            ;;
        esac
        ;;
    deliver)
        if ((COMP_CWORD == 2)); then
            COMPREPLY=($(compgen -W "$(_quirepad_words destinations list --names)" -- "$cur"))
        elif [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W $'--title\n--user\n--host' -- "$cur"))
        else
            COMPREPLY=($(compgen -f -- "$cur"))
        fi
        ;;
    *)
        COMPREPLY=($(compgen -f -- "$cur"))
        ;;
    esac
}

complete -F _quirepad quirepad
