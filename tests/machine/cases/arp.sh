title="qrn_arp finds a taken address at once, and probes a free one for its whole time"
board() {
    ip link add type veth && ip link set veth0 name eth0
    unshare -n sleep 1000 &
    peer=$!
    while [ "$(readlink /proc/$peer/ns/net)" = "$(readlink /proc/self/ns/net)" ]; do sleep 0.1; done
    ip link set veth1 netns $peer
    nsenter -t $peer -n ip addr add 192.168.7.2/24 dev veth1
    nsenter -t $peer -n ip link set veth1 up
    ip link set eth0 up
    while [ "$(cat /sys/class/net/eth0/carrier)" != 1 ]; do sleep 0.1; done
    sleep 3 # the link's own first frames
    echo "mac=$(nsenter -t $peer -n ip link show veth1 | sed -n 's/.*ether \([^ ]*\).*/\1/p')"
    probe() {
        local sent=$(cat /sys/class/net/eth0/statistics/tx_packets) start=$(uptime_cs)
        echo "$1=$(qrn_arp eth0 $2 5000)"
        echo "$1_cs=$(($(uptime_cs) - start))"
        echo "$1_sent=$(($(cat /sys/class/net/eth0/statistics/tx_packets) - sent))"
    }
    probe taken 192.168.7.2
    probe free 192.168.7.3
    kill $peer
}
value() { sed -n "s/^$1=//p" "$out/../console"; }
judge() {
    equal "taken address" "conflict $(value mac)" "$(value taken)"
    between "time for a taken address (cs)" 0 30 "$(value taken_cs)"
    equal "probes for a taken address" 1 "$(value taken_sent)"
    equal "free address" free "$(value free)"
    # The clock that it goes by reads up to a second long.
    between "time for a free address (cs)" 395 520 "$(value free_cs)"
    between "probes for a free address" 36 56 "$(value free_sent)"
}
