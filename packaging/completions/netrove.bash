# Completion for bash, made by 'netrove help bash'. Change the tables of the command line instead.
_netrove() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
        get | save | send | batch | proxy | describe | demo | help)
            command=${COMP_WORDS[i]}
            break
            ;;
        esac
    done
    COMPREPLY=()
    case $before in
    --method | -X)
        return
        ;;
    --field | -H)
        return
        ;;
    --remove-field)
        return
        ;;
    --body | -d)
        return
        ;;
    --body-file)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    --stream-file | -T)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    --buffer-size)
        return
        ;;
    --output | -o)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    --follow)
        return
        ;;
    --jobs | -j)
        return
        ;;
    --retry)
        return
        ;;
    --retry-wait)
        return
        ;;
    --retry-max-wait)
        return
        ;;
    --shard)
        return
        ;;
    --journal)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    --user | -u)
        return
        ;;
    --password)
        return
        ;;
    --auth)
        mapfile -t COMPREPLY < <(compgen -P "${word%"${word##*,}"}" -W 'basic digest ntlm negotiate' -- "${word##*,}")
        return
        ;;
    --proxy-user)
        return
        ;;
    --proxy-password)
        return
        ;;
    --proxy-auth)
        mapfile -t COMPREPLY < <(compgen -P "${word%"${word##*,}"}" -W 'basic digest ntlm negotiate' -- "${word##*,}")
        return
        ;;
    --proxy | -x)
        mapfile -t COMPREPLY < <(compgen -W 'auto none' -- "$word")
        return
        ;;
    --connect-timeout)
        return
        ;;
    --response-timeout)
        return
        ;;
    --data-timeout)
        return
        ;;
    --max-time | -m)
        return
        ;;
    --ca-file)
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
        return
        ;;
    --debug)
        return
        ;;
    --color)
        mapfile -t COMPREPLY < <(compgen -W 'auto always never' -- "$word")
        return
        ;;
    esac
    case $command in
    get)
        [[ $word == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W '--field -H --remove-field --simple --output -o --include -i --consumer --no-decode --location -L --follow --no-follow --fail -f --user -u --password --auth --proxy-user --proxy-password --proxy-auth --proxy -x --connect-timeout --response-timeout --data-timeout --max-time -m --ca-file --no-verify -k --no-verify-name --progress --no-progress --verbose -v --debug --json-errors --color --help -h' -- "$word")
        ;;
    save)
        [[ $word == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W '--field -H --remove-field --simple --force --consumer --no-decode --location -L --follow --no-follow --fail -f --user -u --password --auth --proxy-user --proxy-password --proxy-auth --proxy -x --connect-timeout --response-timeout --data-timeout --max-time -m --ca-file --no-verify -k --no-verify-name --progress --no-progress --verbose -v --debug --json-errors --color --help -h' -- "$word")
        ;;
    send)
        [[ $word == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W '--method -X --field -H --remove-field --body -d --body-file --stream-file -T --buffer-size --chunked --simple --output -o --include -i --consumer --no-decode --location -L --follow --no-follow --fail -f --user -u --password --auth --proxy-user --proxy-password --proxy-auth --proxy -x --connect-timeout --response-timeout --data-timeout --max-time -m --ca-file --no-verify -k --no-verify-name --progress --no-progress --verbose -v --debug --json --json-errors --color --help -h' -- "$word")
        ;;
    batch)
        [[ $word == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W '--field -H --remove-field --force --no-decode --location -L --follow --no-follow --fail -f --no-fail --create-dirs --jobs -j --retry --retry-wait --retry-max-wait --retry-unsafe --shard --journal --no-journal --dry-run --user -u --password --auth --proxy-user --proxy-password --proxy-auth --proxy -x --connect-timeout --response-timeout --data-timeout --max-time -m --ca-file --no-verify -k --no-verify-name --progress --no-progress --json-errors --color --help -h' -- "$word")
        ;;
    proxy)
        [[ $word == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W '--json --show-password --json-errors --color --help -h' -- "$word")
        ;;
    describe)
        [[ $word == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W '--json --json-errors --color --help -h' -- "$word")
        ;;
    demo)
        [[ $word == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W '--json-errors --color --help -h' -- "$word")
        ;;
    help)
        [[ $word == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W '--json-errors --color --help -h' -- "$word")
        [[ $word == -* ]] ||
            mapfile -t COMPREPLY < <(compgen -W 'get save send batch proxy describe demo help request response transfers credentials limits tls output exit environment examples all man bash zsh fish' -- "$word")
        ;;
    *)
        mapfile -t COMPREPLY < <(compgen -W 'get save send batch proxy describe demo help --json-errors --color --version --help -h' -- "$word")
        ;;
    esac
}
complete -o default -F _netrove netrove
