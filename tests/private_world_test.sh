#!/bin/bash
# usage: private_world_test.sh
# What scripts/private-world.sh keeps, follows, covers and opens, and scripts/enter-world.sh. Ends with 0, or 1
# at the first failure.
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

arguments 0 0 "$@"
folder=$(mktemp -d)
world=
cleanup()
{
    [[ -z $world ]] || kill "$world" 2> /dev/null || true
    rm -rf "$folder"
}
trap cleanup EXIT

# await COMMAND...: until it succeeds; 20 s are far beyond anything that a loaded machine needs.
await()
{
    local i
    for ((i = 0; i < 200; ++i)); do
        ! "$@" 2> /dev/null || return 0
        sleep 0.1
    done
    fail "never came true: $*"
}

# status_of COMMAND...: sets `status`, whatever it is.
status_of()
{
    status=0
    "$@" 2> "$folder/error" || status=$?
}

mkdir "$folder/log" "$folder/scene"
# shellcheck disable=SC2016
"$project/scripts/private-world.sh" --log "$folder/log" --follow "$folder/scene" --open -- bash -c '
    cd /Database/doorlog
    until [[ -e $1/second ]]; do
        if [[ -e $1/first ]]; then echo seen > first; fi
        sleep 0.1
    done
    echo seen > second
    exec sleep 1000' bash "$folder/scene" &
world=$!
touch "$folder/scene/first"
await test -s "$folder/log/first"
rm -r "$folder/scene"
mkdir "$folder/scene"
touch "$folder/scene/second"
await test -s "$folder/log/second" # the folder was made again

[[ $("$project/scripts/private-world.sh" --over "$folder/log" /usr/share -- cat /usr/share/second) == seen ]] ||
    fail "no other folder in the place of /usr/share"
status_of "$project/scripts/private-world.sh" --over "$folder/log" /no/such/folder -- true
((status == 2)) || fail "status $status where there is no place for a folder"

into=("$project/scripts/enter-world.sh" "$world")
[[ $("${into[@]}" cat /Database/doorlog/second) == seen ]] || fail "another /Database"
[[ $("${into[@]}" readlink /proc/self/ns/net) != $(readlink /proc/self/ns/net) ]] ||
    fail "the same network"
"${into[@]}" bash -c 'grep -qsx sleep /proc/[0-9]*/comm' || fail "other processes"
status_of "${into[@]}" bash -c 'exit 7'
((status == 7)) || fail "status $status instead of the command's 7"
kill "$world"
await test ! -e "/proc/$world"
status_of "${into[@]}" true
((status == 1)) || fail "status $status where no world is"
grep -q "no private world" "$folder/error" || fail "no reason is given"
for wrong in "" "--bogus" "x"; do
    status_of "$project/scripts/enter-world.sh" ${wrong:+"$wrong"}
    ((status == 2)) || fail "status $status for wrong usage \"$wrong\""
done
world=
