#!/usr/bin/env bash
# Manual pages and completion against what the program says of itself.
#   usage: pages.sh TALVEN FOLDER
set -euo pipefail
talven=$1 folder=$2
here=$(realpath "$(dirname "$0")")
failed=0
# expect WHAT WANTED GOT
expect() {
    [[ $2 == "$3" ]] && return
    echo "$1: wanted \"$2\", got \"$3\""
    failed=1
}

# Every option of the help has its place in the manual, and is completed.
# shellcheck source=/dev/null
source "$folder/pages/talven.bash"
complete_words() {  # words of a command line, the last to be completed; prints what is offered
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _talven 2>/dev/null
    echo "${COMPREPLY[*]}"
}
list_commands() {  # of the program, or of a group
    "$talven" "$@" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'
}
expect "commands" "$(list_commands | sort | xargs)" "$(complete_words talven "" | xargs -n 1 | sort | xargs)"
expect "a group" "$(list_commands batch | xargs)" "$(complete_words talven batch "")"
commands=$(list_commands | grep -vx batch; list_commands batch | sed 's/^/batch /')
while read -r command; do
    # shellcheck disable=SC2086  # a command may be two words
    offered=" $(complete_words talven $command -) "
    page=$(sed 's/\\-/-/g' "$folder/pages/talven-${command/ /-}.1")
    count=0
    # shellcheck disable=SC2086
    for option in $("$talven" $command --help | sed -n '/^Example/q; s/^  \(-[^ ]*\) .*/\1/p' | tr , ' '); do
        [[ $offered == *" $option "* ]] || { echo "$command $option: not completed"; failed=1; }
        [[ $page == *"\\fB$option\\fR"* ]] || { echo "$command $option: not in the manual"; failed=1; }
        count=$((count + 1))
    done
    [[ $count -ge 3 ]] || { echo "$command: $count options in the help"; failed=1; }
done <<<"$commands"

# What a value may be.
expect "a command" "reconstruct reproject" "$(complete_words talven re)"
expect "an option" "--iterations --initial-volume" "$(complete_words talven reconstruct --i | sed 's/ --in[cv][^ ]*//g; s/ --is[^ ]*//')"
expect "a choice" "shepp-logan" "$(complete_words talven reconstruct --filter s)"
expect "a choice after =" "wbp" "$(complete_words talven reconstruct --method = w)"
expect "a number" "" "$(complete_words talven reconstruct --iterations "")"
expect "behind --config" "sart em bp wbp" "$(complete_words talven --config view reconstruct --method "")"
cd "$here"
expect "a file" "pages.sh" "$(complete_words talven reconstruct --tilts pa)"
expect "a file without option" "pages.sh" "$(complete_words talven view pa)"
if command -v fish >/dev/null; then
    ask() { fish --no-config -c "source $folder/pages/talven.fish; complete -C '$1'" | cut -f 1 | xargs; }
    expect "fish, a command" "reconstruct reproject" "$(ask 'talven re' | xargs -n 1 | sort | xargs)"
    expect "fish, a group" "$(list_commands batch | sort | xargs)" "$(ask 'talven batch ' | xargs -n 1 | sort | xargs)"
    expect "fish, an option of a group" "--slabs" "$(ask 'talven batch plan --slab')"
    expect "fish, a choice" "hamming hann" "$(ask 'talven reconstruct --filter ha' | xargs -n 1 | sort | xargs)"
    expect "fish, an option" "--tilt-axis --tilts" "$(ask 'talven reconstruct --tilt' | xargs -n 1 | sort | xargs)"
fi
if command -v zsh >/dev/null; then zsh -n "$folder/pages/_talven" || failed=1; fi

# Every setting that the server reads is in its manual.
settings=$(grep -ohE 'TALVEN_[A-Z_]+|Value\("[A-Za-z]+"' "$here/../../server/Config/ConfigFile.cpp" | sed 's/Value("//; s/"//')
[[ $(wc -w <<<"$settings") -ge 14 ]] || { echo "settings: $settings"; failed=1; }
for setting in $settings; do
    grep -qw "$setting" "$folder/talven-server.1" || { echo "$setting: not in talven-server(1)"; failed=1; }
done
exit $failed
