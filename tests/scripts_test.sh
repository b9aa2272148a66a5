#!/bin/bash
# usage: scripts_test.sh CASE [ARGUMENT...]
# Tests of the scripts, in a copy of the sources; what they would install, build or start is replaced
# by programs that only note that they were called. CASE is a function below.
# Ends with 0, 1 when something is not as expected, 2 on wrong usage.
# shellcheck disable=SC2016,SC2317 # bodies of programs; cases that are called by their names
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

readonly OTHER_USER=65534 # nobody
readonly LIMIT_S=60       # for what ends at once on a machine that does nothing else

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
export WORK=$work
copy=$work/copy
tools=$work/tools
mkdir "$copy" "$tools"
tar -C "$project" --exclude=./build --exclude=./.git -cf - . | tar -C "$copy" -xf -
cd "$copy"
export PATH=$tools:$PATH
failed=0

# tool NAME < BODY: a program that stands before others on the PATH, and notes its calls in $work/called.
tool()
{
    { printf '#!/bin/bash\necho "%s $*" >> "$WORK/called"\n' "$1" && cat; } > "$tools/$1"
    chmod 755 "$tools/$1"
}

# expect STATUS TEXT COMMAND...: runs it with both outputs in $work/out and $work/err, and wants this
# status ("not0": any but 0) and the text, as grep -E has it, in either ("": no matter).
expect()
{
    local wanted=$1 text=$2 status=0
    shift 2
    : > "$work/called"
    chmod 666 "$work/called"
    timeout "$LIMIT_S" "$@" > "$work/out" 2> "$work/err" < /dev/null || status=$?
    if [[ $wanted == not0 && $status == 0 || $wanted != not0 && $status != "$wanted" ]] ||
        { [[ -n $text ]] && ! grep -qE -e "$text" "$work/out" "$work/err"; }; then
        wrong "$*: status $status, wanted $wanted and \"$text\""
    fi
}

# wrong WHAT: notes a failure, with what the last command printed.
wrong()
{
    echo "WRONG: $*"
    sed 's/^/    /' "$work/out" "$work/err"
    failed=1
}

nothing_called()
{
    [[ ! -s $work/called ]] || wrong "$*: started: $(< "$work/called")"
}

one_line()
{
    (($(wc -l < "$work/err") == 1)) || wrong "$*: not one line on standard error"
}

all_scripts()
{
    printf '%s\n' scripts/*.sh samples/make/*.sh docs/*/*.sh .ci/run | grep -vxF scripts/lib.sh
}

# Every script tells what it does, and names an option that it does not know; at once, with nothing
# started and nothing left.
help()
{
    local one
    for one in apt-get bwrap cmake ctest gdb mmdebstrap sudo valgrind; do
        tool "$one" <<< 'exit 1'
    done
    touch "$work/now"
    for one in $(all_scripts); do
        expect 0 'Ends with' timeout 2 "$one" --help
        head -1 "$work/out" | grep -q '^usage: ' || wrong "$one --help: no usage"
        nothing_called "$one --help"
        expect 2 --bogus timeout 2 "$one" --bogus
        one_line "$one --bogus"
        nothing_called "$one --bogus"
        expect not0 '' bash -c "$one --help > /dev/full"
        expect not0 '' bash -c "$one --help >&-"
    done
    [[ -z $(find . -newer "$work/now") ]] || wrong "touched: $(find . -newer "$work/now")"
}

# inspect_options TOOL: the options in inspect.sh's help, which it accepts, are the tool's; the tool, as
# every program of one head, sees that its output cannot be written.
inspect_options()
{
    local form='s/^ +(-[a-zA-Z], ?)?(--[a-z-]+).*/\2/p'
    diff <(scripts/inspect.sh --help | sed -nE "$form" | sort) \
        <("$1" --help | sed -nE "$form" | grep -vx -e --help | sort) > "$work/out" 2> "$work/err" ||
        wrong "inspect.sh --help (<) and $1 --help (>) name other options"
    expect 1 'cannot be written' bash -c '"$0" --help > /dev/full' "$1"
    expect 1 'cannot be written' bash -c '"$0" "$1" >&-' "$1" "$copy/samples/plain.png"
}

# A stand-in for CMake: configures FOLDER for this place, and "builds" one program.
builder()
{
    tool dpkg-query <<< 'for one in "${@:3}"; do echo "installed $one"; done'
    tool cmake << 'END'
case $1 in
--preset)
    mkdir -p "$4/tools"
    printf 'CMAKE_HOME_DIRECTORY:INTERNAL=%s\nCMAKE_CACHEFILE_DIR:INTERNAL=%s\n' "$PWD" "$PWD/$4" \
        > "$4/CMakeCache.txt"
    touch "$4/build.ninja"
    ;;
--build)
    echo new > "$2/tools/demo_runner"
    chmod +x "$2/tools/demo_runner"
    ;;
esac
END
}

# folder_of PLACE: build/release as if configured there, with an old program in it.
folder_of()
{
    rm -rf build
    mkdir -p build/release/{tools,results,symbols}
    echo shipped > build/release/symbols/qrcode-abc
    echo old > build/release/tools/demo_runner
    echo old > build/release/tools/left
    echo measured > build/release/results/cost.txt
    chmod +x build/release/tools/demo_runner
    printf 'CMAKE_HOME_DIRECTORY:INTERNAL=%s\nCMAKE_CACHEFILE_DIR:INTERNAL=%s\n' "$1" \
        "$1/build/release" > build/release/CMakeCache.txt
    echo "build demo_runner: phony tools/demo_runner" > build/release/build.ninja
}

# anew yes|no: whether the old folder has given way.
anew()
{
    local old=no
    [[ -e build/release/tools/left ]] || old=yes
    [[ $old == "$1" ]] || wrong "made anew: $old, wanted $1"
    [[ $(< build/release/tools/demo_runner) == new ]] || wrong "the program is the old one"
    [[ $(< build/release/results/cost.txt) == measured ]] || wrong "measurements are lost"
    [[ $(< build/release/symbols/qrcode-abc) == shipped ]] || wrong "symbols are lost"
    [[ -z $(find build -name '.old*') ]] || wrong "the old folder is still there"
}

# A build folder from elsewhere, or half of one, gives way; one of this place stays.
build_elsewhere()
{
    builder
    mkdir -p "$work/original/build/release"
    folder_of "$work/original"
    expect 0 "configured in $work/original, not here" scripts/build.sh
    one_line copied
    anew yes
    folder_of "$work/moved-away"
    expect 0 "configured in $work/moved-away, not here" scripts/build.sh release demo_runner
    anew yes
    folder_of "$copy"
    rm build/release/CMakeCache.txt
    expect 0 "not whole" scripts/build.sh
    anew yes

    folder_of "$copy"
    expect 0 "" scripts/build.sh release demo_runner
    anew no
    ln -s "$copy" "$work/other-name"
    folder_of "$work/other-name"
    expect 0 "" scripts/build.sh
    anew no
    [[ ! -s $work/err ]] || wrong "not silent about a folder of this place"

    # Presets that have changed are looked at, with what the folder has of tests.
    folder_of "$copy"
    echo "QRCODE_TESTS:BOOL=ON" >> build/release/CMakeCache.txt
    touch -d '1 hour ago' build/release/build.ninja
    touch CMakePresets.json
    expect 0 "" scripts/build.sh release demo_runner
    grep -q -e '--preset.*-DQRCODE_TESTS=ON' "$work/called" || wrong "changed presets not seen"
}

# refused TEXT COMMAND...: it ends with 1 and one line, and nothing was built or run.
refused()
{
    expect 1 "$@"
    one_line "${*:2}"
    ! grep -qE '^(cmake|bwrap)' "$work/called" || wrong "${*:2}: went on: $(< "$work/called")"
}

# A build folder that cannot be written, or leads elsewhere, is refused; no old program is run.
build_refused()
{
    builder
    tool bwrap <<< 'exit 0'
    local as=() part remedy='chmod u\+w wanted'
    ((EUID != 0)) || remedy='another user .root.*sudo chown -R nobody .*/build'
    for part in build build/release build/release/tools/demo_runner build/release.log; do
        folder_of "$copy"
        touch build/release.log
        if ((EUID == 0)); then
            chown -R "$OTHER_USER" build
            chown root "$part"
            as=(setpriv --reuid="$OTHER_USER" --regid="$OTHER_USER" --clear-groups)
        elif [[ $part == *demo_runner ]]; then
            continue # the user's own file, which a build replaces
        else
            chmod a-w "$part"
        fi
        refused "$remedy" ${as[@]+"${as[@]}"} scripts/build.sh
        refused "$remedy" ${as[@]+"${as[@]}"} scripts/demo.sh
        chmod u+w "$part"
    done

    folder_of "$copy"
    mv build "$work/elsewhere"
    ln -s "$work/elsewhere" build
    refused 'symbolic link' scripts/build.sh
    [[ -e $work/elsewhere/release/tools/left ]] || wrong "the link's target was touched"
    rm build
    touch build
    refused 'no folder' scripts/build.sh
    rm build

    expect 2 'no preset "relese"' scripts/build.sh relese
    nothing_called "build.sh relese"
    tool cmake <<< 'echo "what is wrong"; exit 1'
    expect 1 'what is wrong' scripts/build.sh
    if ((EUID == 0)); then # what root builds goes to whom the checkout belongs
        builder
        chown -R "$OTHER_USER" .
        expect 0 "" scripts/build.sh
        [[ -z $(find build ! -user "$OTHER_USER") ]] || wrong "root's files stay in a user's checkout"
    fi
}

# Installing tells what it takes and how far it is, or why it cannot.
setup()
{
    tool dpkg-query <<< 'exit 1'
    tool sudo <<< 'while [[ $1 == -* ]]; do shift; done; exec "$@"'
    tool apt-get << 'END'
case "$* " in
*" update "*)
    [[ $SCENE != offline ]] || echo "W: Failed to fetch x  Temporary failure resolving 'x'" ;;
*--simulate*)
    [[ $SCENE != empty ]] || { echo "E: Unable to locate package cmake"; exit 100; } ;;
*--assume-no*)
    echo "0 upgraded, 42 newly installed, 0 to remove and 0 not upgraded."
    echo "Need to get 10.5 MB of archives."
    exit 1 ;;
*" -y "*)
    [[ $SCENE != offline ]] || { echo "E: Failed to fetch x  Temporary failure resolving 'x'"; exit 100; }
    echo "dlstatus:3:45.5:Retrieving file 3 of 9"
    # As long as it takes until that is shown.
    until grep -q 'downloading, 45 %' "$WORK/err"; do sleep 0.1; done ;;
esac
END
    SCENE=online expect 0 '42 packages, 10.5 MB to download' scripts/setup.sh
    SCENE=offline expect 1 'no network.*would have been installed: .*bubblewrap' scripts/setup.sh
    SCENE=empty expect 1 'lists are empty.*would have been installed: .*cmake' scripts/setup.sh
}

# Where there can be no private world, the cause and a remedy are told.
no_world()
{
    local error text
    while IFS='|' read -r error text; do
        tool bwrap <<< "echo 'bwrap: $error' >&2; exit 1"
        expect 125 "$text" scripts/private-world.sh -- true
        grep -qF "$error" "$work/err" || wrong "bwrap's own words are lost"
        grep -q -e --own-ports "$work/err" || wrong "the way without a world is not named"
    done << 'END'
Failed to make / slave: Invalid argument|this is a chroot
No permissions to create new namespace|remedy: .*(root|privileged|sysctl)
END
    mkdir "$work/few"
    ln -s "$(type -P basename)" "$(type -P dirname)" "$work/few/"
    expect 125 'bwrap is missing' env PATH="$work/few" scripts/private-world.sh -- true
}

# snapshot.sh with a debugger that only pretends.
snapshot()
{
    local save=(scripts/snapshot.sh --pid $$ --wait 1 "$work/shot.jpg")
    echo before > "$work/shot.jpg"
    tool gdb << 'END'
trap 'echo detached >> "$WORK/called"; exit 0' TERM
echo waiting
while :; do sleep 0.1; done
END
    expect 1 'no snapshot within 1 s: is scanning off' "${save[@]}"
    grep -q detached "$work/called" || wrong "the debugger was not asked to end"
    tool gdb <<< 'echo "ptrace: Operation not permitted."; exit 1'
    expect 1 'not permitted to trace' "${save[@]}"
    tool gdb <<< 'echo "No symbol table is loaded."; exit 1'
    expect 1 'stripped: .*--symbols' "${save[@]}"
    tool gdb <<< 'printf "nothing" > picture'
    expect 1 'encoder gave no picture' "${save[@]}"
    [[ $(< "$work/shot.jpg") == before ]] || wrong "an earlier snapshot is lost"
    tool gdb <<< 'printf "\xff\xd8a picture" > picture'
    expect 0 '' "${save[@]}"
    [[ $(< "$work/shot.jpg") == *"a picture" ]] || wrong "the snapshot is not saved"
    expect 1 'is of another build' "${save[@]}" --symbols "$copy/README.md"
    expect 1 'cannot write' scripts/snapshot.sh --pid $$ "$work/nowhere/shot.jpg"
    expect 1 'no process' scripts/snapshot.sh --pid 99999999 "$work/shot.jpg"
}

case ${1-} in
help | inspect_options | build_elsewhere | build_refused | setup | no_world | snapshot) "$@" ;;
*) fail -2 "no such case: ${1-}" ;;
esac
exit $failed
