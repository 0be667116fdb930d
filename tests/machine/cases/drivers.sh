title="the virtual camera's flash and watchdog answer as the kernel's do"
# Block 5 of /dev/mtd2 is bad, on the machine's own chip and on one of 2 KiB pages.
options=(-n badblocks=133)
prepare() { :; }
board() {
    for q in "mtd /dev/mtd2 5" "mtdblock 3" watchdog; do /board/questions $q > $out/${q%% *}; done
    modprobe -r nandsim
    modprobe nandsim id_bytes=0xec,0xa1,0x00,0x15 overridesize=5 parts=8,8,8,8 badblocks=21
    /board/questions mtd /dev/mtd2 5 > $out/large_pages
}
# camera_answers NAME QUESTION...: those of a virtual camera against those of the machine.
camera_answers() {
    local name=$1
    shift
    "$vcam" run "$out/camera" --bind "$host/tests/machine/machine_questions" -- \
        sh -c "umount /etc; /run/bin/machine_questions $*" > "$out/answers"
    [ -s "$out/answers" ] || wrong "no answers about $name"
    same_file "$name answers (- kernel, + camera)" "$out/$name" "$out/answers"
}
judge() {
    "$vcam" new "$out/camera" --flash nand --size mtd2=1M --size mtd3=1M --bad mtd2:5
    camera_answers mtd mtd /dev/mtd2 5
    camera_answers mtdblock mtdblock 3
    camera_answers watchdog watchdog
    sed -i 's/^mtd2=.*/mtd2=nand,1M,128K,2048/' "$out/camera/camera.conf"
    echo 5 > "$out/camera/flash/mtd2.bad"
    head -c 1M /dev/zero | tr '\0' '\377' > "$out/camera/flash/mtd2"
    camera_answers large_pages mtd /dev/mtd2 5
}
