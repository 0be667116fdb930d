title="four flash partitions of 512-byte pages and 16 KiB blocks"
board() { cut -d ' ' -f 1-3 /proc/mtd; }
judge() {
    sed -i 's/ *$//' "$out/../console"
    printf '%s\n' 'dev:' mtd{0,1,2,3}': 00100000 00004000' | says /proc/mtd "$out/../console"
}
