#!/bin/bash
# usage: supervised.sh [--times N] [--only-time] [systemd|busybox]...
# Runs the one file as on a terminal, under systemd with docs/device/qrcode.service and under BusyBox init
# with docs/device/inittab, each the first process of namespaces of its own with a small terminal's root in
# memory, BusyBox's tools, the simulated platform and a panel. Nothing of this machine is changed.
# Prints the time from the end of the service to its next result; whether it comes back where its log cannot be
# prepared, and the like; and what the confined service can still do: a program in its place tries each thing
# (sim/intruder). The same program then runs unconfined: a refusal counts only where the try works there.
#   --times N    end the service N times by a signal and N times by a picture (default 20)
#   --only-time  skip the intruder
# Takes 3 minutes. Needs root. For systemd also control groups of version 1, with version 2 beside them
# ("hybrid"): the trial was never run under version 2 alone.
# Ends with 0, 1 when something does not hold, 2 on wrong usage, 125 when this machine can make no such
# world, with the reason ("skipped: ..."); nothing is installed or built then.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

readonly EXIT_NO_WORLD=125
readonly CONTROL_GROUPS=/sys/fs/cgroup
readonly CONTROLLERS=(memory devices pids) # that the unit's limits are of
readonly SERVICE_USER=990 # any that is free
readonly WRONG_USAGE=200 # the intruder's

skip()
{
    echo "skipped: $*" >&2
    exit $EXIT_NO_WORLD
}

# What a confined service can still do. The loopback and its devices are meant.
allowed()
{
    case $1 in
    systemd) echo " loopback media-node " ;;
    busybox) echo " code connect-outside device ipv6-socket listen loopback media-node namespace read-database" \
        "read-passwd send-outside shell thread-end unix-socket " ;;
    esac
}

# Not tried under qrcode-start: it has no memory limit besides the one on addresses.
not_tried()
{
    [[ $1 == busybox && $2 == memory-group ]]
}

# The control groups that this script is in, one of each hierarchy that systemd uses, as folders.
own_groups()
{
    local name wanted controllers path folder
    for name in "${CONTROLLERS[@]}" systemd unified; do
        case $name in # as /proc names them
        systemd) wanted=name=systemd ;;
        unified) wanted= ;;
        *) wanted=$name ;;
        esac
        folder=$CONTROL_GROUPS/$name
        while IFS=: read -r _ controllers path; do
            # In a container the path may be the machine's, and the hierarchy's root is the container's group.
            if [[ ,$controllers, == *",$wanted,"* && -d $folder$path ]]; then
                folder=$folder${path%/}
                break
            fi
        done < /proc/self/cgroup
        echo "$folder"
    done
}

# Ends with 125 unless systemd can have control groups here.
look_at_groups()
{
    local folder
    # With version 2 alone this script's own processes, in the root of the init's groups, would keep it from
    # handing the controllers down, and the unit's limits would not be in force.
    [[ $(stat -f -c %T "$CONTROL_GROUPS" 2> /dev/null) != cgroup2fs ]] ||
        skip "systemd has control groups of version 2 alone here, which this was never run under;" \
            "\"$script busybox\" needs none"
    while read -r folder; do
        [[ -w $folder/cgroup.procs ]] || skip "no control groups at $folder"
    done < <(own_groups)
}

# Leaves the groups made for a world, for those that this script came from, and removes them.
leave_groups()
{
    local folder
    for folder in ${groups[@]+"${groups[@]}"}; do
        echo $$ > "${folder%/*}/cgroup.procs"
        # Its last processes are still ending.
        for ((i = 0; i < 100; ++i)); do
            find "$folder" -depth -type d -exec rmdir {} + 2> /dev/null || true
            [[ -d $folder ]] || break
            sleep 0.05
        done
        [[ ! -d $folder ]] || echo "$script: left behind: $folder" >&2
    done
    groups=()
}

# Makes groups for a world, below this script's own: their limits hold for it, too.
enter_groups()
{
    local folder
    groups=()
    while read -r folder; do
        folder=$folder/qrcode-trial-$$
        mkdir "$folder"
        groups+=("$folder")
        echo $$ > "$folder/cgroup.procs"
    done < <(own_groups)
}

# Ends the init, and with it all that runs in its namespaces.
end_world()
{
    local one
    # By itself it ends on the hang-up of its terminal only, which nohup takes away.
    [[ -z $pid ]] || pkill -KILL -P "$pid" || true
    for one in $watcher $pid; do
        kill -KILL "$one" 2> /dev/null || true
        wait "$one" 2> /dev/null || true
    done
    pid='' watcher=''
    leave_groups
}

# The parts of the terminal's root that are ours, and the trial's own additions to the unit.
prepare()
{
    local kind=$1
    mkdir -p "$work"/{root,etc/systemd/system/qrcode.service.d,usr/bin,usr/lib/qrcode,trial/scene}
    cp build/bundle-native/qrcode "$work/usr/bin/"
    cp docs/device/{qrcode-start,qrcode-prepare,S90qrcode} build/release/sim/intruder/intruder "$work/usr/lib/qrcode/"
    cp -r build/bundle-native/gconv "$work/usr/lib/qrcode/"
    cp build/release/sim/{panel/panel,intruder/intruder} scripts/inside/main-application "$work/trial/"
    build/release/bench/scanned_pictures frames "$work/trial/scene" samples/plain.png > /dev/null
    mv "$work/trial/scene/samples_plain.png.jpg" "$work/trial/scene/code.jpg"
    cp fuzz/seeds/reading/long-side.jpg "$work/trial/scene/fatal.jpg"
    chmod -R go+rX "$work"
    cat > "$work/etc/passwd" << EOF
root:x:0:0::/root:/bin/sh
qrcode:x:$SERVICE_USER:$SERVICE_USER::/:/bin/false
EOF
    printf 'root:x:0:\nqrcode:x:%s:\n' "$SERVICE_USER" > "$work/etc/group"
    echo "root:*::0:::::" > "$work/etc/shadow"
    chmod 600 "$work/etc/shadow"
    tr -d - < /proc/sys/kernel/random/uuid > "$work/etc/machine-id"
    cat > "$work/etc/inittab" << EOF
::once:/trial/main-application start busybox $times $probes
$(grep -v '^#' docs/device/inittab)
EOF

    local units=$work/etc/systemd/system name
    for name in basic sysinit shutdown; do
        printf '[Unit]\nDescription=%s\nDefaultDependencies=no\n' "$name" > "$units/$name.target"
    done
    # The main application brings the service, as the unit's own last section has it.
    printf '[Unit]\nWants=main-application.service\n' > "$units/terminal.target"
    cat > "$units/main-application.service" << EOF
[Service]
Type=forking
ExecStart=/trial/main-application start $kind $times $probes
EOF
    cp docs/device/{qrcode,qrcode-prepare}.service "$units/"
    [[ $kind != systemd ]] || systemctl --quiet --root="$work" enable qrcode.service
    # The simulated platform's script and pictures, a node in the media nodes' place, and its own calls.
    cat > "$units/qrcode.service.d/trial.conf" << EOF
[Service]
Environment=QRCODE_SIM_SCRIPT=/trial/scene/script
BindReadOnlyPaths=/trial/scene
BindPaths=/dev/media-node
DeviceAllow=/dev/media-node rw
SystemCallFilter=timerfd_create timerfd_settime timerfd_settime64
EOF
    # The same unit with the intruder in the service's place, once.
    sed -e 's,^ExecStart=.*,ExecStart=/usr/lib/qrcode/intruder try %i,' -e '/^Restart/d' -e '/^Requires/d' \
        -e '/^Wants/d' -e '/^After/d' docs/device/qrcode.service > "$units/intruder@.service"
    cp -r "$units/qrcode.service.d" "$units/intruder@.service.d"
    cat > "$units/intruder@.service.d/once.conf" << EOF
[Service]
Type=oneshot
RemainAfterExit=yes
StandardOutput=append:/trial/tried
EOF
    mkdir "$units/intruder@memory-group.service.d"
    printf '[Service]\nLimitAS=infinity\n' > "$units/intruder@memory-group.service.d/addresses.conf"
}

# summary NAME: median and worst of the times in ms in column 3 - column 2.
summary()
{
    awk -v name="$1" '$1 == name { printf "%.0f\n", ($3 - $2) * 1000 }' "$work/trial/seen" | sort -n |
        awk '{ t[NR] = $1 } END { printf "median %5d ms, worst %5d ms, of %d", t[int((NR + 1) / 2)], t[NR], NR }'
}

# Says how the intruder ended, and ends with 0 when its try succeeded.
outcome()
{
    local status=$1
    [[ $status != 0 ]] || { echo "can" && return 0; }
    if ((status >= WRONG_USAGE)); then # systemd's own are there, too
        echo "not tried, status $status"
    elif ((status > 128)); then
        echo "ended, SIG$(kill -l "$((status - 128))")"
    else
        echo "refused, $(python3 -c 'import errno, sys; print(errno.errorcode[int(sys.argv[1])])' "$status")"
    fi
    return 1
}

report()
{
    local kind=$1 name words line status control wanted seen=$work/trial/seen
    echo "$kind, from the end to the next result:"
    echo "  ended by a segmentation fault  $(summary segv)"
    echo "    of these until the hello     $(summary hello)"
    echo "  ended by a picture             $(summary picture)"
    sed -n 's/^told /  /p' "$seen"
    [[ -n $probes ]] || return 0
    echo "$kind, what can be done in the service's place:"
    wanted=$(allowed "$kind")
    while IFS=$'\t' read -r name words; do
        if not_tried "$kind" "$name"; then
            printf '  %-20s %-50s -\n' "$name" "$words"
            continue
        fi
        (($(grep -cx "trying $name" "$work/trial/tried") == 2)) || wrong "$name: did not begin, confined or not"
        line=$(grep "^confined $name " "$seen") || { wrong "$name: no outcome" && continue; }
        case $line in
        *ExecMainCode=1*) status=${line##*ExecMainStatus=} ;;
        *ExecMainCode=[23]*) status=$((128 + ${line##*ExecMainStatus=})) ;;
        *) status=${line##* } ;;
        esac
        control=$(sed -n "s/^control $name //p" "$seen")
        [[ $control == 0 ]] || wrong "$name: cannot be done here at all ($(outcome "$control"))"
        line=$(outcome "$((status))") || true
        printf '  %-20s %-50s %s\n' "$name" "$words" "$line"
        if [[ $wanted == *" $name "* ]]; then
            [[ $line == can ]] || wrong "$name: $line, and is wanted"
        else
            [[ $line == refused* || $line == ended* ]] || wrong "$name: $line"
        fi
    done < <(build/release/sim/intruder/intruder list)
}

wrong()
{
    echo "WRONG: $*"
    failed=1
}

run()
{
    local kind=$1 words
    work=$(mktemp -d "$project/build/.supervised.XXXXXX")
    chmod 755 "$work"
    prepare "$kind"
    # Read even where the init or what it starts does not come to write them.
    : > "$work/init"
    : > "$work/trial/seen"
    : > "$work/trial/printed"
    : > "$work/trial/tried"
    [[ $kind != systemd ]] || enter_groups
    # On a terminal of its own, for that is where an init tells what is wrong.
    printf -v words '%q ' unshare --fork --pid --kill-child --mount --net --ipc --uts --cgroup \
        "$project/scripts/inside/terminal-root" "$kind" "$work" "${CONTROLLERS[*]}"
    script -qfc "exec $words" "$work/init" > /dev/null 2>&1 < /dev/null &
    pid=$!
    # In the background, or an interrupt would wait for it.
    # shellcheck disable=SC2016
    timeout "$patience" bash -c 'tail --pid="$2" -n +1 -f "$1" | grep -qx done' bash "$work/trial/seen" "$pid" &
    watcher=$!
    wait "$watcher" || true
    end_world
    if ! grep -qx "done" "$work/trial/seen" || grep '^broken' "$work/trial/seen"; then
        cp "$work/init" "$project/build/supervised.log"
        tail -n 20 "$work/init" "$work/trial/printed" >&2
        fail "$kind: not all could be tried"
    fi
    report "$kind"
    rm -rf "$work"
}

help_if_asked "$@"
times=20
probes=1
kinds=()
while (($# > 0)); do
    case $1 in
    --times)
        whole_number "${2-}" --times
        times=$2
        shift
        ;;
    --only-time) probes= ;;
    systemd | busybox) kinds+=("$1") ;;
    -*) fail -2 "unknown option $1; see $script --help" ;;
    *) fail -2 "unexpected argument $1; see $script --help" ;;
    esac
    shift
done
((${#kinds[@]} > 0)) || kinds=(systemd busybox)
patience=$((300 + 20 * times)) # seconds; of the two ends at each of the times one takes 1 to 3
((EUID == 0)) || skip "only root can give a service to an init of its own"
unshare --pid --fork --mount --net --ipc --uts --cgroup true 2> /dev/null ||
    skip "no namespaces can be made, as in a container"
[[ " ${kinds[*]} " != *" systemd "* ]] || look_at_groups
cd "$project"
scripts/setup.sh supervise libs
scripts/bundle.sh native > /dev/null
scripts/build.sh release panel intruder scanned_pictures
failed=0
groups=()
pid='' watcher='' # of the init's terminal, and of who waits for its end
trap 'trap "" INT TERM HUP; end_world; [[ -z ${work-} ]] || rm -rf "$work"; give_build_back' EXIT
trap 'exit 130' INT TERM HUP
for kind in "${kinds[@]}"; do
    run "$kind"
done
((failed == 0)) || fail "something is not as it should be (above)"
