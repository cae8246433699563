# bash completion of tavctl

_tavctl() {
    local cur prev words cword
    if declare -F _init_completion >/dev/null; then
        _init_completion -n = || return
    else
        cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} words=("${COMP_WORDS[@]}") cword=$COMP_CWORD
    fi

    local commands='route explain check test rule dump interests watch controller'
    local command='' i
    for ((i = 1; i < cword; i++)); do
        case " $commands " in *" ${words[i]} "*) command=${words[i]} && break ;; esac
    done
    if [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$commands --help --version" -- "$cur")
        return
    fi

    case $prev in
    -c | --config | -d | --delta | --file | --daemon | --worker | --ca | --cert | --key)
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        return
        ;;
    -X | --method)
        mapfile -t COMPREPLY < <(compgen -W 'GET HEAD POST PUT DELETE OPTIONS PATCH' -- "$cur")
        return
        ;;
    -p | --property)
        mapfile -t COMPREPLY < <(compgen -S = -W 'webserverName MaxHttpContextPoolSize MaxSecondsToWaitDuringAtomicRollout
            DefaultRequestTraceSpec disablePrivateHeaders MaxElapsedTimePerRequestInSeconds
            enableEndpointSelectionBasedOnMatchedVHost TrustedProxyEnable TrustedProxyList MaxRequestsPerDaemon ppid' -- "$cur")
        compopt -o nospace 2>/dev/null
        return
        ;;
    --status)
        [[ $command == explain ]] && return # a URL; a flag of dump
        ;;
    -H | --header | -b | --cookie | --client | --request | --repeat | --in-flight | --fail-under | --listen | --wait | --controller | \
        --timeout | --group | --group-property | --proxy | --every | --for | --trace)
        return
        ;;
    --dir)
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
        ;;
    esac

    local configuration='-c --config -d --delta -p --property'
    local request='-X --method -H --header -b --cookie --client'
    local options='--help'
    case $command in
    route) options+=" $configuration $request --explain --json --repeat --in-flight" ;;
    explain) options+=" $request --status --json --timeout --ca --cert --key --insecure" ;;
    check) options+=' --json' ;;
    test) options+=' --json --coverage --fail-under' ;;
    rule) options+=" $request --request --file --json" ;;
    dump) options+=" --status $configuration" ;;
    interests) options+=' --admin' ;;
    watch)
        options+=" $request -p --property --controller --group --group-property --wait --daemon --worker --request --every --all --for
            --trace --json --ca --cert --key --proxy"
        ;;
    controller) options+=' --dir --listen --wait --strict --json --quiet' ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    elif [[ $command == check || $command == test ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}

complete -o filenames -F _tavctl tavctl
