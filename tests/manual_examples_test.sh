#!/bin/sh
# Runs the examples of the manual, as they stand there, against the real service. Called in the
# sandbox with the folders of the sources and of the executables; C examples need a compiler.
set -eu
sources=$1
PATH=$2:$PATH
cd "$(mktemp -d)"
pages=$sources/man/status_json_documents.5

# An example stands between the comment with its file name and the end of its block.
for name in read.c read.cpp read.py read.sh send.c send.py send.sh; do
    sed -n "/^\.\\\\\" example: $name\$/,/^\.Ed/p" "$pages" | sed '1,2d;$d;s/\\e/\\/g' >$name
    test -s $name
done
mkdir include
ln -s "$sources/core/messages.h" "$sources/client/client.h" include
mv include status_json_service
export LD_LIBRARY_PATH="$2/../lib"
flags="-Wall -Wextra -Werror -I. -L$LD_LIBRARY_PATH"
# shellcheck disable=SC2086  # a list of words
for name in read send; do
    ${CC:-cc} -std=c11 $flags -o $name $name.c -lstatusjson
done
# shellcheck disable=SC2046,SC2086
${CXX:-c++} -std=c++17 $flags -o read_cpp read.cpp -lstatusjson $(pkg-config --cflags --libs jsoncpp)

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

# Readers take what is there, and then each change, that of a start included.
status_json_service 2>service.err &
service=$!
expect statusctl get power
for reader in ./read ./read_cpp "python3 read.py" "sh read.sh"; do
    number=$((${number:-0} + 1))
    $reader >$number.out 2>$number.err &
    started="${started:-} $!"
done
trap 'kill $started $service' EXIT
for reader in 1 2 3 4; do
    expect grep -q PoE $reader.out
done
cp /var/run/status/power.json 1.expected

./send
python3 send.py
sh send.sh
expect is inputs 'inputs[1].video.signal_type' DP
expect is usb-host 'usb_c[1].connected' true
cat /var/run/status/power.json >>1.expected
for reader in 1 2 3 4; do
    expect grep -q Adapter $reader.out
done
kill $service
status_json_service 2>>service.err &
service=$!
expect is power power.power_source PoE
cat /var/run/status/power.json >>1.expected

# Each reader has printed each state whole, some of them twice.
printf '%s\n' PoE Adapter PoE >2.expected
cp 2.expected 3.expected
printf 'Source: %s\n' PoE Adapter PoE >4.expected
for reader in 2 3 4; do
    expect sh -c "uniq $reader.out | diff $reader.expected -"
done
# of lines that stand together
expect python3 -c '
import itertools, re
states = re.findall(r"(?s)\{.*?\n\}\n", open("1.out").read())
assert "".join(state for state, _ in itertools.groupby(states)) == open("1.expected").read()'
[ ! -s service.err ] || fail "the service complains"
