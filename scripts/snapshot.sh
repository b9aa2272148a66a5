#!/bin/sh
# usage: snapshot.sh [OPTION...] OUT.jpg
# Saves the next snapshot that the running service takes, byte for byte, and leaves the service running:
# for inspect.sh --snapshot. Runs on the terminal, where it needs gdb, the rights of the service's user
# or root, and scanning switched on. Copy this one file there; it is written for any POSIX shell.
#   --pid PID       of the service; else there must be one process named qrcode
#   --symbols FILE  of the same build, when the running one is stripped: the bundle's qrcode.debug; the
#                   installation keeps the unstripped one as symbols/qrcode-BUILD_ID in the build folder
#   --wait SECONDS  for the next snapshot, 10 by default
# The file has 480,000 bytes, zeros behind the JPEG; they do no harm.
# Ends with 0, 1 when there is no snapshot, with the reason, 2 on wrong usage, 130 when interrupted.
set -u

SHOWN=480000 # bytes of a snapshot that the service shows its decoder
ATTACH_S=60 # for gdb to read symbols and take hold, on a slow terminal too
FUNCTION=QrcodeVenc_CopyStreamData

fail()
{
    echo "snapshot.sh: $1" >&2
    exit "${2:-1}"
}

# Prints the build id, or nothing. Without readelf, which a terminal seldom has: a note of 4 + 20 bytes,
# type 3, of "GNU", little-endian.
build_id()
{
    head -c 65536 "$1" 2> /dev/null | od -An -v -tx1 | tr -d ' \n' |
        sed -n 's/.*040000001400000003000000474e5500\([0-9a-f]\{40\}\).*/\1/p'
}

pid='' symbols='' seconds=10 out=''
while [ $# -gt 0 ]; do
    case $1 in
    -h | --help)
        sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
        exit
        ;;
    --pid | --symbols | --wait)
        [ $# -ge 2 ] || fail "$1 wants a value" 2
        case $1 in
        --pid) pid=$2 ;;
        --symbols) symbols=$2 ;;
        --wait) seconds=$2 ;;
        esac
        shift
        ;;
    -*) fail "unknown option $1; see snapshot.sh --help" 2 ;;
    *)
        [ -z "$out" ] || fail "unexpected argument $1; see snapshot.sh --help" 2
        out=$1
        ;;
    esac
    shift
done
[ -n "$out" ] || fail "no file to save to; see snapshot.sh --help" 2
case $seconds in
'' | *[!0-9]* | 0* | ?????*) fail "--wait: not a number from 1 to 9999: $seconds" 2 ;;
esac
if [ -n "$symbols" ]; then
    if [ ! -f "$symbols" ] || [ ! -r "$symbols" ]; then
        fail "--symbols: no such file: $symbols" 2
    fi
    symbols=$(cd "$(dirname "$symbols")" && pwd)/$(basename "$symbols")
fi

folder=$(dirname -- "$out")
if [ -e "$out" ] && [ ! -f "$out" ] || [ ! -d "$folder" ] || [ ! -w "$folder" ]; then
    fail "cannot write $out"
fi

for tool in gdb od; do
    command -v $tool > /dev/null || fail "$tool is not installed here"
done
if [ -z "$pid" ]; then
    pid=$(pidof qrcode) || fail "no process named qrcode runs here; --pid names another"
    case $pid in
    *' '*) fail "several processes are named qrcode: $pid; --pid names the one" ;;
    esac
fi
case $pid in
*[!0-9]*) fail "--pid: not a number: $pid" 2 ;;
esac
[ -d "/proc/$pid" ] || fail "no process $pid"
machine=$(od -An -tx1 -j18 -N1 "/proc/$pid/exe" 2> /dev/null | tr -d ' ')
# At its first instruction, where the function's second argument is: the picture buffer.
case $machine in
28) buffer=r1 ;;  # ARM, 32 bits
b7) buffer=x1 ;;  # ARM, 64 bits
3e) buffer=rsi ;; # x86, 64 bits
'') fail "not permitted to look into process $pid: run it as root" ;;
*) fail "process $pid: a program for an unknown processor (ELF machine 0x$machine)" ;;
esac
if [ -n "$symbols" ]; then
    running=$(build_id "/proc/$pid/exe")
    given=$(build_id "$symbols")
    [ "$running" = "$given" ] ||
        fail "$symbols is of another build: ${given:-without a build id}; running: ${running:-without}"
fi

work=$(mktemp -d) || fail "no temporary folder"
gdb='' new=''
# gdb is asked to end, not killed: it has to take its breakpoint out of the service again.
end_gdb()
{
    [ -z "$gdb" ] || { kill "$gdb" && wait "$gdb"; } 2> /dev/null
    gdb=''
}
trap 'end_gdb; rm -rf "$work" ${new:+"$new"}' EXIT
trap 'exit 130' INT TERM HUP

cat > "$work/commands" << END
set pagination off
set confirm off
break *$FUNCTION
echo waiting\n
continue
set \$picture = \$$buffer
finish
dump binary memory picture \$picture \$picture+$SHOWN
detach
END
: > "$work/log"
# gdb must not go and fetch symbols from the network.
(cd "$work" && DEBUGINFOD_URLS='' exec gdb -nx -batch ${symbols:+-s "$symbols"} -p "$pid" -x commands) \
    > "$work/log" 2>&1 < /dev/null &
gdb=$!
echo "Waiting for the next snapshot of process $pid, $seconds s at most ..." >&2
# log_has TEXT
log_has()
{
    grep -q -e "$1" "$work/log"
}
waited=0 limit=$ATTACH_S attached=''
while kill -0 "$gdb" 2> /dev/null && [ $waited -lt "$limit" ]; do
    sleep 1
    waited=$((waited + 1))
    if [ -z "$attached" ] && log_has '^waiting'; then
        waited=0 limit=$seconds attached=1
    fi
done
if kill -0 "$gdb" 2> /dev/null; then
    end_gdb
    [ -n "$attached" ] || fail "gdb did not get hold of process $pid within $waited s"
    [ -s "$work/picture" ] ||
        fail "no snapshot within $waited s: is scanning off, the mode 0, or the service parked?"
fi
wait "$gdb" 2> /dev/null
gdb=''
if [ ! -s "$work/picture" ]; then
    if log_has 'ptrace: Operation not permitted' || log_has 'ptrace: Permission denied'; then
        fail "not permitted to trace process $pid, or another debugger does: run it as root"
    elif log_has 'No symbol' || log_has 'not defined'; then
        fail "the running program is stripped: name its unstripped twin with --symbols"
    fi
    cat "$work/log" >&2
    fail "gdb saved nothing (the lines above)"
fi
[ "$(od -An -tx1 -N2 "$work/picture" | tr -d ' ')" = ffd8 ] ||
    fail "the encoder gave no picture; the service's standard error says why"
new=$(mktemp "$out.XXXXXX") || fail "cannot write $out"
{ cat "$work/picture" > "$new" && chmod 644 "$new" && mv -f -- "$new" "$out"; } || fail "cannot write $out"
