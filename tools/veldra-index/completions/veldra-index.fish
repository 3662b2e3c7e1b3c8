# Completion of veldra-index for fish.
set -l commands rebuild update stats search symbols refs health errors check compact clear sql

complete -c veldra-index -f
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a rebuild -d 'Index the whole tree anew'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a update -d 'Index only what has changed'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a stats -d 'Count what is in the index'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a search -d 'Find text in the files'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a symbols -d 'Find definitions by name'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a refs -d 'Show who imports a file or module'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a health -d 'Report on the state of the index'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a errors -d 'List the problems that were met'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a check -d 'Check that the index is sound'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a compact -d 'Give free pages back'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a clear -d 'Empty the index'
complete -c veldra-index -n "not __fish_seen_subcommand_from $commands" -a sql -d 'Ask a question in SQL'
complete -c veldra-index -n "__fish_seen_subcommand_from $commands" -a '(__fish_complete_directories)'

complete -c veldra-index -l db -r -F -d 'The index file'
complete -c veldra-index -l json -d 'Answer in JSON'
complete -c veldra-index -s q -l quiet -d 'No progress, no summary, no warnings'
complete -c veldra-index -s v -l verbose -d 'Say what is done'
complete -c veldra-index -l color -x -a 'auto always never' -d Colours
complete -c veldra-index -s j -l jobs -x -d 'Threads that parse'
complete -c veldra-index -s h -l help -d 'Show help'
complete -c veldra-index -l version -d 'Show the version'
complete -c veldra-index -n '__fish_seen_subcommand_from search' -l fts -d 'TEXT is full-text syntax'
complete -c veldra-index -n '__fish_seen_subcommand_from search symbols' -l path -x -d 'Only these files'
complete -c veldra-index -n '__fish_seen_subcommand_from search symbols' -s n -l limit -x -d 'At most so many'
complete -c veldra-index -n '__fish_seen_subcommand_from search' -s C -l context -x -d 'Lines around each hit'
complete -c veldra-index -n '__fish_seen_subcommand_from symbols' -l kind -x -d 'Only this kind'
complete -c veldra-index -n '__fish_seen_subcommand_from clear' -l yes -d 'Really empty it'
