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

# The firmware and the settings that a camera has before an upgrade, the system log, and what is to
# be kept of it all when it reboots.
furnish() {
    ln -sf /board/fuser /bin/fuser
    ln -sf /board/actor /bin/webs # tells which web server's settings to keep
    dd if=/old/kernel of=/dev/mtdblock1 bs=16k conv=fsync 2> /dev/null
    dd if=/old/rootfs of=/dev/mtdblock2 bs=16k conv=fsync 2> /dev/null
    mount -t jffs2 /dev/mtdblock3 /etc && cp -a /old/etc/. /etc/ && sync
    touch /etc/syslog.conf
    mkdir -p /var/log /dev/shm
    syslogd -S -O $out/log
    while [ ! -S /dev/log ]; do sleep 0.1; done
    printf '%s\n' '#!/bin/busybox sh' '. /board/keep.sh' keep > /board/before_reboot
    chmod 755 /board/before_reboot
}

# The upgrade, which never comes back: this machine reboots.
upgrade_here() {
    upgrade /tmp/pkg -v > $out/console 2> /tmp/errors
    echo "the machine runs on"
}
