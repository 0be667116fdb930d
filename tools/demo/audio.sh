#!/bin/bash
# The audio loop-back test on the virtual camera, with each codec: a tone goes from the camera's microphone to a
# station, speech from the station to its loudspeaker and over a line of 40 ms back through the microphone. The WAV
# files stay for listening.
#
#   audio.sh BUILD_FOLDER [WORK_FOLDER]
set -eu
build=$(cd "$1" && pwd)
work=${2:-$build/demo-audio}
vcam=$build/bin/vcam
camera=$work/camera
failed=0

rm -rf "$work"
mkdir -p "$work"
"$vcam" new "$camera" > /dev/null
sox -n -r 8000 -b 16 -c 1 "$work/tone.wav" synth 30 sine 1000 gain -12
espeak-ng -w "$work/spoken.wav" "The camera speaks. One, two, three, four, five."
sox "$work/spoken.wav" -r 8000 -b 16 -c 1 "$work/speech.wav" norm -3

cat > "$work/session" << 'END'
rm -f /tmp/console
test_audio 5000 > /tmp/console & server=$!
until grep -q port /tmp/console; do sleep 0.1; done
case $WHAT in
tone) /run/bin/zep-audio verdict --listen -c "$CODEC" --snr 8 127.0.0.1 5000 /tmp/heard.wav ;;
speech) /run/bin/zep-audio loop -c "$CODEC" 127.0.0.1 5000 /run/bin/speech.wav /tmp/heard.wav ;;
esac
kill $server; wait $server
END

# Runs a session of the codec in the camera; what it says is added to the files.
run() {
    what=$1
    shift
    "$vcam" run "$camera" "$@" --bind "$build/bin/zep-audio" --bind "$work/session" --bind "$work/speech.wav" \
        --env CODEC=$codec --env WHAT=$what -- sh /run/bin/session >> "$work/said" 2>> "$work/errors" || failed=1
}

printf '\n== Sound through the camera: a tone of -12 dB from the microphone, speech to the loudspeaker,\n'
printf '== which a line of 40 ms leads back to the microphone\n\n'
printf '   %-6s %9s %9s %9s %12s   %s\n' codec 'level dB' 'SNR dB' 'delay' 'network trip' 'frames played, dropped, damaged'
for codec in g711a g711u g726 lpcm adpcm; do
    rm -f "$camera/speaker.wav"
    : > "$work/said" > "$work/errors"
    run tone --mic "$work/tone.wav"
    "$vcam" get "$camera" /tmp/heard.wav "$work/microphone-$codec.wav"
    run speech --loop 40
    "$vcam" get "$camera" /tmp/heard.wav "$work/returned-$codec.wav"
    cp "$camera/speaker.wav" "$work/loudspeaker-$codec.wav"
    awk -v codec=$codec '
        /^level/ { level = $2 }
        /^signal to noise/ { snr = $4 }
        /^comes back after/ { delay = $4 }
        /^camera sent/ { match($0, /round trip .*/); trip = substr($0, RSTART + 11); took = $5; dropped = $7; damaged = $9 }
        /^successful/ { good = 1 }
        { gsub(/[,;]/, "") }
        END {
            gsub(/[,;]/, "", took); gsub(/[,;]/, "", dropped); gsub(/[,;]/, "", damaged)
            printf "   %-6s %9s %9s %6s ms %12s   %s, %s, %s\n", codec, level, snr, delay, trip, took, dropped, damaged
            exit !(good && delay >= 40 && took > 0 && dropped == 0 && damaged == 0)
        }' "$work/said" || { failed=1; sed 's/^/    /' "$work/said" "$work/errors"; }
done
printf '\nListen: %s/{microphone,loudspeaker,returned}-*.wav\n' "$work"
exit $failed
