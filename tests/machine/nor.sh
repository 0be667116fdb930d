# The board with NOR flash, sourced by board.sh: two processors of which one is parked, and an SPI
# chip of 8 MiB with erase blocks of 64 KiB whose content is a file on this side.
#
# $flash  the chip's content; made, erased, when it does not exist
# $log    receives every erase and every programmed byte, as flash_log.py describes
# shellcheck shell=bash

nor_size=$((8 << 20))
nor_partitions="boot:1024 kernel:2048 rootfs:4096 settings:1024" # KiB
# The partitions' parser before the chip's driver, the controller last: its probe finds the chip.
nor_modules="ofpart mtdblock jffs2 spi-nor spi-aspeed-smc veth"

nor_flash() {
    [ -f "$flash" ] || head -c $nor_size /dev/zero | tr '\0' '\377' > "$flash" || return 1
    [ "$(stat -c %s "$flash")" = $nor_size ] || die "$flash is not of the chip's $nor_size bytes"
}

# The distribution's device tree with the partitions above, without the second chip, and with the
# two serial lines that carry status and files.
nor_tree() {
    local tree=$1 chip=/ahb/spi@1e620000/flash@0 at=0 part rows="" node offset size label
    cp "$cache/sys/board.dtb" "$tree" || return 1
    for node in 1e630000 1e631000; do fdtput -t s "$tree" /ahb/spi@$node status disabled || return 1; done
    for node in 1e783000 1e78d000; do
        fdtput -t s "$tree" /ahb/apb/serial@$node status okay &&
            fdtput -d "$tree" /ahb/apb/serial@$node pinctrl-names pinctrl-0 || return 1
    done
    fdtput -r "$tree" $chip/partitions && fdtput -d "$tree" $chip spi-rx-bus-width m25p,fast-read &&
        fdtput -c "$tree" $chip/partitions && fdtput -t s "$tree" $chip/partitions compatible fixed-partitions &&
        fdtput -t x "$tree" $chip/partitions "#address-cells" 1 &&
        fdtput -t x "$tree" $chip/partitions "#size-cells" 1 || return 1
    # Without a seed the first program that asks for random bytes waits for the kernel to gather some, a third of a boot.
    # shellcheck disable=SC2046
    fdtput -t x "$tree" /chosen rng-seed $(seq 1 16) || return 1
    # The kernel numbers in the tree's order and a new node is put first: the last partition goes in first.
    for part in $nor_partitions; do
        rows="$(printf '%x %x %s' $at $((${part#*:} * 1024)) "${part%:*}")"$'\n'"$rows"
        at=$((at + ${part#*:} * 1024))
    done
    while read -r offset size label; do
        [ -n "$offset" ] || continue
        node=$chip/partitions/partition@$offset
        fdtput -c "$tree" "$node" && fdtput -t s "$tree" "$node" label "$label" &&
            fdtput -t x "$tree" "$node" reg "$offset" "$size" || return 1
    done <<< "$rows"
}

# Sets $machine, the emulator's words. The second processor would spin in a loop of the emulator's,
# and time that counts instructions would take that for work: it gets a program of its own, in the
# static RAM, that masks interrupts and waits for one.
nor_machine() {
    printf '\xc0\x00\x0c\xf1\x03\xf0\x20\xe3\xfd\xff\xff\xea' > "$work/park" # cpsid if; 1: wfi; b 1b
    nor_flash && nor_tree "$work/board.dtb" || return 1
    machine=(-M "ast2600-evb,fmc-model=s25sl064a" -m 256 -nic none -dtb "$work/board.dtb"
        -device "loader,file=$work/park,addr=0x10010000,cpu-num=1,force-raw=on"
        -drive "if=mtd,format=raw,file=$flash" -serial chardev:console
        -serial chardev:status -serial chardev:files)
    [ -z "$log" ] || machine+=(-trace m25p80_page_program -trace m25p80_flash_erase -trace m25p80_chip_erase)
    append="console=ttyS4,115200 maxcpus=1"
}
