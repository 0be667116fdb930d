title="four flash partitions of 512-byte pages and 16 KiB blocks"
prepare() { :; }
board() { cut -d ' ' -f 1-3 /proc/mtd; }
judge() {
    printf '%s\n' 'dev:' mtd{0,1,2,3}': 00100000 00004000' > "$out/expected"
    sed -i 's/ *$//' "$out/../console"
    same_file /proc/mtd "$out/expected" "$out/../console"
}
