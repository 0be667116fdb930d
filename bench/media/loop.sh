#!/bin/bash
# The loop over the network on the virtual camera: ten minutes of sound in each codec, processor time for a second of
# it, and what a thousand connections leave in the server.
#
#   loop.sh BUILD_FOLDER
set -eu
build=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/bin/vcam" new "$work/camera" > /dev/null
sox -n -r 8000 -b 16 -c 1 "$work/camera/mic.wav" synth 620 sine 1000 gain -12

cat > "$work/script" << 'END'
test_audio 5000 > /tmp/console 2> /dev/null & server=$!
until grep -q port /tmp/console; do sleep 0.1; done
ticks() { awk '{ print $14 + $15 }' /proc/$server/stat; }
memory() { awk '/VmRSS|VmHWM/ { printf "%s %s kB  ", $1, $2 }' /proc/$server/status; }
for codec in g711a g711u g726 lpcm adpcm; do
    before=$(ticks)
    said=$(/run/bin/zep-audio record -c $codec -t 600 127.0.0.1 5000 /tmp/heard.wav | tail -n 1)
    echo "$codec: ten minutes: $said"
    echo "    server: $(( ($(ticks) - before) * 10000 / 600 )) us of processor for a second of sound; $(memory)"
done
for i in $(seq 20); do /run/bin/zep-audio status 127.0.0.1 5000 > /dev/null; done
echo "after 20 connections:    $(memory) $(ls /proc/$server/fd | wc -l) descriptors"
for i in $(seq 980); do /run/bin/zep-audio status 127.0.0.1 5000 > /dev/null; done
echo "after 1,000 connections: $(memory) $(ls /proc/$server/fd | wc -l) descriptors"
kill $server; wait $server
END
"$build/bin/vcam" run "$work/camera" --timeout 1800 --bind "$build/bin/zep-audio" --bind "$work/script" \
    -- bash /run/bin/script
