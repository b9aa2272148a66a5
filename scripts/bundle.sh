#!/bin/bash
# usage: bundle.sh [OPTION...] VARIANT [PLATFORM-LIBRARY or FOLDER...]
# Links the service and the libraries of scripts/device-libs.sh VARIANT into one file. In
# build/bundle-VARIANT lie then:
#   qrcode        the terminal's program, stripped; it needs the C library alone, and what shared
#                 platform libraries are named
#   qrcode.debug  what a debugger needs of it, with the same build id
#   gconv/        what decides which character sets are read: GCONV_PATH has to name it on the terminal
#   manifest.txt  what it was made from, and what it needs
#   SHA256SUMS    of all these
# The media platform is named by its libraries, static or shared, or folders of them (every lib*.a and
# lib*.so in one). Without, the program runs over the simulated platform. The libraries of hard, soft and
# native are built when they are missing or old; those of another toolchain have to be there.
#   --charsets LIST  these: "none" (the default), or some of sjis, latin1, big5 with "," between
#   --gconv DIR      with their modules from this folder of the terminal's root
#   --in NAME        the folder is build/bundle-NAME
# Ends with 0, 1 when there can be no program, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

export LC_ALL=C.UTF-8 # the linker's words are looked at
# The parts of a C library that a program may name.
readonly C_LIBRARY='libc\.so.*|libm\.so.*|libpthread\.so.*|libdl\.so.*|librt\.so.*|ld-.*|libc\.musl.*'

# cached NAME: prints a value that CMake has found for the program.
cached()
{
    sed -n "s/^$1:[A-Z]*=//p" "$link/CMakeCache.txt"
}

# Ends unless the program needs what it may need, and is hardened.
check_program()
{
    local header dynamic symbols one
    local readelf
    readelf=$(cached CMAKE_READELF)
    header=$("$readelf" -hlW "$1")
    dynamic=$("$readelf" -dW "$1")
    [[ $header == *"DYN ("* && $header == *GNU_RELRO* && $dynamic == *BIND_NOW* ]] ||
        fail "the program is not position-independent with read-only relocations: is this linker old?"
    # Fortified calls are glibc's alone.
    symbols=$("$readelf" --dyn-syms -W "$1")
    [[ $symbols == *__stack_chk_fail* && ($dynamic != *"[libc.so.6]"* || $symbols =~ __[a-z]+_chk@) ]] ||
        fail "the program is without stack protector or fortified calls: has this compiler none?"
    [[ $dynamic != *TEXTREL* && ! $header =~ GNU_STACK.*RWE ]] ||
        fail "the program has writable code or an executable stack: of the platform's libraries?"
    needed=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<< "$dynamic")
    while read -r one; do
        [[ $one =~ ^($C_LIBRARY)$ || " ${shared[*]-} " == *" $one "* ]] ||
            fail "the program would need $one, which is neither the C library's nor named as the platform's"
    done <<< "$needed"
}

write_manifest()
{
    local one versions
    echo "qrcode $(cached CMAKE_PROJECT_VERSION), one file for the terminal: $variant"
    echo
    echo "build id: $("$(cached CMAKE_READELF)" -n "$1/qrcode" | sed -n 's/.*Build ID: //p')"
    echo "size: $(stat -c %s "$1/qrcode") bytes"
    echo "needs: $(tr '\n' ' ' <<< "$needed" | sed 's/ $//')"
    versions=$("$(cached CMAKE_READELF)" -VW "$1/qrcode" | grep -o 'GLIBC_[0-9.]*' | sort -uV | tail -n 1)
    [[ -z $versions ]] || echo "needs of the C library: $versions or newer"
    echo "character sets: $charsets"
    ((${#libraries[@]} > 0)) || echo "platform: simulated"
    for one in ${libraries[@]+"${libraries[@]}"}; do
        echo "platform: $(basename "$one"), sha256 $(sha256sum < "$one" | cut -d ' ' -f 1)"
    done
    echo
    cat "$libs/manifest.txt"
}

help_if_asked "$@"
charsets=none
name=
gconv=()
words=()
while (($# > 0)); do
    case $1 in
    --charsets | --gconv | --in)
        (($# >= 2)) || fail -2 "$1 wants a value; see $script --help"
        case $1 in
        --charsets) charsets=$2 ;;
        --gconv) gconv=(--gconv "$(realpath -m -- "$2")") ;;
        --in) name=$2 ;;
        esac
        shift
        ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *) words+=("$1") ;;
    esac
    shift
done
((${#words[@]} > 0)) || fail -2 "which variant? see $script --help"
variant=${words[0]}
name=${name:-$variant}
for word in "$variant" "$name"; do
    [[ $word =~ ^[A-Za-z0-9_][A-Za-z0-9_.-]*$ ]] || fail -2 "not a name for a variant or a folder: $word"
done

refuse_fuzz_libs "$variant"

libraries=() # of the platform, each a file
for path in "${words[@]:1}"; do
    [[ -e $path ]] || fail -2 "no such library or folder: $path"
    path=$(realpath -- "$path")
    [[ $path != *';'* ]] || fail -2 "a path with \";\" cannot be given to CMake: $path"
    found=("$path")
    if [[ -d $path ]]; then
        found=("$path"/lib*.a "$path"/lib*.so)
        for i in "${!found[@]}"; do
            [[ -e ${found[i]} ]] || unset "found[i]" # a pattern that nothing matches
        done
        ((${#found[@]} > 0)) || fail -2 "no lib*.a and no lib*.so in $path"
    fi
    libraries+=("${found[@]}")
done
shared=() # those of them that the terminal has to have, by the names that the program asks for
for path in ${libraries[@]+"${libraries[@]}"}; do
    [[ $path != *.so* ]] || shared+=("$(readelf -dW "$path" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')" "$(basename "$path")")
done

bundle=$project/build/bundle-$name
[[ ! -e $bundle || -f $bundle/SHA256SUMS ]] ||
    fail "$bundle is there, but this script did not make it; move it away"
own_build_root
one_at_a_time "bundle-$name"
work=$(mktemp -d "$project/build/.bundle.XXXXXX")
trap 'rm -rf "$work"; give_build_back' EXIT
trap 'exit 130' INT TERM HUP
made=$work/made
mkdir "$made"
cd "$project"
# First, for it judges the list.
scripts/charset-modules.sh "$variant" "$charsets" "$made/gconv" ${gconv[@]+"${gconv[@]}"}
libs=$project/build/libs-$variant
link=$project/build/link-$name
case $variant in
hard | soft | native) scripts/device-libs.sh "$variant" ;;
*)
    [[ -f $libs/variables ]] ||
        fail "build/libs-$variant is missing; make it with scripts/device-libs.sh $variant -DDEVICE_..."
    ;;
esac
over_words "$variant" "$libs"
if ((${#libraries[@]} > 0)); then
    platform=$(IFS=';' && echo "${libraries[*]}")
    definitions+=("-DQRCODE_SIMULATION=OFF" "-DQRCODE_PLATFORM=$platform")
else
    scripts/setup.sh build
    definitions+=("-DQRCODE_SIMULATION=ON" "-DQRCODE_PLATFORM=")
fi
own_build "link-$name"
# What CMake found of other libraries or of another compiler is not kept.
if ! cmp -s "$libs/made-from" "$link/libs-made-from"; then
    rm -rf "$link"
fi
if ! scripts/build.sh --in "link-$name" "${definitions[@]}" "$preset" qrcode; then
    missing=$(sed -n "s/.*undefined reference to [\`']\(HI_MPI_[A-Za-z0-9_]*\)'.*/\1/p" \
        "build/link-$name.log" | sort -u | tr '\n' ' ')
    [[ -z $missing ]] || fail "the platform lacks ${missing% }"
    exit 1
fi
cp "$libs/made-from" "$link/libs-made-from"

program=$link/qrcode_src/qrcode
check_program "$program"
objcopy=$(cached CMAKE_OBJCOPY)
"$objcopy" --only-keep-debug "$program" "$made/qrcode.debug"
"$objcopy" --strip-all --add-gnu-debuglink="$made/qrcode.debug" "$program" "$made/qrcode"
chmod 644 "$made/qrcode.debug"
write_manifest "$made" > "$made/manifest.txt"
(cd "$made" && find . -type f ! -name SHA256SUMS -printf '%P\0' | sort -z | xargs -0 sha256sum > "$work/sums")
mv "$work/sums" "$made/SHA256SUMS"
chmod 755 "$made"
[[ ! -e $bundle ]] || mv "$bundle" "$work/old"
mv -T "$made" "$bundle"
echo "build/bundle-$name/qrcode: $(stat -c %s "$bundle/qrcode") bytes, needs $(tr '\n' ' ' <<< "$needed" | sed 's/ $//')"
