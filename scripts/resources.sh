#!/bin/bash
# Measures what the service takes of the machine: peak memory beside a program that links the same
# libraries and does nothing, CPU time of an idle minute, time from its start to its hello:
# resources.sh (two minutes; keep the machine quiet).
set -euo pipefail

readonly READING_S=8  # of readings, for each picture
readonly IDLE_S=60
readonly STARTS=21
readonly PEER_PORT_HEX=2710 # 10000

self=$(readlink -f "${BASH_SOURCE[0]}")
project=$(dirname "$(dirname "$self")")
build=$project/build/release
service=$build/qrcode_src/qrcode
panel=$build/sim/panel/panel

# Starts the panel with the arguments, and waits until it listens. What it prints goes to /tmp/panel.
start_panel()
{
    "$panel" --json "$@" > /tmp/panel 2> /tmp/panel.err &
    panel_pid=$!
    until grep -q ":$PEER_PORT_HEX " /proc/net/udp; do
        kill -0 "$panel_pid" 2> /dev/null || {
            cat /tmp/panel.err >&2
            exit 1
        }
        sleep 0.02
    done
}

# Waits for a line of the panel; fails after 20 s.
await()
{
    local tries
    for ((tries = 0; tries < 2000; ++tries)); do
        grep -q "$1" /tmp/panel && return
        sleep 0.01
    done
    echo "resources.sh: the panel never saw $1" >&2
    exit 1
}

# Starts a program under "time" and sets `pid` to it.
start_timed()
{
    rm -f /tmp/pid
    # shellcheck disable=SC2016
    /usr/bin/time -v -o /tmp/usage bash -c 'echo $$ > /tmp/pid; exec "$0"' "$1" > /dev/null 2>&1 &
    time_pid=$!
    until [[ -s /tmp/pid ]]; do sleep 0.01; done
    pid=$(cat /tmp/pid)
}

# Ends it and sets `peak` to its peak memory in KiB.
end_timed()
{
    kill "$pid"
    wait "$time_pid" || true
    peak=$(sed -n 's/.*Maximum resident set size (kbytes): //p' /tmp/usage)
}

present_kib()
{
    awk '$1 == "VmRSS:" { print $2 }' "/proc/$1/status"
}

# ns on a processor, of all threads.
cpu_ns()
{
    awk '{ sum += $1 } END { printf "%d", sum }' "/proc/$1"/task/*/schedstat
}

# Inside a world: present and peak memory of the libraries alone, in KiB.
measure_baseline()
{
    start_timed "$build/bench/baseline"
    sleep 1
    local present
    present=$(present_kib "$pid")
    end_timed
    echo "$present $peak"
}

# Inside a world: memory of the service in KiB: before any reading, after some of picture $1, and its
# peak.
measure_memory()
{
    "$build/bench/camera_jpeg" "$1" > /tmp/picture.jpg
    printf 'picture jpeg /tmp/picture.jpg\nframe-ms 0\n' > /tmp/script
    export QRCODE_SIM_SCRIPT=/tmp/script
    start_panel --no-enable
    start_timed "$service"
    await '"0x604"'
    sleep 1
    local before present
    before=$(present_kib "$pid")
    # A datagram of the 20 bytes of 0x903.
    printf '\x56\x34\0\0\x03\x09\0\0\1\0\0\0\0\0\0\0\0\0\0\0' > /dev/udp/127.0.0.1/10010
    sleep "$READING_S"
    present=$(present_kib "$pid")
    end_timed
    echo "$before $present $peak"
}

# Inside a world: us of CPU time in the idle time; $1 is the mode, 0 parks the service.
measure_idle()
{
    start_panel --no-enable --mode "$1"
    "$service" > /dev/null 2>&1 &
    await '"0x604"'
    sleep 2
    local before
    before=$(cpu_ns $!)
    sleep "$IDLE_S"
    echo "$((($(cpu_ns $!) - before) / 1000))"
}

# Inside a world: ms from the start to the hello's arrival, one a line.
measure_starts()
{
    local i begin pid
    start_panel --mode 0
    for ((i = 1; i <= STARTS; ++i)); do
        begin=$EPOCHREALTIME
        "$service" > /dev/null 2>&1 &
        pid=$!
        until (($(grep -c '"0x602"' /tmp/panel) == i)); do
            kill -0 "$pid"
            sleep 0.01
        done
        kill "$pid"
        wait "$pid" 2> /dev/null || true
        grep '"0x602"' /tmp/panel | tail -n 1 | sed 's/.*"time":\([0-9.]*\).*/\1/' |
            awk -v begin="$begin" '{ printf "%.2f\n", ($1 - begin) * 1000 }'
    done
}

if [[ ${1-} == --inside ]]; then
    "measure_$2" "${@:3}"
    exit
fi
if (($# > 0)); then
    sed -n '2,/^set /{/^#/s/^# \{0,1\}//p}' "$self"
    [[ $1 == -h || $1 == --help ]] && exit 0
    exit 2
fi
cd "$project"
scripts/setup.sh bench
scripts/build.sh release qrcode panel baseline camera_jpeg

inside()
{
    scripts/private-world.sh -- "$self" --inside "$@"
}

read -r present baseline < <(inside baseline)
printf '%-50s %9s %9s %9s\n' "memory, KiB" "at first" "reading" "peak"
printf '%-50s %9d %9s %9d\n' "the libraries, nothing done with them" "$present" - "$baseline"
for picture in plain overexposed no-code-wall; do
    read -r before reading peak < <(inside memory "samples/$picture.png")
    printf '%-50s %9d %9d %9d\n' "the service on $picture.png" "$before" "$reading" "$peak"
    printf '%-50s %9d %9d %9d\n' "... above the libraries" \
        "$((before - present))" "$((reading - present))" "$((peak - baseline))"
done

echo
inside idle 0 > build/parked-us &
parked=$!
idle=$(inside idle 1)
wait "$parked"
printf '%-50s %9.2f ms\n' "CPU time of $IDLE_S s, scanning switched off" "$(awk -v us="$idle" 'BEGIN { print us / 1000 }')"
printf '%-50s %9.2f ms\n' "... parked" "$(awk '{ print $1 / 1000 }' build/parked-us)"
rm build/parked-us

echo
inside starts | sort -n | awk '{ ms[NR] = $1 } END {
    printf "%-50s %9.1f ms (%.1f .. %.1f, %d starts)\n", "start to hello, median",
        ms[int((NR + 1) / 2)], ms[1], ms[NR], NR }'
