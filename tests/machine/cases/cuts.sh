title="power cuts in an upgrade on NOR flash leave what the virtual camera predicts"
. "$here/nor_camera.sh"
options=(-f "$dir/run" -l "$dir/nor/log" -i "$dir/image")
ends=123
prepare() {
    nor_upgrade "$dir/nor"
    cp "$dir/nor/flash" "$dir/run"
}
board() {
    if [ -n "$look" ]; then
        look
        [ -n "$again" ] || exit 0
    fi
    settle_in
    upgrade_here
}
judge() {
    # shellcheck disable=SC2086
    "$here/cuts.py" "$dir/nor" "$here/board.sh -t 1500 -i $dir/image $zep $root $dir/script" "$vcam" $cuts \
        > "$dir/console" 2> "$dir/errors" || wrong "cuts: $(tail -n 1 "$dir/console")"
    title="$title: $(tail -n 1 "$dir/console")"
}
