# bash completion for fleifeisa-host

_fleifeisa_host() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} verb='' word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in play | run | replay | report | compare | tune | batch | events | tell | db | user | scenes) verb=$word && break ;; esac
    done
    local source="--rate --idle-rate --frames --region --size --matrix --range --live --no-live --loop --profile --mask --private --tracks --least-area --shadow-test
        --no-shadow-test --split-people --no-split-people --realtime --stall-timeout --start-time --credentials --redirects --ffmpeg-option --zone --line"
    local analyzer="--analyzer --type --device --analyzer-id --bgframes --color-low --color-high --ir-low --ir-high
        --answer-timeout"
    local outputs="replies recording jsonl mot onvif tracks events video report"
    local words='' name
    COMPREPLY=()
    # bash makes words of their own of "=" and ":": what stands before an equals sign is what counts.
    if [ "$current" = = ]; then current=''; fi
    if [ "$previous" = = ]; then previous=${COMP_WORDS[COMP_CWORD - 2]}; fi
    if [ "${COMP_WORDS[COMP_CWORD]}" = = ]; then previous=${COMP_WORDS[COMP_CWORD - 1]}; fi
    for name in $outputs; do # behind jsonl= stands a file
        if [ "$previous" = "$name" ] && [ "$previous" != "$verb" ]; then previous=--out; fi
    done
    case $previous in
        --type) words="color ir auto" ;;
        --kind) words="motion zone line stopped removed scene analyzer gap clock external" ;;
        --log-format) words="text json" ;;
        --profile) words="people-outdoor traffic indoor thermal" ;;
        --tracks) words="filtered raw" ;;
        --matrix) words="bt601 bt709 bt2020" ;;
        --range) words="full limited" ;;
        --output) [ "$verb" = play ] && words=$outputs ;;
        --analyzer | --out | --replies | --config | -o) ;;
        *)
            case $verb in
                play) words="$source $analyzer --state --out --output --rotate-size --rotate-hours --rotate-keep --quiet --help" ;;
                '') words="play run replay report compare tune batch events tell db user scenes --verbose --log-format --version --help" ;;
                report) words="$source $analyzer --output --help" ;;
                run) words="--check-config --print-config --analyzer --help" ;;
                replay) words="--verify --out --output --replies --analyzer --help" ;;
                events) words="--state --camera --rule --kind --since --until --last --json --csv --what-if --days --timezone --near-misses
                    export keep unkeep delete --out --help" ;;
                compare) words="--clips --out --fail-on-change --jobs --analyzer --quiet --help" ;;
                tune) words="--clips --truth --config --camera --out --candidates --miss-weight --least-seconds --jobs --analyzer --quiet --help" ;;
                batch) words="status merge verify cancel --config --out --jobs --nice --cut --warm-up --slurm --sbatch --task-time --retry --no-merge
                    --watch --share --analyzer --quiet --help" ;;
                tell) words="--state --help" ;;
                db) words="check backup use --state --help" ;;
                user) words="add list remove password change token --state --role --camera --all-cameras --help" ;;
                scenes) words="--help" ;;
            esac
            if [[ $current != -* && -n $verb && $verb != scenes && $verb != db && $verb != user && $verb != events ]]; then
                words=''
                if [[ $verb == play || $verb == report ]] && [[ $current == scene* ]]; then
                    # A colon begins a new word in bash: only what follows it is completed.
                    words="scene:street scene:walkers scene:crowd scene:static scene:lights scene:lamp scene:dusk scene:covered scene:night-ir scene:stage"
                fi
            fi
            ;;
    esac
    if [ "$current" = : ] || [ "$previous" = : ]; then
        words="street walkers crowd static lights lamp dusk covered night-ir"
        current=${current#:}
    fi
    if [ -n "$words" ]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    else
        if [ "$verb" = batch ]; then words="status merge verify cancel"; fi # or clips
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current"; compgen -f -- "$current")
    fi
}
complete -o filenames -F _fleifeisa_host fleifeisa-host
