# bash completion for quenctl: subcommands, options, and the control service's parameter names.
# Installed as share/bash-completion/completions/quenctl.
# shellcheck disable=SC2207  # the usual completion idiom; the words hold no blanks

_quenctl() {
    local cur prev cmd i
    cur="${COMP_WORDS[COMP_CWORD]}"
    prev="${COMP_WORDS[COMP_CWORD-1]}"
    local gets="smart_charge_enable smart_charge_feature smart_charging vnupd_config"
    local sets="batt_status close_scheme dbg_asw_aswell_add ichg_limit ichg_ratio \
smart_charge_enable smart_charge_support soc_control vterm_dec"

    if [[ "$prev" == "--root" || "$prev" == "--plot" ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
    fi
    # The subcommand: the first word that is not an option or the value of --root.
    cmd=""
    for ((i = 1; i < COMP_CWORD; i++)); do
        case "${COMP_WORDS[i]}" in
            --root) ((i++)) ;;
            -*) ;;
            *) cmd="${COMP_WORDS[i]}"; break ;;
        esac
    done
    case "$cmd" in
        "")
            COMPREPLY=($(compgen -W "get set call status inspect --root --help --version" -- "$cur")) ;;
        get)
            [[ "$prev" == get ]] && COMPREPLY=($(compgen -W "$gets" -- "$cur")) ;;
        set)
            [[ "$prev" == set ]] && COMPREPLY=($(compgen -W "$sets" -- "$cur")) ;;
        call)
            [[ "$prev" != call ]] && COMPREPLY=($(compgen -W "--s8" -- "$cur")) ;;
        status)
            COMPREPLY=($(compgen -W "--json --watch" -- "$cur")) ;;
        inspect)
            COMPREPLY=($(compgen -W "--json --plot" -- "$cur")) ;;
    esac
}
complete -F _quenctl quenctl
