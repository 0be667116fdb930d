title="the kernel's JFFS2 reads what the virtual camera's file system left, at its end and at cuts of the power"
cuts=12
# Files, folders, links, names that move, and more bytes than the partition has room for.
changes='cd /etc; mkdir -p more/below; for i in 1 2 3 4 5 6 7 8; do
    head -c 70000 /dev/urandom > more/large; echo "line $i" >> lines; chmod $((4 + i % 4))44 lines; cp lines more/lines.$i
    mv more/lines.$i more/below/lines; ln -sf "below/lines" more/link; ln -f lines more/second; truncate -s 50$i more/large
    mv -f lines lines.new; mv lines.new lines; [ $i = 8 ] || rm more/second; done; rm network/wireless.conf; sync'

# left NAME: the camera's flash for the machine, and what the virtual camera itself reads in it.
left() {
    cp "$out/camera/flash/mtd3" "$root/images/$1"
    "$vcam" get "$out/camera" /etc "$out/camera_etc/$1" || wrong "$1: the camera's /etc cannot be read"
}
# changed FAULT: a new camera with the fault, and the changes.
changed() {
    "$vcam" new "$out/camera" --force --flash nand --size mtd3=1M && "$vcam" fault "$out/camera" "$1" || wrong "no camera"
    "$vcam" run "$out/camera" -- sh -c "$changes" 2> "$out/errors"
}
prepare() {
    local writes n effects=(powercut-before powercut powercut-after)
    mkdir -p "$root/images" "$out/camera_etc"
    changed 'mtd3 write 999999 1 EIO' || wrong "the changes end with $?"
    left whole
    writes=$("$vcam" fault "$out/camera" | sed -n 's/.* matched \([0-9]*\),.*/\1/p')
    [ "$(cat "$out/camera/settings")" = "at once" ] || {
        cuts=0
        title="$title (without the cuts: no /dev/fuse here)"
        [ "${ZEP_MAY_SKIP-}" = 1 ] || wrong "this PC has no /dev/fuse that can be opened: no cut inside the settings"
    }
    for n in $(seq "$cuts"); do
        changed "mtd3 write $((writes * n / (cuts + 1))) 1 ${effects[n % 3]}"
        equal "status of cut $n" 121 $?
        left "$n"
    done
}
board() {
    for image in /images/*; do
        to=$out/${image##*/}
        dd if=$image of=/dev/mtdblock3 bs=16k conv=fsync 2> /dev/null
        mount -t jffs2 /dev/mtdblock3 /mnt && cp -a /mnt $to
        head -c 100000 /bin/busybox > /further && cp /further /mnt && umount /mnt && mount -t jffs2 /dev/mtdblock3 /mnt
        cmp /further /mnt/further && umount /mnt
    done
}
listed() { (cd "$1" && find . -printf '%P %y %m %l\n' | sort); }
judge() {
    local expected name differ
    equal "states of the flash" $((cuts + 1)) "$(find "$out/camera_etc" -mindepth 1 -maxdepth 1 | wc -l)"
    for expected in "$out/camera_etc"/*; do
        name=${expected##*/}
        listed "$expected" | sed 1d > "$out/listed"
        listed "$out/$name" | sed 1d > "$out/found"
        same_file "$name (- camera, + machine)" "$out/listed" "$out/found"
        differ=$(diff -r --no-dereference "$expected" "$out/$name") || wrong "$name: $differ"
    done
    says "what the machine says" "$out/../console" < /dev/null
}
