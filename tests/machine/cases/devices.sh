title="the camera's own devices, from the models: commands of the transcripts, with what they print, log and ask for"
options=(-d)
transcripts=${ZEP_TRANSCRIPTS-registers serial factory_lines factory_rtc factory_media bringup voices memory}
files() { for t in $transcripts; do echo "$here/../camera/$t.transcript"; done; }
prepare() {
    mkdir -p "$root/board/bin" "$root/board/camera" "$root/cameras"
    cp "$machine"/camera_{station,mappings} "$root/board/camera"
    cp "$machine"/{vcam,vcam-cuse,vcam-guest,vcam-sh} "$root/board/bin"
    cp "$here/cameras.sh" "$root/board"
    "$host/tests/camera/camera_transcripts" --to-machine "$root/cameras" $(files) > "$root/../laid" 2>&1 || wrong "$(cat "$root/../laid")"
}
board() {
    . /board/cameras.sh
    run_cameras
}
judge() {
    "$host/tests/camera/camera_transcripts" --from-machine "$root/cameras" "$out" $(files) > "$root/../judged" 2>&1 ||
        wrong "$(cat "$root/../judged")"
}
