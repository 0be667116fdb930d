# Cases whose commands and expectations are transcripts of tests/camera, sourced by them. Set $transcripts to names before;
# ZEP_TRANSCRIPTS in the environment takes their place.
# shellcheck shell=bash
options=(-d)
transcript_files() {
    local name
    for name in ${ZEP_TRANSCRIPTS-$transcripts}; do echo "$here/../camera/$name.transcript"; done
}
prepare() {
    mkdir -p "$root/board/bin" "$root/board/camera" "$root/cameras"
    cp "$machine"/{vcam,vcam-cuse,vcam-guest,vcam-sh} "$root/board/bin"
    cp "$machine"/camera_{station,mappings,lightd} "$root/board/camera"
    cp "$here/cameras.sh" "$root/board"
    # shellcheck disable=SC2046
    "$host/tests/camera/camera_transcripts" --to-machine "$root/cameras" $(transcript_files) > "$root/../laid" 2>&1 ||
        wrong "$(cat "$root/../laid")"
}
board() {
    . /board/cameras.sh
    run_cameras
}
judge() {
    # shellcheck disable=SC2046
    "$host/tests/camera/camera_transcripts" --from-machine "$root/cameras" "$out" $(transcript_files) > "$root/../judged" 2>&1 ||
        wrong "$(cat "$root/../judged")"
    title="$title: $(grep ' cases, ' "$root/../judged")"
}
