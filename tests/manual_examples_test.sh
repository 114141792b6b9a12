#!/bin/sh
# Runs the examples of the manual, as they stand there, against the real service. Called in the
# sandbox with the folders of the sources and of the executables; C examples need a compiler.
set -eu
sources=$1
PATH=$2:$PATH
cd "$(mktemp -d)"

# An example stands between the comment with its file name and the end of its block.
for name in read.c read.cpp read.py read.sh send.c send.py send.sh; do
    sed -n "/^\.\\\\\" example: $name\$/,/^\.Ed/p" "$sources/man/status_json_documents.5" |
        sed '1,2d;$d;s/\\e/\\/g' >$name
    test -s $name
done
mkdir status_json_service
ln -s "$sources/core/messages.h" "$sources/client/client.h" status_json_service
export LD_LIBRARY_PATH="$2/../lib"
flags="-Wall -Wextra -Werror -I. -L$LD_LIBRARY_PATH"
# shellcheck disable=SC2086  # a list of words
for name in read send; do
    ${CC:-cc} -std=c11 $flags -o $name $name.c -lstatusjson
done
# shellcheck disable=SC2046,SC2086
${CXX:-c++} -std=c++17 $flags -o read_cpp read.cpp -lstatusjson $(pkg-config --cflags --libs jsoncpp)

# expect TEXT COMMAND...: it prints that, within a minute at most
expect() {
    expected=$1
    shift
    tries=600
    until [ "$("$@" 2>&1)" = "$expected" ]; do
        tries=$((tries - 1))
        [ $tries -gt 0 ] || {
            echo "not \"$expected\": $*" >&2
            head -n 50 ./*.out ./*.err >&2
            exit 1
        }
        sleep 0.1
    done
}

# What each reader has printed of the power source; each state once, as some are read twice.
expect_of_readers() {
    for reader in 1 2 3 4; do
        expect "$1" sh -c "grep -o 'PoE\|Adapter' $reader.out | uniq | tr '\n' ' '"
    done
}

# Readers take what is there, and then each change, that of a start included.
status_json_service 2>service.err &
service=$!
expect PoE statusctl get power power.power_source
for reader in ./read ./read_cpp "python3 read.py" "sh read.sh"; do
    number=$((${number:-0} + 1))
    $reader >$number.out 2>$number.err &
    started="${started:-} $!"
done
trap 'kill $started $service' EXIT
expect_of_readers "PoE "
./send
python3 send.py
sh send.sh
expect DP statusctl get inputs 'inputs[1].video.signal_type'
expect true statusctl get usb-host 'usb_c[1].connected'
expect_of_readers "PoE Adapter "
kill $service
status_json_service 2>>service.err &
service=$!
expect_of_readers "PoE Adapter PoE "
# The reader in C prints the whole document.
lines=$(wc -l </var/run/status/power.json)
expect "$(cat /var/run/status/power.json)" tail -n "$lines" 1.out
expect "" cat service.err
