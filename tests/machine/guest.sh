# What scripts and the shell on the emulated machine share.
# shellcheck shell=sh

# One link an applet; the executable's own list names them in its last line.
for applet in $("$BOARD_EXE" | tail -n 1 | tr ',' ' '); do ln -sf "$BOARD_EXE" "/bin/$applet"; done
out=/board/out

uptime_cs() { tr -d . < /proc/uptime | cut -d ' ' -f 1; } # hundredths of a second

# daemon NAME [WORD...]: starts a program of the camera under the path /bin/NAME.
daemon() {
    local name=$1
    shift
    ln -sf /board/actor "/bin/$name"
    "/bin/$name" "$@" &
}

# The firmware and the settings that a camera has before an upgrade.
furnish() {
    dd if=/old/kernel of=/dev/mtdblock1 bs=16k conv=fsync 2> /dev/null
    dd if=/old/rootfs of=/dev/mtdblock2 bs=16k conv=fsync 2> /dev/null
    mount -t jffs2 /dev/mtdblock3 /etc && cp -a /old/etc/. /etc/ && sync
    umount /etc
    settle_in
}

# A camera that has started: its settings, its web server, the system log, and what is to be kept of it
# all when it reboots.
settle_in() {
    ln -sf /board/fuser /bin/fuser
    ln -sf /board/actor /bin/webs # tells which web server's settings to keep
    mount -t jffs2 /dev/mtdblock3 /etc
    touch /etc/syslog.conf
    mkdir -p /var/log /dev/shm
    syslogd -S -O $out/log
    while [ ! -S /dev/log ]; do sleep 0.1; done
    printf '%s\n' '#!/bin/busybox sh' '. /board/keep.sh' keep > /board/before_reboot
    chmod 755 /board/before_reboot
}

# What the kernel reads of the settings: files in $out/seen, and the paths of those that it cannot read in
# $out/damaged. Names are those of the folders: asking for a damaged file fails too.
look() {
    local path seen
    mount -t jffs2 /dev/mtdblock3 /etc || exit 20
    mkdir $out/seen
    for path in /etc/* /etc/.[!.]* /etc/*/*; do
        case $path in */[*] | */.\[!.]\*) continue ;; esac # a pattern that found nothing
        [ ! -d "$path" ] || continue
        seen=$out/seen${path#/etc}
        mkdir -p "${seen%/*}"
        cat "$path" > "$seen" 2> /dev/null && continue
        rm "$seen"
        echo "$path" >> $out/damaged
    done
    umount /etc
}

# The upgrade, which never comes back: this machine reboots.
upgrade_here() {
    upgrade /tmp/pkg -v > $out/console 2> /tmp/errors
    echo "the machine runs on"
}
