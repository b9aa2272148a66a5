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
    for one in apt-get bwrap cmake ctest gdb sudo valgrind; do
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
    # As the program itself gdb would not move symbols to where the process has them.
    expect 0 '' "${save[@]}" --symbols "/proc/$$/exe"
    grep -q -e '-s /.*/exe -p' "$work/called" || wrong "symbols are given as the program: $(< "$work/called")"
    expect 1 'is of another build' "${save[@]}" --symbols "$copy/README.md"
    expect 1 'cannot write' scripts/snapshot.sh --pid $$ "$work/nowhere/shot.jpg"
    expect 1 'no process' scripts/snapshot.sh --pid 99999999 "$work/shot.jpg"
}

# reads VARIANT LINE...: what a reading over the variant prints from now on.
reads()
{
    printf '%b\n' "${@:2}" > "$work/reads-$1"
}

# The comparison of pictures, with a reader that prints what is wanted, and stops at nothing else.
same_pictures()
{
    local libs=$work/libs over=() variant
    local call='a.jpg\t1\tdecode\t4x1x1\t' text='a.jpg\t0\ttext\t3\tABC'
    echo 'exit 0' > scripts/setup.sh
    cat > scripts/build.sh << 'END'
#!/bin/bash
name=release
[[ $1 != --in ]] || name=$2
mkdir -p "build/$name/bench"
cache=build/$name/CMakeCache.txt
[[ -s $cache ]] || # what was found once stays
    printf '%s\n' DEVICE_LIBC_ROOT:INTERNAL=/ "${4/-DCMAKE_PREFIX_PATH/OpenCVParts_core_LIBRARY:FILEPATH}/" > "$cache"
cp "$WORK/reader" "build/$name/bench/scanned_pictures"
END
    cat > "$work/reader" << 'END'
#!/bin/bash
variant=$(basename "${0%/bench/*}")
lines=$WORK/reads-${variant#over-}
case $1 in
frames) touch "$2/a.jpg" ;;
read) cat "$lines" ;;
call) sed -n '1s/.*\t//p' "$lines" ;;
esac
END
    chmod +x "$work/reader"
    tool qemu-arm <<< 'shift 2; exec "$@"'
    mkdir -p "$libs/lib"
    touch "$libs/lib/libopencv_core.a"
    for variant in native hard soft; do
        over+=(--over "$variant=$libs")
        reads "$variant" "${call}0000" "$text"
    done
    reads release "${call}0000" "$text"
    expect 0 'soft: of 1 pictures 0 differ' scripts/same-pictures.sh "${over[@]}"
    cp -r "$libs" "$work/others"
    expect 0 'soft: of 1 pictures 0 differ' scripts/same-pictures.sh "${over[@]/$libs/$work/others}"

    reads hard "${call}0207" "$text"
    expect 0 'first in decode: 1 pictures, at most 2 bytes differ, by at most 7' \
        scripts/same-pictures.sh "${over[@]}"
    reads hard "$text" # a call is not made
    expect 0 'hard: of 1 pictures 1 differ; of 0 calls 1' scripts/same-pictures.sh "${over[@]}"
    reads hard "${call}0000" "${text/ABC/ABD}"
    expect 1 'hard: of 1 pictures 0 differ.* texts 1' scripts/same-pictures.sh "${over[@]}"
    rm "$work/reads-hard"
    expect 1 'hard: a reading cannot be taken' scripts/same-pictures.sh "${over[@]}"

    for variant in "same-pictures.sh --over hard" "arm-cost.sh hard" "resources.sh --beside native"; do
        # shellcheck disable=SC2086
        expect 2 'no archives of (hard|native) in /nowhere' scripts/$variant=/nowhere
    done
    for variant in native sanitized covered-x; do
        expect 2 "$variant is not for ARM" scripts/arm-cost.sh "$variant=$libs"
    done
    for variant in "bundle.sh sanitized" "bundle.sh covered" "resources.sh --beside sanitized"; do
        # shellcheck disable=SC2086
        expect 2 'for scripts/fuzz.sh alone' scripts/$variant
    done
}

# Stand-ins for what fetches, unpacks and builds the terminal's libraries; $SCENE says what goes wrong.
libraries_tools()
{
    tool dpkg-query <<< 'for one in "${@:3}"; do echo "installed $one"; done'
    tool apt-get << 'END'
case $1 in
indextargets) echo "Debian http://mirror ${RELEASE} main" ;;
update) [[ $SCENE != offline ]] || { echo "E: Failed to fetch x  Temporary failure resolving 'x'"; exit 100; } ;;
source) for one in "${@:3}"; do echo "Version: 1" > "${one}_1.dsc"; done ;;
esac
END
    tool dpkg-source <<< '[[ $SCENE != cut ]] || exit 1
        mkdir -p "${*: -1}/debian/patches" && echo a.patch > "${*: -1}/debian/patches/series" &&
        printf "%s\n" "--- a/code" "+++ b/code" "@@ -0,0 +1 @@" "+theirs" > "${*: -1}/debian/patches/a.patch" &&
        echo theirs > "${*: -1}/code" && touch "${*: -1}"/{jpeglib,jmorecfg,jerror}.h'
    rm -r patches
    mkdir -p patches/zbar patches/opencv
    printf '%s\n' 'Subject: ours' --- '--- a/code' '+++ b/code' '@@ -1 +1,2 @@' ' theirs' '+ours' > patches/zbar/01-ours.patch
    tool cmake << 'END'
while (($# > 0)); do
    case $1 in
    -B | --build | --install) step=$1 folder=$2 ;;
    --prefix) prefix=$2 ;;
    esac
    shift
done
case $step in
-B)
    [[ $SCENE != compiler ]] || { echo "CMake Error: /nowhere/arm-g++ was not found"; exit 1; }
    mkdir -p "$folder"
    printf 'compiler g++ 1\nflags -O\narm 1\nneon 1\n' > "$folder/toolchain.txt"
    ;;
--build)
    cat "$folder/../sources/zbar/code" > "$WORK/zbar-code"
    [[ $SCENE != full ]] || { echo "x.cpp: error: No space left on device"; exit 1; }
    [[ $SCENE != interrupted ]] || { kill -TERM 0; sleep 9; }
    touch "$folder/jconfig.h"
    ar rc "$folder/libjpeg.a"
    ;;
--install)
    mkdir -p "$prefix/lib"
    [[ $SCENE != short ]] || exit 0
    for one in opencv_{core,imgproc,imgcodecs} zbar; do ar rc "$prefix/lib/lib$one.a"; done
    ;;
esac
END
    # shellcheck source=/dev/null
    RELEASE=$(. /etc/os-release && echo "$VERSION_CODENAME")
    export RELEASE
}

# nothing_half_made LIBRARIES: but for the sources and these libraries build/ holds no folder.
nothing_half_made()
{
    local left
    left=$(find build -mindepth 1 -maxdepth 1 -type d ! -name sources ! -name "$1")
    [[ -z $left ]] || wrong "left behind: $left"
}

# The terminal's libraries: nothing is done twice or left half-made, and what is wrong is told.
device_libs()
{
    libraries_tools
    expect 2 'which variant' scripts/device-libs.sh
    expect 2 "toolchain's -DDEVICE_" scripts/device-libs.sh vendor
    expect 2 'a name of your own' scripts/device-libs.sh hard -DDEVICE_FLOAT_ABI=soft
    expect 2 'another name' scripts/device-libs.sh hard-x -DDEVICE_FLOAT_ABI=soft
    expect 2 'not a name' scripts/device-libs.sh ../hard -DDEVICE_FLOAT_ABI=soft
    expect 2 '-DCMAKE_CXX_FLAGS' scripts/device-libs.sh vendor -DCMAKE_CXX_FLAGS=-O0
    SCENE=compiler expect 1 '/nowhere/arm-g\+\+' scripts/device-libs.sh vendor -DDEVICE_COMPILER_PREFIX=/nowhere/arm-
    nothing_half_made none
    SCENE=offline expect 1 'is the network there' scripts/device-libs.sh hard
    [[ ! -e build/sources ]] || wrong "sources that were not fetched"
    SCENE="cut" expect 1 'cannot be fetched' scripts/device-libs.sh hard
    [[ ! -e build/sources ]] || wrong "sources that were not unpacked"
    for scene in full short; do
        SCENE=$scene expect 1 'No space left|No such file' scripts/device-libs.sh hard
        nothing_half_made none
    done
    SCENE=interrupted expect 130 '' setsid --wait scripts/device-libs.sh hard
    nothing_half_made none

    SCENE=well expect 0 '' scripts/device-libs.sh hard
    grep -q a.patch build/libs-hard/manifest.txt || wrong "no patches in the manifest"
    SCENE=well expect 0 '' scripts/device-libs.sh hard
    ! grep -qE -e '--build|^apt-get (update|source)' "$work/called" || wrong "built again: $(< "$work/called")"
    SCENE=well expect 124 'waiting for another call' flock build/.libs-hard.lock \
        timeout 2 scripts/device-libs.sh hard
    echo '# changed' >> cmake/one-file.cmake
    SCENE=full expect 1 'No space left' scripts/device-libs.sh hard
    [[ -f build/libs-hard/manifest.txt ]] || wrong "the libraries that were there are lost"
    SCENE=well expect 0 'Building' scripts/device-libs.sh hard
    nothing_half_made libs-hard
    rm build/libs-hard/made-from
    SCENE=well expect 1 'did not make it' scripts/device-libs.sh hard
}

# Our patches: of which library they are is what is made anew, one that does not fit is named, and one
# can be left out.
patches()
{
    local libs=build/libs-hard
    libraries_tools
    SCENE=well expect 0 '' scripts/device-libs.sh hard
    grep -q 'patches/zbar/01-ours.patch' "$libs"/manifest.txt || wrong "the patch is not in the manifest"
    [[ $(< "$work/zbar-code") == $'theirs\nours' ]] || wrong "zbar without the patch"
    echo "# changed" >> patches/zbar/01-ours.patch
    SCENE=well expect 0 'Building zbar for hard' scripts/device-libs.sh hard
    [[ $(grep -c -e '--build' "$work/called") == 1 ]] || wrong "not zbar alone: $(< "$work/called")"
    grep -q 'opencv .*-DBUILD_LIST' "$libs"/options || wrong "OpenCV's options are lost"

    expect 2 'nothing: 0 patches .* a.patch 01-ours.patch' scripts/device-libs.sh --without nothing hard
    expect 2 'patch: 2 patches' scripts/device-libs.sh --without patch hard
    SCENE=well expect 0 '' scripts/device-libs.sh --without ours hard
    [[ $(< "$work/zbar-code") == theirs ]] || wrong "ours is not left out"
    grep -q 'but none named ours' "$libs-without-ours"/manifest.txt || wrong "the manifest names it"
    ! grep -q 'but none' "$libs"/manifest.txt || wrong "the variant itself lost it"
    rm patches/zbar/01-ours.patch
    SCENE=well expect 0 '' scripts/device-libs.sh --without a.patch hard
    [[ ! -s $work/zbar-code ]] || wrong "theirs is not left out"

    printf '%s\n' --- '--- a/code' '+++ b/code' '@@ -1 +1,2 @@' ' nobodys' '+ours' > patches/opencv/01-other.patch
    SCENE=well expect 1 '01-other.patch does not apply to opencv' scripts/device-libs.sh hard
    [[ -f "$libs"/manifest.txt ]] || wrong "the libraries that were there are lost"
}

# Fuzzing: what breaks is named, of the seeds without a patch just those that do, and a finding fails the run.
# A target that did not run has found nothing.
fuzz()
{
    local words
    printf '#!/bin/bash\nexit 0\n' > scripts/setup.sh
    cat > scripts/device-libs.sh << 'END'
#!/bin/bash
folder=build/libs-sanitized
[[ $1 != --without ]] || folder=$folder-without-$2
mkdir -p "$folder/lib" && touch "$folder/lib/libopencv_core.a"
END
    cat > scripts/build.sh << 'END'
#!/bin/bash
mkdir -p "build/$2/fuzz"
echo "OpenCVParts_core_LIBRARY:FILEPATH=${3#*=}/" > "build/$2/CMakeCache.txt"
cp "$WORK/target" "build/$2/fuzz/fuzz_scan"
END
    cat > "$work/target" << 'END'
#!/bin/bash
for word in "$@"; do
    [[ $word != -artifact_prefix=* ]] || kept=${word#*=}
    [[ $word != -max_total_time=* || -z ${FINDS-} ]] || found=new
    [[ $word != /* && $word != fuzz/* ]] || [[ -d $word ]] || { echo "not a folder: $word"; exit 1; }
    [[ ! -d $word ]] || ! grep -rq BREAKS "$word" || found=old
done
[[ -n ${found-} ]] || exit 0
echo BREAKS > "${kept}crash-$found"
echo "SUMMARY: AddressSanitizer: $found overflow /x/y/./zbar/code.c:1:2 in f (BuildId: 1)"
exit 1
END
    chmod +x "$work/target"
    printf '#!/bin/bash\nwhile [[ $1 != -- ]]; do shift; done\nshift\nexec "$@"\n' > scripts/private-world.sh
    rm -r fuzz/seeds/scan
    mkdir fuzz/seeds/scan
    touch fuzz/seeds/scan/{fine,zz}
    expect 2 'no target "nosuch"' scripts/fuzz.sh 5 nosuch
    expect 2 'SECONDS: not a number' scripts/fuzz.sh --without x scan
    expect 2 'takes one target' scripts/fuzz.sh --without x 5 scan decode
    expect 0 '^scan +5 s' scripts/fuzz.sh 5 scan
    FINDS=1 expect 1 'scan: a finding: AddressSanitizer: new overflow zbar/code.c:1:2 in f;' scripts/fuzz.sh 5 scan
    expect 1 'a finding: .*old' scripts/fuzz.sh 0 scan # what was found stays

    expect 1 'nothing breaks without x' scripts/fuzz.sh --without x 5
    FINDS=1 expect 0 '^from nothing, after [0-9]+ s: .*new overflow' scripts/fuzz.sh --without x 5
    echo BREAKS > fuzz/seeds/scan/found
    expect 0 '^scan/found +AddressSanitizer: old' scripts/fuzz.sh --without x 0
    (($(wc -l < "$work/out") == 1)) || wrong "not the seed that breaks alone"
    printf '#!/bin/bash\necho "no private world here"\nexit 125\n' > scripts/private-world.sh
    for words in "--without x 0" "5 scan"; do
        # shellcheck disable=SC2086
        expect 1 'scan: did not run' scripts/fuzz.sh $words
        grep -q 'no private world' "$work/err" || wrong "the reason is lost"
        ! grep -qE 'a finding|^scan/' "$work/out" "$work/err" || wrong "what did not run is taken for a finding"
    done
}

# links FLAG...: the program that is linked from now on.
links()
{
    printf '#include <cstdio>\nint main(int count, char** words)\n{ char line[9]; std::sprintf(line, words[count - 1]); }\n' |
        g++ -w -O2 -D_FORTIFY_SOURCE=2 -fstack-protector-strong -x c++ - -o "$work/program" "$@"
}

# The one file: what it must not need or be is refused, and the last one stays.
bundle()
{
    echo 'mkdir -p "build/libs-$1" && touch "build/libs-$1"/{made-from,manifest.txt}' > scripts/device-libs.sh
    cat > scripts/build.sh << 'END'
#!/bin/bash
echo "$*" > "$WORK/configured"
mkdir -p "build/$2/qrcode_src"
printf 'CMAKE_%s:FILEPATH=%s\n' READELF readelf OBJCOPY objcopy > "build/$2/CMakeCache.txt"
cp "$WORK/link-log" "build/$2.log"
cp "$WORK/program" "build/$2/qrcode_src/qrcode"
END
    local platform="$work/vendor's own/lib" good=("-pie" "-Wl,-z,relro,-z,now" "-Wl,--build-id")
    mkdir -p "$platform"
    touch "$platform/libb.a" "$platform/liba.a" "$work/link-log"
    expect 2 'which variant' scripts/bundle.sh
    expect 2 'no such library' scripts/bundle.sh native "$work/nowhere"
    expect 2 'no lib\*' scripts/bundle.sh native "$work"
    expect 1 'build/libs-vendor is missing' scripts/bundle.sh vendor
    expect 2 'no character set "utf8"' scripts/bundle.sh --charsets utf8 native "$platform"

    links "${good[@]}"
    expect 0 'needs libc.so.6' scripts/bundle.sh native "$platform"
    grep -qF -e "-DQRCODE_PLATFORM=$platform/liba.a;$platform/libb.a" "$work/configured" ||
        wrong "platform: $(< "$work/configured")"
    (cd build/bundle-native && sha256sum --quiet -c SHA256SUMS) > "$work/out" 2> "$work/err" || wrong "sums"
    grep -q '^needs of the C library: GLIBC_' build/bundle-native/manifest.txt || wrong "no C library named"
    (($(wc -l < build/bundle-native/SHA256SUMS) == 4)) || wrong "not a sum of each file"
    grep -q '^# .*: none of' build/bundle-native/gconv/gconv-modules || wrong "character sets"
    nm build/bundle-native/qrcode.debug | grep main > "$work/out" || wrong "nothing for a debugger"
    cmp <(readelf -n build/bundle-native/qrcode | grep Build) \
        <(readelf -n build/bundle-native/qrcode.debug 2> /dev/null | grep Build) > "$work/out" || wrong "build ids"
    cp build/bundle-native/qrcode "$work/last"

    links "${good[@]}" -Wl,--no-as-needed -lstdc++
    expect 1 'would need libstdc\+\+' scripts/bundle.sh native "$platform"
    local flags
    for flags in -no-pie "-pie -Wl,-z,lazy" "-pie -Wl,-z,now,-z,norelro"; do
        # shellcheck disable=SC2086
        links $flags
        expect 1 'not position-independent' scripts/bundle.sh native "$platform"
    done
    for flags in -U_FORTIFY_SOURCE -fno-stack-protector; do
        links "${good[@]}" "$flags"
        expect 1 'without stack protector or fortified' scripts/bundle.sh native "$platform"
    done
    links "${good[@]}" -Wl,-z,execstack
    expect 1 'executable stack' scripts/bundle.sh native "$platform"
    rm "$work/program"
    echo "main.cpp: undefined reference to \`HI_MPI_SYS_Bind'" > "$work/link-log"
    expect 1 'the platform lacks HI_MPI_SYS_Bind' scripts/bundle.sh native "$platform"
    cmp build/bundle-native/qrcode "$work/last" || wrong "the last program is lost"
    [[ -z $(find build -name '.bundle*' -type d) ]] || wrong "left behind: $(find build -name '.bundle*' -type d)"
}

# The modules for a terminal: just the chosen ones, and lines that keep the C library from the others, so
# that this machine's own iconv knows what was chosen and no more.
charset_modules()
{
    local make=(scripts/charset-modules.sh native) made=$work/made from=$work/gconv
    for wrong in "" sjis,latin2 all SJIS "sjis," none,sjis; do
        expect 2 'no character set|too few' "${make[@]}" "$wrong" "$made"
        one_line "a list \"$wrong\""
    done
    expect 2 'wants --gconv' scripts/charset-modules.sh vendor sjis "$made"
    expect 2 'no file gconv-modules' "${make[@]}" sjis "$made" --gconv "$work"
    [[ ! -e $made ]] || wrong "made for a wrong call"

    local list text
    while read -r list text; do
        expect 0 '' "${make[@]}" "$list" "$made"
        expect 0 '' env GCONV_PATH="$made" bash -c '
            for name in SJIS ISO8859-1 BIG-5; do
                if iconv -f "$name" -t UTF-8 < /dev/null 2> /dev/null; then echo -n "$name,"; fi
            done'
        [[ $(< "$work/out") == "$text" ]] || wrong "iconv with $list: not $text"
    done << 'END'
none
latin1 ISO8859-1,
big5,sjis SJIS,BIG-5,
sjis,latin1,big5 SJIS,ISO8859-1,BIG-5,
END

    # A vendor's folder, as older and newer C libraries have it.
    mkdir -p "$from/gconv-modules.d"
    printf 'alias MS_KANJI// SJIS//\nalias X// OTHER//\nmodule SJIS// INTERNAL SJIS 1\nmodule SJIS// A// SJISA 1\n' \
        > "$from/gconv-modules"
    printf 'module BIG5// INTERNAL BIG5 1\n' > "$from/gconv-modules.d/more.conf"
    touch "$from"/{SJIS,BIG5,OTHER}.so
    expect 0 '' scripts/charset-modules.sh vendor sjis,big5 "$made" --gconv "$from"
    printf '%s\n' BIG5.so SJIS.so gconv-modules | diff - <(ls "$made") > "$work/out" || wrong "other files"
    grep -v -e '^#' -e '^$' "$made/gconv-modules" | tr -s '\t\n' ' \n' > "$work/out"
    diff "$work/out" - > "$work/err" << 'END' || wrong "other lines"
alias MS_KANJI// SJIS//
module SJIS// INTERNAL SJIS 1
module ISO-8859-1// INTERNAL left-out 1
module BIG5// INTERNAL BIG5 1
END
    expect 1 'no module for latin1' scripts/charset-modules.sh vendor latin1 "$made" --gconv "$from"
    [[ -e $made/SJIS.so ]] || wrong "the old folder is lost"
    expect 1 'did not make it' "${make[@]}" none "$from"
    [[ -e $from/SJIS.so ]] || wrong "a folder of others is lost"
    [[ -z $(find "$work" -maxdepth 1 -name 'made.*') ]] || wrong "something is left"
}

# A call that the unit's filter lacks is named; one of the simulated platform is none.
seen_calls()
{
    printf '#!/bin/bash\nexit 0\n' | tee scripts/setup.sh scripts/build.sh > "$work/stub"
    mkdir -p build/release/bench
    cp "$work/stub" build/release/bench/scanned_pictures
    chmod +x build/release/bench/scanned_pictures
    cat > scripts/private-world.sh << 'END'
#!/bin/bash
printf '7 %s(3) = 0\n' $CALLS > "$2/trace.one"
END
    printf 'SystemCallFilter=read write\n#SystemCallFilter=uname\nSystemCallFilter=close\n' > "$work/unit"
    CALLS="close timerfd_create read" expect 0 '^2 calls seen' scripts/seen-calls.sh --check "$work/unit"
    CALLS="close ptrace read" expect 1 '^ptrace$' scripts/seen-calls.sh --check "$work/unit"
    CALLS="rseq close <...>" expect 0 '^rseq$' scripts/seen-calls.sh
    CALLS=" " expect 1 'nothing was seen' scripts/seen-calls.sh
    expect 2 'no such file' scripts/seen-calls.sh --check "$work/none"
}

# Without root nothing is tried, and that is told; both ways to start the service have the same limits.
supervised()
{
    expect 2 '--times: not a number' scripts/supervised.sh --times 0
    expect 2 'unexpected argument upstart' scripts/supervised.sh upstart
    local as=()
    ((EUID != 0)) || as=(setpriv --reuid="$OTHER_USER" --regid="$OTHER_USER" --clear-groups)
    if "${as[@]}" true 2> /dev/null; then
        expect 125 '^skipped: .*root' "${as[@]}" scripts/supervised.sh
        nothing_called supervised.sh
        # Past its words it would, as root, make all of this machine read-only.
        local word
        for word in stop once private "private true" "private $(readlink /proc/self/ns/mnt) true"; do
            # shellcheck disable=SC2086
            expect 2 '^usage: ' "${as[@]}" docs/device/qrcode-start $word
        done
    fi

    local unit=docs/device/qrcode.service letter name ours theirs
    while read -r letter name; do
        ours=$(sed -n "s/^ulimit -$letter \([0-9]*\).*/\1/p" docs/device/qrcode-start)
        theirs=$(sed -n "s/^Limit$name=//p" "$unit")
        case $theirs in
        *M) theirs=$((${theirs%M} * 1024)) ;;
        esac
        [[ $letter != f ]] || theirs=$((theirs * 2)) # blocks of 512 bytes
        [[ -n $ours && $ours == "$theirs" ]] || wrong "limit $name: $ours and $theirs"
    done << 'END'
c CORE
s STACK
v AS
n NOFILE
u NPROC
f FSIZE
END
    ! grep '^Requires.*prepare' "$unit" > "$work/out" || wrong "$unit: a full flash stops the door"
    for name in "$unit" docs/device/qrcode-prepare.service; do
        grep -q '^StartLimitIntervalSec=0$' "$name" || wrong "$name: an end too many stops the service for good"
    done
}

case ${1-} in
help | inspect_options | build_elsewhere | build_refused | setup | no_world | snapshot | same_pictures | \
    device_libs | patches | fuzz | bundle | charset_modules | seen_calls | supervised) "$@" ;;
*) fail -2 "no such case: ${1-}" ;;
esac
exit $failed
