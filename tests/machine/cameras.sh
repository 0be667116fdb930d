# Commands for cameras whose device files are the virtual camera's models: runs what stands in /cameras, on the machine.
#
#   /cameras/NAME/camera     a camera's folder, as `vcam new` makes it; root/ without the programs
#   /cameras/NAME/N.before   commands that change what it is wired to, before step N
#   /cameras/NAME/N.command  the step: a command for its shell, in a boot of its own
#   /cameras/NAME/medium     SLOT SIZE[,ro]: what is in a slot
#
# In /board/out/NAME: what it printed, N.out and N.err; its N.status; N.journal and N.syslog, with N.from: the lengths
# that they had before; at the end the rest of the folder.
# shellcheck shell=sh

# The stretches that stand for the chip's registers.
enable_registers() {
    for device in /sys/bus/pci/devices/*; do
        [ "$(cat $device/device)" != 0x1110 ] || echo 1 > $device/enable
    done
}

# The camera's programs: its executable and tools, busybox, and the PC's shell with a word for the journal.
lay_programs() {
    programs=/camera_programs
    mkdir -p $programs/bin $programs/sbin
    /bin/busybox --install -s $programs/bin
    rm -f $programs/bin/busybox
    cp /bin/busybox $programs/bin/
    for applet in $("$BOARD_EXE" | tail -n 1 | tr ',' ' '); do ln -sf /bin/zep $programs/bin/$applet; done
    cp "$BOARD_EXE" $programs/bin/zep
    for tool in mount umount insmod rmmod lsmod ifconfig date reg fuser udpcat; do
        rm -f $programs/bin/$tool
    done
    for tool in bin/mount bin/umount sbin/insmod sbin/rmmod sbin/lsmod sbin/ifconfig bin/date bin/reg bin/fuser bin/udpcat; do
        ln -s /sbin/vcam-guest $programs/$tool
    done
    cp /board/bin/vcam-guest $programs/sbin/
    rm -f $programs/bin/sh
    cp /board/bin/vcam-sh $programs/bin/sh
    cp /dash/bin/dash $programs/bin/
}

enter() { # CAMERA: its root as the camera has it
    root=$1/root
    mkdir -p $root/bin $root/sbin $root/lib $root/dev $root/proc $root/sys $root/run/vcam $root/usr/bin $root/tmp $root/run/bin/camera
    cp /board/camera/* $root/run/bin/camera
    mount --bind $programs/bin $root/bin
    mount --bind $programs/bin $root/usr/bin
    mount --bind $programs/sbin $root/sbin
    mount --bind /dash/lib $root/lib
    mount --bind /dev $root/dev
    mount --bind /sys $root/sys
    mount -t proc proc $root/proc
    mount --bind $1 $root/run/vcam
}
leave() {
    for at in bin usr/bin sbin lib dev sys proc run/vcam; do umount $root/$at || return 1; done
}

# What a program has set the clock to is gone with the power.
calendar() { echo $(($(date +%s) - $(cut -d . -f 1 /proc/uptime))); }
set_calendar() { date -s @$(($1 + $(cut -d . -f 1 /proc/uptime))) > /dev/null; }

size() { stat -c %s "$1" 2> /dev/null || echo 0; }

# step CAMERA OUT NUMBER: switches the camera on, runs the command, switches it off.
step() {
    local camera=$1 to=$2/$3 command=$4 server slot
    set_calendar $switched_on
    server=$(vcam-cuse $camera) || { echo 125 > $to.status; return; }
    if [ -s $camera/../medium ]; then
        slot=$(cut -d ' ' -f 1 $camera/../medium)
        mount -t tmpfs -o size=$(cut -d ' ' -f 2 $camera/../medium) $slot $root/mnt/$slot
    fi
    echo "$(size $camera/journal) $(size $camera/syslog)" > $to.from
    env -i PATH=/bin:/sbin:/usr/bin HOME=/root TERM=linux VCAM_STATE=/run/vcam \
        chroot $root /bin/dash -c "$(cat $command)" > $to.out 2> $to.err < /dev/null
    echo $? > $to.status
    [ -z "$slot" ] || umount $root/mnt/$slot
    kill $server
    while [ -d /proc/$server ]; do sleep 0.01; done
    cp $camera/journal $to.journal
    cp $camera/syslog $to.syslog
}

run_cameras() {
    local folder name number
    enable_registers
    lay_programs
    switched_on=$(calendar)
    for name in $(ls /cameras); do
        folder=/cameras/$name
        mkdir -p /board/out/$name
        enter $folder/camera
        export CAMERA=$folder/camera
        number=0
        while [ -f $folder/$number.command ]; do
            . $folder/$number.before > /board/out/$name/$number.before 2>&1
            step $folder/camera /board/out/$name $number $folder/$number.command
            number=$((number + 1))
        done
        leave || { echo "$name: its root stays mounted"; return 1; }
        rm -rf $root $folder/camera/registers
        cp -a $folder/camera /board/out/$name/
    done
}
