#!/bin/bash
# usage: device-libs.sh [--without PATCH] VARIANT [-DVARIABLE=VALUE...]
# Builds what the service calls of OpenCV, zbar and libjpeg-turbo from Debian's source packages, Debian's
# patches and those in patches/ applied, as static archives into build/libs-VARIANT: include/, lib/ and
# manifest.txt, which says each library's version, patches, licence and options. The variants:
#   hard    Debian's compiler for ARM with hard float, Cortex-A7 with NEON
#   soft    ... with the soft-float calling convention (softfp)
#   native  this machine
#   sanitized  ... with clang's sanitizers for addresses and undefined behaviour, for scripts/fuzz.sh
#   covered    ... counting the lines that are reached
#   NAME    another toolchain: give the variables of cmake/arm-linux.cmake that differ, as
#           -DDEVICE_COMPILER_PREFIX=/opt/vendor/bin/arm-linux- -DDEVICE_FLOAT_ABI=softfp
#   --without PATCH  leaves out one patch of zbar's, Debian's or ours, named by a part of its name; into
#                    build/libs-VARIANT-without-PATCH. To see what the fuzzing finds without it.
# The sources are fetched and verified by apt into build/sources once, for all variants; remove that
# folder to get newer ones. With nothing changed since the last call nothing is done. An interrupted
# call leaves nothing half-made. A variant takes some 4 minutes on two cores, sanitized 6, and 30 MB; the sources
# 140 MB to download, and 150 MB.
# Ends with 0, 1 when something cannot be built, 2 on wrong usage.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

export LC_ALL=C.UTF-8 # the compiler's words are looked at
readonly SOURCES=(opencv zbar libjpeg-turbo zlib)
declare -rA LICENCES=(
    [opencv]="Apache-2.0"
    [zbar]="LGPL-2.1-or-later: whoever gets the program may ask for what is needed to link it anew"
    [libjpeg-turbo]="IJG and BSD-3-Clause"
    [zlib]="Zlib"
)
# How each is optimised: what brings most instructions down for its bytes, counted on ARM.
readonly OPENCV_OPTIMIZE=-Os # but for the files that cmake/opencv-files.cmake names
readonly ZBAR_OPTIMIZE=-O3
readonly ZBAR_OPTIMIZE_LINKING="-flto -ffat-lto-objects" # where the compiler can
readonly JPEG_OPTIMIZE=-O2

# Of OpenCV the three modules that the service links, without threads, plugins and tracing, and of
# picture formats JPEG alone; BMP comes along, there is no switch for it.
readonly OPENCV_OPTIONS=("-DBUILD_LIST=core,imgproc,imgcodecs" "-DWITH_JPEG=ON"
    "-DBUILD_INFO_SKIP_TIMESTAMP=ON")
readonly OPENCV_OFF=(BUILD_{SHARED_LIBS,JPEG,ZLIB} ENABLE_PIC
    WITH_IMGCODEC_{HDR,PFM,PXM,SUNRASTER} WITH_{GDAL,GDCM,JASPER,OPENEXR,OPENJPEG,PNG,TIFF,WEBP}
    WITH_{1394,ARAVIS,FFMPEG,GPHOTO2,GSTREAMER,GTK,QT,V4L,VA,VA_INTEL,VTK}
    WITH_{ADE,CAROTENE,CPUFEATURES,CUDA,EIGEN,HALIDE,IPP,ITT,LAPACK,OPENCL,PROTOBUF,QUIRC}
    WITH_{OPENMP,PTHREADS_PF,TBB} PARALLEL_ENABLE_PLUGINS CV_TRACE
    BUILD_{DOCS,JAVA,PERF_TESTS,TESTS,opencv_apps,opencv_python2,opencv_python3}
    ENABLE_PRECOMPILED_HEADERS OPENCV_GENERATE_SETUPVARS)
# A baseline that every PC has, as Debian's library, and code for better ones chosen at the start.
readonly OPENCV_NATIVE_OPTIONS=("-DCPU_BASELINE=SSE2" "-DCPU_BASELINE_DISABLE=SSE3")
# No arithmetic coding, which no camera writes, and no second interface.
readonly JPEG_OFF=(ENABLE_SHARED WITH_ARITH_{DEC,ENC} WITH_TURBOJPEG)

# Fetches the source packages and unpacks them, patched, into $work/sources.
fetch_sources()
(
    apt_configuration "$work/apt" deb-src
    export APT_CONFIG=$work/apt/apt.conf
    mkdir "$work/packages" && cd "$work/packages" || exit
    apt-get update || exit
    apt-get source --download-only "${SOURCES[@]}" || exit
    mkdir "$work/sources"
    for name in "${SOURCES[@]}"; do
        description=$(echo "$name"_*.dsc)
        dpkg-source --no-check --no-copy -x "$description" "$work/sources/$name" || exit
        cp "$description" "$work/sources/$name/debian/source-package.dsc" || exit
    done
    rm -rf "$work/sources/opencv/"{contrib,samples} "$work/packages"
)

# Prints what the libraries are made from and how: they are made anew when any of it changes. Where only
# lines of zbar's change, it alone is.
describe()
(
    sed 's/^/toolchain: /' "$work/check/toolchain.txt"
    printf 'variable: %s\n' ${toolchain[@]+"${toolchain[@]}"}
    cd "$sources" && sha256sum ./{libjpeg-turbo,opencv,zlib}/debian/source-package.dsc
    sha256sum ./zbar/debian/source-package.dsc | sed 's/^/zbar: /'
    { # what this script makes of them
        declare -f build build_zbar build_libraries
        declare -p OPENCV_{OPTIMIZE,OPTIONS,OFF,NATIVE_OPTIONS} ZBAR_OPTIMIZE{,_LINKING} JPEG_{OPTIMIZE,OFF} \
            lto simd opencv_target
    } | sha256sum
    cd "$project" && sha256sum "${how#"$project"/}" cmake/{opencv-files,arm-linux,arm-soft}.cmake
    find patches -name '*.patch' ! -path 'patches/zbar/*' -exec sha256sum {} + | sort -k 2
    find patches/zbar cmake/zbar -type f -exec sha256sum {} + | sort -k 2 | sed 's/^/zbar: /'
    echo "zbar: without $without"
)

# Prints the one patch of zbar's that has the word in its name.
patch_named()
{
    local all found=() one
    mapfile -t all < <(find "$sources/zbar/debian/patches" "$project/patches/zbar" -name '*.patch' | sort)
    for one in "${all[@]}"; do
        [[ ${one##*/} != *"$1"* ]] || found+=("$one")
    done
    ((${#found[@]} == 1)) ||
        fail -2 "--without $1: ${#found[@]} patches have this in their name; there are: ${all[*]##*/}"
    echo "${found[0]}"
}

# apply LIBRARY PATCH [OPTION]
apply()
{
    patch -d "$patched/$1" -p1 -F 0 "${@:3}" < "$2" || {
        echo "patch: error: $2 does not apply to $1"
        return 1
    }
}

# patch_sources LIBRARY...: copies their sources to $patched, and applies our patches there.
patch_sources()
{
    local name patch
    mkdir "$patched" && cp -a "${@/#/$sources/}" "$patched" || return
    [[ $left != */debian/* ]] || apply zbar "$left" -R || return
    for name in "$@"; do
        for patch in "$project/patches/$name"/*.patch; do
            [[ ! -f $patch || $patch == "$left" ]] || apply "$name" "$patch" || return
        done
    done
}

# off NAME...: leaves CMake options that switch these off in $options.
off()
{
    options=("${@/#/-D}")
    options=("${options[@]/%/=OFF}")
}

# build NAME SOURCE OPTIMISATION TARGET OPTION...: configures and builds one library in $work/NAME. What it
# finds of the others is in $work/made.
build()
{
    local name=$1 source=$2 optimise=$3 target=$4
    shift 4
    if [[ $how == */one-file.cmake ]]; then
        echo "-- $name $optimise $*" >> "$work/options"
        set -- -DONE_FILE_OPTIMIZE="$optimise" "$@"
    else
        echo "-- $name as in ${how#"$project"/} $*" >> "$work/options"
    fi
    cd "$work" || return # a check of libjpeg-turbo leaves a file where it runs
    cmake -G Ninja -S "$source" -B "$work/$name" ${toolchain[@]+"${toolchain[@]}"} -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_PROJECT_INCLUDE="$how" \
        -DONE_FILE_SOURCES="$cut" "$@" &&
        cmake --build "$work/$name" -j "$(nproc)" --target "$target"
}

build_zbar()
{
    build zbar "$project/cmake/zbar" "$ZBAR_OPTIMIZE$lto" zbar -DZBAR_SOURCE="$patched/zbar" &&
        cmake --install "$work/zbar" --prefix "$work/made"
}

build_libraries()
{
    local made=$work/made jpeg options
    if [[ -n $others ]]; then
        patch_sources zbar && mkdir "$made" && cp -a "$others"/{include,lib} "$made/" && build_zbar
        return
    fi
    patch_sources "${SOURCES[@]}" || return
    jpeg=$patched/libjpeg-turbo
    mkdir -p "$made"/{include,lib} || return
    off "${JPEG_OFF[@]}"
    build libjpeg-turbo "$jpeg" "$JPEG_OPTIMIZE" jpeg-static "${options[@]}" "${simd[@]}" || return
    cp "$work/libjpeg-turbo/libjpeg.a" "$made/lib/" &&
        cp "$jpeg"/{jpeglib,jmorecfg,jerror}.h "$work/libjpeg-turbo/jconfig.h" "$made/include/" || return

    build_zbar || return

    # zlib is for files that the service never has: OpenCV wants its header, the program nothing of it.
    off "${OPENCV_OFF[@]}"
    build opencv "$patched/opencv" "$OPENCV_OPTIMIZE" all "${OPENCV_OPTIONS[@]}" "${options[@]}" \
        "${opencv_target[@]}" \
        -DCMAKE_PROJECT_OpenCV_INCLUDE="$project/cmake/opencv-files.cmake" \
        -DZLIB_INCLUDE_DIR="$patched/zlib" -DZLIB_LIBRARY=not-linked \
        -DJPEG_INCLUDE_DIR="$made/include" -DJPEG_LIBRARY="$made/lib/libjpeg.a" || return
    cmake --install "$work/opencv" --prefix "$made" || return
    rm -rf "${made:?}"/{bin,share,lib/cmake}
    local archive # a disk may be full for a moment only
    for archive in opencv_{core,imgproc,imgcodecs} zbar jpeg; do
        ar t "$made/lib/lib$archive.a" > /dev/null || return
    done
}

# The manifest of what was built, for whoever ships it.
write_manifest()
{
    local name version patches
    echo "The libraries in the terminal's program, from Debian's source packages"
    echo
    sed -n 's/^compiler/compiler:/p; s/^flags/flags:/p; s/^compiled -O2/all compiled with:/p; s/^linked/the program linked with:/p' \
        "$work/check/toolchain.txt"
    for name in "${SOURCES[@]}"; do
        version=$(sed -n 's/^Version: //p' "$sources/$name/debian/source-package.dsc" | head -n 1)
        patches=$(
            sed 's/#.*//; s/[[:space:]]*$//; /^$/d; s/^/    /' "$sources/$name/debian/patches/series"
            cd "$project" && find patches -path "patches/$name/*.patch" | sort | sed 's/^/    /'
        )
        [[ $name != zbar || -z $without ]] || patches+=$'\n'"    but none named $without"
        echo
        echo "$name $version"
        echo "  licence: ${LICENCES[$name]}"
        echo "  checksum of the source package's description: $(sha256sum < \
            "$sources/$name/debian/source-package.dsc" | cut -d ' ' -f 1)"
        if [[ $name == zlib ]]; then
            echo "  nothing of it is in the program, its header is needed to build OpenCV"
            continue
        fi
        echo "  patches:"
        echo "${patches:-    none}"
        [[ $name != opencv ]] ||
            sed -nE 's/^set\(ONE_FILE_(O.) (.*)\)/  -\1 for the files \2/p' "$project/cmake/opencv-files.cmake"
        [[ $name != zbar ]] ||
            sed -nE 's/^target_compile_options\(zbar PRIVATE (-f.*)\)/  \1/p' "$project/cmake/zbar/CMakeLists.txt"
        echo "  options: $(sed -n "s|^-- $name ||p" "$work/options" | sed "s|$work/||g; s|$project/||g")"
    done
}

help_if_asked "$@"
without=
if [[ ${1-} == --without ]]; then
    (($# >= 2)) || fail -2 "--without wants a patch's name"
    [[ $2 =~ ^[A-Za-z0-9][A-Za-z0-9_.-]*$ ]] || fail -2 "--without: not a patch's name: $2"
    without=$2
    shift 2
fi
(($# > 0)) || fail -2 "which variant? hard, soft, native, sanitized, covered or a name of your own; see $script --help"
variant=$1
shift
[[ $variant != -* ]] || fail -2 "unknown option $variant, or no variant before it; see $script --help"
[[ $variant =~ ^[A-Za-z0-9_][A-Za-z0-9_.-]*$ ]] || fail -2 "not a name for a variant: $variant"
[[ $variant != @(hard|soft|native|sanitized|covered)-* ]] ||
    fail -2 "$variant reads as one of hard, soft, native, sanitized, covered; take another name"
variables=()
for argument in "$@"; do
    [[ $argument =~ ^-DDEVICE_(COMPILER_PREFIX|FLOAT_ABI|CPU_FLAGS|ROOT)=  ]] ||
        fail -2 "neither -DDEVICE_COMPILER_PREFIX= nor another variable of the toolchain: $argument"
    case $argument in # paths count from here; a prefix may be one
    -DDEVICE_ROOT=?* | -DDEVICE_COMPILER_PREFIX=*/*) argument=${argument%%=*}=$(realpath -ms -- "${argument#*=}") ;;
    esac
    variables+=("$argument")
done
case $variant in
hard | soft | native | sanitized | covered)
    (($# == 0)) || fail -2 "$variant is made with Debian's compiler; for another take a name of your own"
    ;;
*) (($# > 0)) || fail -2 "$variant is none of hard, soft, native, sanitized, covered: it wants a toolchain's -DDEVICE_ variables" ;;
esac

groups=(libs)
how=$project/cmake/one-file.cmake
minutes=4 # on two cores
toolchain=(-DCMAKE_TOOLCHAIN_FILE="$project/cmake/arm-linux.cmake" ${variables[@]+"${variables[@]}"})
case $variant in
soft) toolchain=(-DCMAKE_TOOLCHAIN_FILE="$project/cmake/arm-soft.cmake") ;;
native) toolchain=() ;;
sanitized | covered)
    groups=(fuzz)
    how=$project/cmake/sanitized.cmake
    minutes=6
    toolchain=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++)
    [[ $variant == sanitized ]] || toolchain+=(-DSANITIZED_COVERAGE=ON)
    ;;
esac
"$project/scripts/setup.sh" "${groups[@]}"

libs=$project/build/libs-$variant${without:+-without-$without}
sources=$project/build/sources
own_build_root
one_at_a_time "$(basename "$libs")"
[[ ! -e $libs || -f $libs/made-from ]] || fail "$libs is there, but this script did not make it; move it away"
work=$project/build/.$(basename "$libs") # always the same: its name gets into what is built
rm -rf "$work"
mkdir "$work"
patched=$work/sources
trap 'rm -rf "$work"; give_build_back' EXIT
trap 'exit 130' INT TERM HUP

# Ends after a step failed, with the last lines of what it said.
give_up()
{
    grep -m 5 -A 3 -E '^(E|Err|dpkg-source: error|CMake Error|FAILED|.* error):? ' "$work/log" >&2 ||
        tail -n 20 "$work/log" >&2
    cp "$work/log" "$project/build/libs-$variant.log"
    fail "$1 (all that was said: build/libs-$variant.log)"
}

check_toolchain()
{
    cmake -G Ninja -S "$project/cmake/toolchain-check" -B "$work/check" \
        ${toolchain[@]+"${toolchain[@]}"} -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_PROJECT_INCLUDE="$how"
}
with_progress "$work/log" "Trying the compiler" check_toolchain || give_up "no usable compiler for $variant"

get_sources()
(
    one_at_a_time sources
    if [[ ! -d $sources ]]; then
        with_progress "$work/log" "Fetching the sources" fetch_sources ||
            give_up "the sources cannot be fetched: is the network there?"
        mv -T "$work/sources" "$sources"
    fi
)
get_sources
lto=
! grep -q '^lto 1' "$work/check/toolchain.txt" || lto=" $ZBAR_OPTIMIZE_LINKING"
cut= # from file names
! grep -q '^prefix-map 1' "$work/check/toolchain.txt" || cut=$patched
simd=()
opencv_target=()
if grep -q '^arm 1' "$work/check/toolchain.txt"; then
    if grep -q '^neon 1' "$work/check/toolchain.txt"; then
        simd=(-DREQUIRE_SIMD=ON)
        opencv_target=(-DENABLE_NEON=ON)
    else
        echo "$script: this compiler makes code without NEON (flags: $(
            sed -n 's/^flags //p' "$work/check/toolchain.txt")); readings will be slow" >&2
        simd=(-DWITH_SIMD=OFF)
        opencv_target=(-DENABLE_NEON=OFF)
    fi
else
    simd=(-DREQUIRE_SIMD=ON)
    opencv_target=("${OPENCV_NATIVE_OPTIONS[@]}")
fi
if [[ $how == */sanitized.cmake ]]; then
    lto=
    simd=(-DWITH_SIMD=OFF)            # no sanitizer sees into assembler
    opencv_target+=("-DCPU_DISPATCH=") # vectors of 16 bytes, as the terminal's
fi
left= # the patch that is left out
if [[ -n $without ]]; then
    left=$(patch_named "$without")
    "$project/scripts/$script" "$variant" "$@"
fi
describe > "$work/description"
if [[ -f $libs/made-from ]] && cmp -s "$work/description" "$libs/made-from"; then
    exit 0
fi

# Where the others are as they would be made, zbar alone is made.
others=$project/build/libs-$variant
: > "$work/options"
if [[ -f $others/made-from ]] && cmp -s <(grep -v '^zbar: ' "$work/description") <(grep -v '^zbar: ' "$others/made-from"); then
    grep -v '^-- zbar ' "$others/options" > "$work/options"
    echo "Building zbar for $variant ..." >&2
else
    others=
    echo "Building OpenCV, zbar and libjpeg-turbo for $variant (some $minutes minutes) ..." >&2
fi
with_progress "$work/log" "Building the libraries" build_libraries || give_up "the libraries for $variant cannot be built"
write_manifest > "$work/made/manifest.txt"
sed "s|$work/||g; s|$project/||g" "$work/options" > "$work/made/options"
printf '%s' "${variables[@]/%/$'\n'}" > "$work/made/variables" # of the toolchain, for what is linked with these
cp "$work/description" "$work/made/made-from"
[[ ! -e $libs ]] || mv "$libs" "$work/old"
mv -T "$work/made" "$libs"
rm -f "$project/build/libs-$variant.log"
