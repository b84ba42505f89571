# fish completion for fleifeisa-host

set -l verbs play run replay report compare tune batch events tell db user scenes
set -l none "not __fish_seen_subcommand_from $verbs"
set -l feeds "__fish_seen_subcommand_from play report"
set -l play "__fish_seen_subcommand_from play"

complete -c fleifeisa-host -n $none -f -a "$verbs"
complete -c fleifeisa-host -n $none -l version -d "print the version"
complete -c fleifeisa-host -s v -l verbose -d "report more"
complete -c fleifeisa-host -l log-format -x -a "text json" -d "form of the log"
complete -c fleifeisa-host -l help -d "help"

complete -c fleifeisa-host -n $feeds -a "scene:street scene:walkers scene:crowd scene:static scene:lights scene:lamp scene:dusk scene:covered scene:night-ir scene:stage"
for option in rate idle-rate frames region size stall-timeout device analyzer-id bgframes color-low color-high ir-low ir-high answer-timeout zone line
    complete -c fleifeisa-host -n $feeds -l $option -x
end
for option in mask private least-area start-time ffmpeg-option
    complete -c fleifeisa-host -n $feeds -l $option -x
end
complete -c fleifeisa-host -n $feeds -l profile -x -a "people-outdoor traffic indoor thermal"
complete -c fleifeisa-host -n $feeds -l tracks -x -a "filtered raw"
for flag in redirects live no-live loop realtime shadow-test no-shadow-test split-people no-split-people
    complete -c fleifeisa-host -n $feeds -l $flag
end
complete -c fleifeisa-host -n $feeds -l matrix -x -a "bt601 bt709 bt2020"
complete -c fleifeisa-host -n $feeds -l range -x -a "full limited"
complete -c fleifeisa-host -n $feeds -l type -x -a "color ir auto"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from play report run replay" -l analyzer -r

complete -c fleifeisa-host -n "__fish_seen_subcommand_from play replay" -l output -r -a "replies recording jsonl mot onvif tracks events video report" -d "an output"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from play replay" -l out -r -d "directory of the outputs"
set -l batch "__fish_seen_subcommand_from batch"
complete -c fleifeisa-host -n $batch -a "status merge verify cancel"
for option in config out analyzer
    complete -c fleifeisa-host -n $batch -l $option -r
end
for option in jobs nice cut warm-up sbatch task-time share
    complete -c fleifeisa-host -n $batch -l $option -x
end
for flag in slurm retry no-merge watch quiet
    complete -c fleifeisa-host -n $batch -l $flag
end
complete -c fleifeisa-host -n $feeds -l credentials -r -d "file with name and password"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from play tell events db" -l state -r -d "state directory"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from user" -f -a "add list remove password change token"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from user" -l role -x -a "view admin"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from user" -l state -r -d "state directory"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from user" -l camera -x -d "may see it"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from user" -l all-cameras -d "may see all"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from db" -f -a "check backup use"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from events" -f -a "export keep unkeep delete"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from events" -l kind -x -a "motion zone line stopped removed scene analyzer gap clock external"
for option in camera rule since until last what-if days timezone
    complete -c fleifeisa-host -n "__fish_seen_subcommand_from events" -l $option -x
end
for flag in json csv near-misses
    complete -c fleifeisa-host -n "__fish_seen_subcommand_from events" -l $flag
end
complete -c fleifeisa-host -n "__fish_seen_subcommand_from events" -s o -l out -r -d "directory or zip file"
for option in rotate-size rotate-hours rotate-keep
    complete -c fleifeisa-host -n $play -l $option -x
end
complete -c fleifeisa-host -n $play -s q -l quiet -d "no progress, no table"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from report" -s o -l output -r -d "the page"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from run" -l check-config -d "check the file"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from run" -l print-config -d "what is in force and where it comes from"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from replay" -l verify -d "compare with the recorded run"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from replay" -l replies -r -d "write the replies"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from compare tune" -l clips -r -d "videos, directories, lists"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from compare tune" -l out -r -d "directory of the page and of all results"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from compare tune" -l jobs -x -d "processes at a time"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from compare tune" -l analyzer -r
complete -c fleifeisa-host -n "__fish_seen_subcommand_from compare tune" -s q -l quiet -d "no progress, no table"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from compare" -l fail-on-change -d "status 1 where anything differs"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from tune" -l truth -r -d "what is in the clips"
complete -c fleifeisa-host -n "__fish_seen_subcommand_from tune" -l config -r -d "what is set now"
for option in camera candidates miss-weight least-seconds
    complete -c fleifeisa-host -n "__fish_seen_subcommand_from tune" -l $option -x
end
