# What all scripts share; each sources it first. Sets `script`, its name in messages, and `project`, the
# root of this checkout.
# shellcheck shell=bash
set -euo pipefail

script=$(basename "$0")
# shellcheck disable=SC2034
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

# fail [-STATUS] MESSAGE...: says it on standard error and ends with the status, 1 by default.
fail()
{
    local status=1
    if [[ $1 =~ ^-[0-9]+$ ]]; then
        status=${1#-}
        shift
    fi
    echo "$script: $*" >&2
    exit "$status"
}

# Prints the comment at the script's head and ends with 0, when the first argument asks for help.
help_if_asked()
{
    case ${1-} in
    -h | --help)
        sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    esac
}

# arguments MIN MAX "$@": for a script without options. Answers --help; ends with 2 on an option, or
# on too few or too many arguments.
arguments()
{
    local min=$1 max=$2
    shift 2
    help_if_asked "$@"
    local argument
    for argument in "$@"; do
        [[ $argument != -* ]] || fail -2 "unknown option $argument; see $script --help"
    done
    (($# >= min)) || fail -2 "too few arguments; see $script --help"
    (($# <= max)) || fail -2 "unexpected argument ${*:max + 1:1}; see $script --help"
}

# whole_number VALUE WHAT: ends with 2 unless the value is a number from 1 on.
whole_number()
{
    [[ $1 =~ ^[1-9][0-9]{0,8}$ ]] || fail -2 "$2: not a number from 1 on: $1"
}
