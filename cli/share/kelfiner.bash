# bash completion for kelfiner
_kelfiner()
{
    local cur prev command
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD-1]}
    command=${COMP_WORDS[1]}
    local commands="process analyse learn info presets demo licence help"
    local learning="--estimator --threshold --filter-length --preset"
    local correction="--target --target-filter --reference --smoothing --gain --emphasis
        --max-boost --amount --range --lift-empty-bands --impose-target --loudness --ceiling"
    local run="--report --jobs --quiet --progress --force --recursive"

    if [[ $COMP_CWORD -eq 1 ]]; then
        COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
        return
    fi
    case $prev in
        --preset)
            # Preset names (they hold spaces: one a line), then preset files.
            local IFS=$'\n'
            local names
            names=$(kelfiner presets 2> /dev/null | sed -E 's/ +(factory|user) +target .*//')
            COMPREPLY=($(compgen -W "$names" -- "$cur") $(compgen -f -X '!*.xml' -- "$cur") $(compgen -d -- "$cur"))
            return ;;
        --target) COMPREPLY=($(compgen -W "automatic music music-dark music-less-harsh speech custom" -- "$cur")); return ;;
        --estimator) COMPREPLY=($(compgen -W "spectrum frames" -- "$cur")); return ;;
        --loudness) COMPREPLY=($(compgen -W "match off -16 -23" -- "$cur")); return ;;
        --ceiling) COMPREPLY=($(compgen -W "-1 off" -- "$cur")); return ;;
        --bits) COMPREPLY=($(compgen -W "16 24 32f" -- "$cur")); return ;;
        --format) COMPREPLY=($(compgen -W "wav flac aiff" -- "$cur")); return ;;
        --target-filter|--save-filter) COMPREPLY=($(compgen -f -X '!*.filter' -- "$cur") $(compgen -d -- "$cur")); return ;;
        --plot) COMPREPLY=($(compgen -f -X '!*.png' -- "$cur") $(compgen -d -- "$cur")); return ;;
        --report) COMPREPLY=($(compgen -f -X '!*.json' -- "$cur") $(compgen -d -- "$cur")); return ;;
        --threshold|--filter-length|--gain|--emphasis|--max-boost|--amount|--range|--smoothing|--jobs) return ;;
    esac
    if [[ $cur == -* ]]; then
        case $command in
            process) COMPREPLY=($(compgen -W "-o --output $learning $correction $run --save-filter --plot --live --bits --format --help" -- "$cur")) ;;
            analyse|analyze) COMPREPLY=($(compgen -W "$learning $correction $run --help" -- "$cur")) ;;
            learn) COMPREPLY=($(compgen -W "-o --output $learning --force --quiet --help" -- "$cur")) ;;
            demo) COMPREPLY=($(compgen -W "-o --output --target --force --help" -- "$cur")) ;;
            *) COMPREPLY=($(compgen -W "--help" -- "$cur")) ;;
        esac
        return
    fi
    case $command in
        help) COMPREPLY=($(compgen -W "$commands" -- "$cur")) ;;
        licence|license) [[ $COMP_CWORD -eq 2 ]] && COMPREPLY=($(compgen -W "status authorise deauthorise" -- "$cur")) || COMPREPLY=($(compgen -f -- "$cur")) ;;
        *) COMPREPLY=($(compgen -f -- "$cur")) ;;
    esac
}
complete -o filenames -F _kelfiner kelfiner
