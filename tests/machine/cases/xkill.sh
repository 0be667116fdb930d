title="xkill finds, reports and ends real processes by the path they were started with"
board() {
    daemon confd
    daemon web
    daemon webs
    daemon AVServer ignore-term
    ln -s /board/actor /root/encpd
    encpd=$(cd /root && PATH=/root:$PATH && { encpd > /dev/null & echo $!; }) # argument 0 is a bare name
    sleep 1
    xkill alive /bin/confd
    xkill /bin/confd
    xkill alive /bin/confd
    echo "confd gone"
    xkill alive /bin/webs
    xkill /bin/web
    xkill alive /bin/web
    echo "web and webs gone"
    xkill SIGTERM /bin/AVServer
    xkill alive /bin/AVServer
    xkill SIGKILL /bin/AVServer
    sleep 1
    xkill alive /bin/AVServer
    echo "AVServer gone"
    xkill SIGKILL /bin/encpd
    sleep 1
    kill -0 $encpd && echo "encpd runs on"
    xkill alive /bin/nothing
    xkill alive encpd
}
judge() {
    printf '%s\n' "Alive /bin/confd" "confd gone" "Alive /bin/webs" "web and webs gone" "Alive /bin/AVServer" \
        "AVServer gone" "encpd runs on" "Alive encpd" | says console "$out/../console"
}
