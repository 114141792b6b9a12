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

# wait_for FILE PATTERN: until a line of the file matches, a minute at most
wait_for() {
    tries=600
    until grep -q "$2" "$1"; do
        tries=$((tries - 1))
        [ $tries -gt 0 ] || fail "waited in vain for '$2' in $1"
        sleep 0.1
    done
}

# Readers take what is there, and then what the event announces. They may start before the
# service does; the one in shell watches a folder, which must be there.
mkdir -p /run/status
./read >c.out 2>c.err &
started=$!
python3 read.py >py.out 2>py.err &
started="$started $!"
sh read.sh >sh.out 2>sh.err &
started="$started $!"
status_json_service 2>service.err &
started="$started $!"
# shellcheck disable=SC2064,SC2086  # the list as it is now
trap "kill $started" EXIT
for reader in c py sh; do
    wait_for $reader.out PoE
done

./send
python3 send.py
sh send.sh
for reader in c py sh; do
    wait_for $reader.out Adapter
done
statusctl watch --for 60 --json usb-host >usb.out &
wait_for usb.out '"connected": *true'
kill $!
[ "$(statusctl get inputs 'inputs[1].video.signal_type')" = DP ] || fail "send.c sent nothing"
[ ! -s service.err ] || fail "the service complains"
