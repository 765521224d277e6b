# Completion of vole(1) for fish.

complete -c vole -f
complete -c vole -s h -l help -d 'Print the options'
complete -c vole -n __fish_use_subcommand -l version -d 'Print the versions'
complete -c vole -n __fish_use_subcommand -a scan -d 'Scan files and folders'
complete -c vole -n __fish_use_subcommand -a inspect -d 'Show what the engine sees in files'
complete -c vole -n __fish_use_subcommand -a sig -d 'Write, check and compile signatures'
set -l words check compile diff explain find list make merge stat test verify
complete -c vole -n "__fish_seen_subcommand_from sig; and not __fish_seen_subcommand_from $words" \
    -a "$words"
complete -c vole -n '__fish_seen_subcommand_from make; and not __fish_seen_subcommand_from md5 checksum' -a 'md5 checksum'

set -l making -c vole -n '__fish_seen_subcommand_from md5 checksum'
complete $making -F
complete $making -l members -d 'Of archive members, too'
complete $making -l member -x -d 'Only of the member with this path'
complete $making -l text -d 'Of the normalised text'
complete $making -l name -x -d 'Name of the records, with %f, %m, %n'
complete $making -l append -rF -d 'Add the records to a file'

set -l checksum -c vole -n '__fish_seen_subcommand_from checksum'
complete $checksum -l from -xa 'start end entry section:0' -d 'What offsets count from'
complete $checksum -l length -x -d 'Bytes of each range'
complete $checksum -l not-in -rF -d 'Match nothing in it'

set -l explain -c vole -n '__fish_seen_subcommand_from explain'
complete $explain -F
complete $explain -l hdb -d 'The record is one of an .hdb file'
complete $explain -l chk -d 'The record is one of a .chk file'
complete $explain -s d -l patterns -rF -d 'Take records from there'
complete $explain -l name -x -d 'Those with this name'
complete $explain -l json -d 'Report in lines of JSON'

set -l check -c vole -n '__fish_seen_subcommand_from check'
complete $check -F
complete $check -l strict -d 'Warnings count for the exit status'
complete $check -l json -d 'Report in lines of JSON'
complete $check -l names -x -d 'Names have to fit this shell pattern'

set -l compile -c vole -n '__fish_seen_subcommand_from compile verify'
complete $compile -F
complete $compile -s o -l output -rF -d 'File to write'
complete $compile -l strict -d 'Write nothing when a record is not usable'

for word in list find
    set -l list -c vole -n "__fish_seen_subcommand_from $word"
    complete $list -F
    complete $list -s n -l places -d 'Put file and line before each'
    complete $list -l json -d 'Print lines of JSON'
end
set -l find -c vole -n '__fish_seen_subcommand_from find'
complete $find -l name -x -d 'The name fits this shell pattern'
complete $find -l md5 -x -d 'The digest begins so'
complete $find -l size -x -d 'The content has that size'
complete $find -l text -x -d 'That stands in the line'
complete $find -l kind -x -a 'md5 checksum' -d 'What kind it is'

set -l stat -c vole -n '__fish_seen_subcommand_from stat diff'
complete $stat -F
complete $stat -l json -d 'Print lines of JSON'

set -l testing -c vole -n '__fish_seen_subcommand_from sig; and __fish_seen_subcommand_from test'
complete $testing -F
complete $testing -l clean -rF -d 'Nothing may be found there'
complete $testing -l infected -rF -d 'Names are to be found there'
complete $testing -l manifest -rF -d 'Which names'
complete $testing -l json -d 'Report in lines of JSON'

set -l merge -c vole -n '__fish_seen_subcommand_from merge'
complete $merge -F
complete $merge -s o -l output -rF -d 'Folder to write to'
complete $merge -l one-name -d 'Keep the last of records that differ in their names'

set -l searching -c vole -n '__fish_seen_subcommand_from scan inspect'
complete $searching -s d -l patterns -rF -d 'Folder with the signatures, or a compiled set'
complete $searching -l config -rF -d 'Take what is not given from a file'
complete $searching -l json -d 'Report in lines of JSON'

set -l opening -c vole -n '__fish_seen_subcommand_from scan inspect md5 checksum explain test'
complete $opening -l shallow -d 'Do not look for members where other unpackers may'

set -l reading -c vole -n '__fish_seen_subcommand_from scan inspect md5 checksum explain test'
complete $reading -l max-size -x -d 'Largest file (K, M, G)'
complete $reading -l max-member -x -d 'Largest archive member (K, M, G)'
complete $reading -l max-total -x -d 'Bytes unpacked from one file (K, M, G)'
complete $reading -l max-members -x -d 'Archive members in one file'
complete $reading -l max-depth -x -d 'Archives within each other'
complete $reading -l max-ratio -x -d 'Unpacked to packed size of a member'
complete $reading -l time-limit -x -d 'Seconds for one file'

set -l counting -c vole -n '__fish_seen_subcommand_from scan md5 checksum explain test'
complete $counting -l incomplete -xa 'error ok' -d 'Whether incomplete files count for the exit status'

set -l scan -c vole -n '__fish_seen_subcommand_from scan'
complete $scan -F
complete $scan -l files-from -rF -d 'Scan what a list names, too'
complete $scan -s 0 -l null -d 'NULs stand between the paths of the list'
complete $scan -l exclude -x -d 'Leave out what fits a shell pattern'
complete $scan -l one-file-system -d 'Do not enter other file systems'
complete $scan -s j -l jobs -xa '(seq (nproc))' -d 'Files scanned at a time'
complete $scan -l cache -rF -d 'Pass over files known to be clean'
complete $scan -l all-matches -d 'Go on behind the first finding'
complete $scan -l isolate -f -a 'auto require no' -d 'Look at files in processes that can do nothing else'
complete $scan -l no-isolate -d 'Look at files in this process'
complete $scan -l limits -d 'Print the limits in force'
complete $scan -s i -l infected -d 'Leave clean files out of the report'
complete $scan -l no-summary -d 'Leave the summary out'
complete $scan -l no-progress -d 'Draw no progress line'
complete $scan -l debug -d 'Tell of unusable signatures and all reasons'
complete $scan -l host-view -d 'Scan by voleeng.h'
complete $scan -l dump -xa '(__fish_complete_directories)' -d 'The same, and write archive members'

set -l inspect -c vole -n '__fish_seen_subcommand_from inspect'
complete $inspect -F
complete $inspect -l extract -xa '(__fish_complete_directories)' -d 'Write all members'
complete $inspect -l normalised -d 'Write nothing but the normalised texts'
