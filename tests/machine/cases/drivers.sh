title="the kernel's flash and watchdog answer as the virtual camera's do"
# Block 5 of /dev/mtd2 is bad, on the machine's own chip and on one of 2 KiB pages.
options=(-n badblocks=133)
prepare() { cp -r "$here/questions" "$root/questions"; }
board() {
    for q in nand mtdblock watchdog; do /board/questions < /questions/$q.txt > $out/$q.txt; done
    modprobe -r nandsim
    modprobe nandsim id_bytes=0xec,0xa1,0x00,0x15 overridesize=5 parts=8,8,8,8 badblocks=21
    /board/questions < /questions/nand_large.txt > $out/nand_large.txt
}
judge() {
    local file
    for file in "$here"/questions/*.txt; do
        same_file "answers (- the file's and the camera's, + the kernel's)" "$file" "$out/${file##*/}"
    done
}
