#!/bin/bash
# usage: charset-modules.sh VARIANT LIST FOLDER [--gconv DIR]
# Puts into FOLDER what GCONV_PATH has to name on the terminal so that the service reads with just the
# character sets of LIST: "none", or some of sjis, latin1, big5 with "," between. Those modules of the C
# library, and a file gconv-modules with their lines and, for the others, lines that keep the C library
# from looking for them, whatever the terminal's own folder holds. docs/device.md tells which to choose.
# Modules go with one version of the C library. They come
#   hard    from Debian's armhf package of the version that its cross compiler has
#   soft    ... from its armel package
#   native  from this machine
#   NAME    of another toolchain: from DIR, the folder that holds gconv-modules in its root, as
#           SYSROOT/usr/lib/gconv
# --gconv DIR takes them from there for any variant. Debian's packages are fetched and verified by apt into
# build/gconv-VARIANT once; remove that folder to get a newer one. FOLDER is made, or replaced when this
# script made it.
# Ends with 0, 1 when a module cannot be had, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly CHARSETS=(sjis latin1 big5)
declare -rA MODULES=([sjis]=SJIS [latin1]=ISO8859-1 [big5]=BIG5) # files, without .so
declare -rA NAMES=([sjis]=SJIS// [latin1]=ISO-8859-1// [big5]=BIG5//)
declare -rA PACKAGES=([hard]=armhf [soft]=armel)
declare -rA COMPILERS=([hard]=arm-linux-gnueabihf-gcc [soft]=arm-linux-gnueabi-gcc)
readonly BARRED=left-out # a module that there is none of
readonly MADE="# Made by charset-modules.sh" # begins the file gconv-modules of a FOLDER

# Fetches the C library's package of this architecture, unpacks it, and leaves its modules in $2.
fetch_modules()
(
    apt_configuration "$work/apt" deb "$1"
    export APT_CONFIG=$work/apt/apt.conf
    mkdir "$work/package"
    cd "$work/package"
    # Without one of the lists there may be an older package, verified by another list: it is told.
    apt-get update || touch "$work/lists-missing"
    apt-get download libc6 || exit
    dpkg-deb --extract libc6_*.deb root || exit
    mkdir "$work/gconv"
    cp -r root/usr/lib/*/gconv/. "$work/gconv/" || exit
    dpkg-deb --field libc6_*.deb Version > "$work/gconv/version"
    rm -rf "$2"
    mv "$work/gconv" "$2"
)

# The modules of a variant that Debian has a compiler for.
modules_of_debian()
{
    local compiler=${COMPILERS[$1]} package wanted
    gconv=$project/build/gconv-$1
    "$project/scripts/setup.sh" device
    own_build_root
    if [[ ! -f $gconv/version ]]; then
        if ! with_progress "$work/log" "Fetching the C library" fetch_modules "${PACKAGES[$1]}" "$gconv"; then
            grep -m 5 -E '^(E|W|Err|dpkg-deb: error)' "$work/log" >&2 || tail -n 20 "$work/log" >&2
            fail "Debian's libc6 of ${PACKAGES[$1]} cannot be fetched: is the network there?"
        fi
    fi
    package=$(< "$gconv/version")
    [[ ! -e $work/lists-missing ]] ||
        echo "$script: not every package list can be had; taking libc6 $package ($(
            grep -m 1 '^E:' "$work/log"))" >&2
    wanted=$(echo '__GLIBC__.__GLIBC_MINOR__' | "$compiler" -include features.h -E -P - | tr -d ' ' | tail -n 1)
    [[ ${package%%-*} == "$wanted" ]] ||
        fail "the modules are of C library ${package%%-*}, $compiler has $wanted; remove $gconv, or give --gconv"
}

# Prints gconv-modules for the chosen sets.
write_configuration()
{
    local set
    echo "$MADE: ${chosen[*]:-none} of ${CHARSETS[*]}, and none of the others."
    for set in "${CHARSETS[@]}"; do
        echo
        if [[ " ${chosen[*]} " == *" $set "* ]]; then
            awk -v name="${NAMES[$set]}" -v module="${MODULES[$set]}" \
                '$1 == "alias" && $3 == name || $1 == "module" && $4 == module' "${configuration[@]}"
        else
            printf 'module\t%s\tINTERNAL\t%s\t1\n' "${NAMES[$set]}" "$BARRED"
        fi
    done
}

help_if_asked "$@"
gconv=
words=()
while (($# > 0)); do
    case $1 in
    --gconv)
        (($# >= 2)) || fail -2 "--gconv wants a folder"
        gconv=$2
        [[ -f $gconv/gconv-modules ]] || fail -2 "--gconv: no file gconv-modules in $gconv"
        shift
        ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *) words+=("$1") ;;
    esac
    shift
done
arguments 3 3 ${words[@]+"${words[@]}"}
variant=${words[0]} list=${words[1]} folder=$(realpath -m -- "${words[2]}")
chosen=()
if [[ $list != none ]]; then
    mapfile -t -d , asked < <(printf '%s,' "$list")
    for word in "${asked[@]}"; do
        [[ -n $word && -n ${MODULES[$word]-} ]] ||
            fail -2 "no character set \"$word\"; there are ${CHARSETS[*]}, with \",\" between, or none"
    done
    for set in "${CHARSETS[@]}"; do
        [[ ",$list," != *",$set,"* ]] || chosen+=("$set")
    done
fi
[[ -n $gconv || $variant == @(hard|soft|native) || $list == none ]] ||
    fail -2 "$variant is none of hard, soft, native: it wants --gconv"
if [[ -e $folder ]] && ! grep -qs "^$MADE" "$folder/gconv-modules"; then
    fail "$folder is there, but this script did not make it; move it away"
fi

mkdir -p "$(dirname "$folder")"
work=$(mktemp -d "$folder.XXXXXX")
trap 'rm -rf "$work"; give_build_back' EXIT
trap 'exit 130' INT TERM HUP
if [[ -z $gconv && ${#chosen[@]} -gt 0 ]]; then
    case $variant in
    native) gconv=/usr/lib/$(gcc -print-multiarch)/gconv ;;
    *) modules_of_debian "$variant" ;;
    esac
fi
configuration=()
for file in "$gconv"/gconv-modules "$gconv"/gconv-modules.d/*.conf; do
    [[ ! -f $file ]] || configuration+=("$file")
done

mkdir "$work/made"
for set in ${chosen[@]+"${chosen[@]}"}; do
    module=$gconv/${MODULES[$set]}.so
    [[ -f $module ]] || fail "no module for $set: $module"
    install -m 644 "$module" "$work/made/"
done
write_configuration > "$work/made/gconv-modules"
for set in ${chosen[@]+"${chosen[@]}"}; do
    grep -q "^module[[:space:]]*${NAMES[$set]}[[:space:]]*INTERNAL[[:space:]]*${MODULES[$set]}[[:space:]]" \
        "$work/made/gconv-modules" || fail "no line for $set in ${configuration[*]:-$gconv}"
done
chmod 755 "$work/made"
[[ ! -e $folder ]] || mv "$folder" "$work/old"
mv "$work/made" "$folder"
