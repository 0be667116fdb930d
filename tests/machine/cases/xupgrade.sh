title="xupgrade feeds the watchdog while it writes; with nobody to feed it afterwards the machine resets"
. "$here/upgraded.sh"
prepare() {
    old_camera "$work/firmware/pkg"
    mv "$root/tmp/pkg" "$root/tmp/flash3"
}
board() {
    furnish
    dmesg -n 3
    # Reading the status takes back its keep-alive bit: each look tells of the time since the last.
    watch() {
        cd /sys/class/watchdog/watchdog0
        while [ "$(cat state)" != active ]; do sleep 0.1; done
        cat status > /dev/null
        while :; do
            sleep 1.5
            echo "$(cat timeout) $(($(cat status) >> 15 & 1))" >> $out/fed
        done
    }
    watch &
    xupgrade -i > $out/console 2> /dev/null
    kill $!
    . /board/keep.sh
    keep
    /board/send
    echo done
    sleep 60
    echo "nothing happened"
}
kernel_ms() { sed -n "s/^\[ *\([0-9]*\)\.\([0-9]\{3\}\).*$1.*/\1\2/p" "$out/../console"; }
judge() {
    local stopped reset
    printf '%s\n' "The timeout was set to 30 seconds" "Upgrade complete." | says console "$out/console"
    upgraded_flash
    upgraded_settings
    equal "time-out and whether it was fed, each 1.5 s" "15 1" "$(sort -u "$out/fed")"
    between "looks at the watchdog" 6 12 "$(wc -l < "$out/fed")"
    stopped=$(kernel_ms 'watchdog0: watchdog did not stop!')
    reset=$(kernel_ms 'softdog: Initiating system reboot')
    between "milliseconds from the last feed to the reset" 14990 15010 $((reset - stopped))
}
