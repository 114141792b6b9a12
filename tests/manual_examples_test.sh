#!/bin/sh
# Runs the examples of the manual, as they stand there, against the real service. Called in the
# sandbox with the folders of the sources and of the executables; C examples need a compiler.
set -eu
sources=$1
PATH=$2:$PATH
cd "$(mktemp -d)"
pages=$sources/man/status_json_documents.5

# An example stands between the comment with its file name and the end of its block.
for name in read.c read.py read.sh send.c send.py send.sh; do
    sed -n "/^\.\\\\\" example: $name\$/,/^\.Ed/p" "$pages" | sed '1,2d;$d;s/\\e/\\/g' >$name
    test -s $name
done
mkdir include
ln -s "$sources/core" include/status_json_service
for name in read send; do
    ${CC:-cc} -Wall -Wextra -Werror -Iinclude -o $name $name.c
done

fail() {
    echo "$1" >&2
    head -n 50 ./*.out ./*.err >&2
    exit 1
}

# expect COMMAND...: it succeeds, within a minute at most
expect() {
    tries=600
    until "$@" >/dev/null 2>&1; do
        tries=$((tries - 1))
        [ $tries -gt 0 ] || fail "not so: $*"
        sleep 0.1
    done
}

is() {
    [ "$(statusctl get "$1" "$2")" = "$3" ]
}

# Readers take what is there, and then what the event announces. Those in C and Python may start
# before the service does.
./read >c.out 2>c.err &
started=$!
python3 read.py >py.out 2>py.err &
started="$started $!"
status_json_service 2>service.err &
started="$started $!"
trap 'kill $started' EXIT
expect grep -q PoE c.out
expect grep -q PoE py.out
sh read.sh >sh.out 2>sh.err &
started="$started $!"
expect grep -q PoE sh.out
cp /var/run/status/power.json c.expected

./send
python3 send.py
sh send.sh
expect is inputs 'inputs[1].video.signal_type' DP
expect is usb-host 'usb_c[1].connected' true

# Each reader has printed each state whole and once; the one in shell repeats it for each member.
cat /var/run/status/power.json >>c.expected
printf '%s\n' PoE Adapter >py.expected
printf 'Source: %s\n' PoE Adapter >sh.expected
expect diff c.expected c.out
expect diff py.expected py.out
expect sh -c 'uniq sh.out | diff sh.expected -'
[ ! -s service.err ] || fail "the service complains"
