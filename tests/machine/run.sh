#!/bin/bash
# The tests on the emulated machine, one verdict line each: every file in cases/ is one test.
#
#   run.sh ZEP PROGRAMS HOST_BUILD MACHINE_BUILD [--short | NAME...]
#
#   ZEP         the camera's executable
#   PROGRAMS    folder of the tests' own programs for the machine
#   HOST_BUILD  build folder with fwpkg, vcam and camera_transcripts
#   MACHINE_BUILD  build folder with vcam-cuse and the camera's tools for the machine
#   --short     without the cases that say in `slow` how long they take
#
# A case is a title and the functions `prepare` (here, where needed: fills $root, the machine's extra files),
# `board` (there) and `judge` (here: looks at $out, what came back). Each boots a machine of its own.
set -u -o pipefail
export LC_ALL=C.UTF-8

here=$(cd "${BASH_SOURCE[0]%/*}" && pwd)
zep=$(realpath "$1") programs=$(realpath "$2") host=$(realpath "$3") machine=$(realpath "$4")/bin
shift 4
fwpkg=$host/bin/fwpkg vcam=$host/bin/vcam
export PATH=$PATH:/usr/sbin

work=$(mktemp -d "${TMPDIR:-/tmp}/machine.XXXXXX")

# An interrupted run leaves neither machines nor files.
clean_up() {
    local group
    for group in $(jobs -p); do kill -TERM -- "-$group"; done 2> /dev/null
    wait
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

if [ -t 1 ]; then green=$'\033[32m' red=$'\033[31m' plain=$'\033[0m'; else green='' red='' plain=''; fi

. "$here/firmware.sh"

# How many cuts the case of that name makes: without more words as few as a run of all tests has time for.
cuts=${ZEP_CUTS:---compared 80 --boots 12}

# --- what a case may use ----------------------------------------------------------

prepare() { :; }
options=() # of board.sh
ends=0     # the status that board.sh shall end with; 123 is a reset

# Failures go to $work of the case, its verdict counts them.
wrong() { echo "$*" >> "$out/../failures"; }
# A misspelt check must not pass for one that found nothing.
command_not_found_handle() {
    echo "$1: command not found" >&2
    [ -z "${out-}" ] || wrong "no command $1"
    return 127
}

equal() { # WHAT EXPECTED FOUND
    [ "$2" = "$3" ] || wrong "$1: expected '$2', found '$3'"
}
same_file() { # WHAT EXPECTED FOUND
    local differ
    differ=$(diff -u "$2" "$3" 2>&1 | head -n 30) || wrong "$1:"$'\n'"$differ"
}
says() { # WHAT FOUND: what stands on standard input
    cat > "$out/expected"
    same_file "$1" "$out/expected" "$2"
}
same_bytes() { # WHAT EXPECTED FOUND [BYTES]
    local differ
    differ=$(cmp ${4:+-n "$4"} "$2" "$3" 2>&1) || wrong "$1: $differ"
}
between() { # WHAT LOW HIGH FOUND
    [ "$4" -ge "$2" ] && [ "$4" -le "$3" ] 2> /dev/null || wrong "$1: '$4' is not in $2..$3"
}
# The partition holds the image and is erased behind it.
flashed() { # PARTITION IMAGE
    local size rest
    size=$(stat -c %s "$2")
    same_bytes "/dev/$1" "$2" "$out/$1" "$size"
    rest=$(tail -c +$((size + 1)) "$out/$1" | tr -d '\377' | wc -c)
    equal "bytes of /dev/$1 behind the image that are not erased" 0 "$rest"
}

# --- one test -----------------------------------------------------------------------

write_script() {
    {
        printf '%s\n' '#!/bin/busybox sh' '. /board/guest.sh'
        declare -f board
        echo board
    } > "$1"
}

run_case() {
    local name=$1 dir=$work/$1 status started=$SECONDS
    root=$dir/root out=$dir/out
    mkdir -p "$root/board" "$root/tmp" "$out"
    : > "$dir/failures"
    . "$here/cases/$name.sh"
    cp "$programs/machine_actor" "$root/board/actor"
    cp "$programs/machine_questions" "$root/board/questions"
    cp "$here"/{keep.sh,fuser} "$root/board"
    prepare
    write_script "$dir/script"
    # However busy the PC is.
    "$here/board.sh" -t 1500 "${options[@]}" -o "$out" "$zep" "$root" "$dir/script" > "$dir/console" 2> "$dir/errors"
    status=$?
    equal "how it ended" "$ends" "$status"
    judge
    if [ ! -s "$dir/failures" ]; then
        printf '%sok%s    %-18s %s (%s s)\n' "$green" "$plain" "$name" "$title" $((SECONDS - started))
        return
    fi
    printf '%sFAIL%s  %s\n' "$red" "$plain" "$name"
    cat "$dir"/{failures,console,errors} 2> /dev/null | sed 's/^/        /' | head -n 80
    return 1
}

# --- all of them, two at a time ---------------------------------------------------------

short=
[ "${1-}" != --short ] || { short=1; shift; }
names=("$@")
if [ ${#names[@]} = 0 ]; then
    for case in "$here"/cases/*.sh; do
        name=${case##*/} name=${name%.sh}
        time=$(sed -n 's/^slow="\(.*\)"/\1/p' "$case")
        if [ -n "$short" ] && [ -n "$time" ]; then
            echo "left out, as it takes $time: $name; ./dev machine runs it"
        else
            names+=("$name")
        fi
    done
fi
for name in "${names[@]}"; do
    [ -f "$here/cases/$name.sh" ] || { echo "machine: no test '$name'; there are: $(ls "$here/cases" | sed 's/\.sh$//' | xargs)" >&2; exit 2; }
done
"$here/board.sh" --prepare || exit 1
make_firmware || { echo "machine: the tests' firmware cannot be made" >&2; exit 1; }

failed=0 running=0
settle() { # waits for a test
    wait -n || failed=$((failed + 1))
    running=$((running - 1))
}
for name in "${names[@]}"; do
    [ $running -lt 2 ] || settle
    set -m # a process group of its own, for clean_up; the terminal stays with the script
    (run_case "$name") < /dev/null &
    set +m
    running=$((running + 1))
done
while [ $running -gt 0 ]; do settle; done

if [ $failed != 0 ]; then
    echo "machine: $failed of ${#names[@]} tests failed"
    exit 1
fi
echo "machine: ${#names[@]} tests passed in $SECONDS s"
