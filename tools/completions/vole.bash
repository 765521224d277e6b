# shellcheck shell=bash
# Completion of vole(1) for bash.

_vole() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    # "--option=value" comes as three words, of which the last may be missing.
    local joined=
    if [[ $word == = ]]; then
        word='' joined=1
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]} joined=1
    fi
    local options='-h --help --version' values kind=words
    if [[ ${COMP_WORDS[1]} == sig && $COMP_CWORD -gt 1 ]]; then
        local reading=' --max-size --max-member --max-total --max-members --max-depth --max-ratio --time-limit --shallow
            --incomplete' words='check compile diff explain find list make merge stat test verify' at=2
        options='-h --help'
        if [[ ${COMP_WORDS[2]} == make && $COMP_CWORD -gt 2 ]]; then
            at=3 words='md5 checksum'
        fi
        case ${COMP_WORDS[at]} in
            md5) options+=" --members --member --text --name --append $reading" ;;
            checksum) options+=" --members --member --text --name --append --from --length --not-in $reading" ;;
            explain) options+=" --hdb --chk -d --patterns --name --json $reading" ;;
            check) options+=' --strict --json --names' ;;
            compile) options+=' -o --output --strict' ;;
            diff | stat) options+=' --json' ;;
            find) options+=' -n --places --json --name --md5 --size --text --kind' ;;
            list) options+=' -n --places --json' ;;
            merge) options+=' -o --output --one-name' ;;
            test) options+=" --clean --infected --manifest --json $reading" ;;
        esac
        values="$words $options"
        if [[ $COMP_CWORD -gt $at && $before == --from ]]; then
            values='start end entry section:0'
        elif [[ $COMP_CWORD -gt $at ]]; then
            if [[ $word == -* ]]; then values=$options; else kind='file'; fi
        fi
    elif [[ ${COMP_WORDS[1]} =~ ^(scan|inspect)$ && $COMP_CWORD -gt 1 ]]; then
        options='-h --help -d --patterns --config --shallow --json --max-size --max-member --max-total --max-members
            --max-depth --max-ratio --time-limit'
        if [[ ${COMP_WORDS[1]} == inspect ]]; then
            options+=' --extract --normalised'
        else
            options+=' --files-from -0 --null --exclude --one-file-system -j --jobs --cache --all-matches --limits
                --incomplete -i --infected --no-summary --no-progress --debug --host-view --dump
                --isolate --no-isolate'
        fi
        case " ${COMP_WORDS[*]:2:COMP_CWORD-2} " in *' -- '*) before=-- ;; esac
        case $before in
            -d | --patterns | --dump | --extract) kind=directory ;;
            --files-from | --config | --cache) kind='file' ;;
            --incomplete) values='error ok' ;;
            --isolate) if [[ $joined ]]; then values='auto require no'; else kind='file'; fi ;;
            -j | --jobs) values=$(seq "$(nproc)") ;;
            --max-size | --max-member | --max-total) values='0 64M 256M 1G 2G' ;;
            --exclude | --max-members | --max-depth | --max-ratio | --time-limit) values= ;;
            --) kind='file' ;;
            *) if [[ $word == -* ]]; then values=$options; else kind='file'; fi ;;
        esac
    else
        values="scan inspect sig $options"
    fi
    if [[ $kind == words ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$values" -- "$word")
    else
        compopt -o filenames 2>/dev/null # Tests call this outside a completion.
        mapfile -t COMPREPLY < <(compgen -A "$kind" -- "$word")
    fi
}
complete -F _vole vole
