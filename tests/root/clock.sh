#!/usr/bin/env bash
# clock.sh: two ptp4l in a bare Debian, until it is killed: a grandmaster, and a slave at the usual
# socket. They are connected by a pair of virtual interfaces in a network of their own, and neither
# touches the clock of the machine; the port of the slave therefore stays uncalibrated.
set -eu
[ "${1:-}" = connected ] || exec unshare --net "$0" connected
unshare --net sleep infinity &
peer=$!
for _ in $(seq 50); do
   [ "$(readlink /proc/$peer/ns/net)" = "$(readlink /proc/$$/ns/net)" ] || break
   sleep 0.1
done
ip link add eth0 type veth peer name eth1 netns $peer
ip addr add 192.0.2.1/24 dev eth0
ip link set eth0 up
nsenter --net --target $peer ip addr add 192.0.2.2/24 dev eth1
nsenter --net --target $peer ip link set eth1 up
options=(-S -E -4 -m -q --free_running 1 --kernel_leap 0 --logAnnounceInterval -2 --logSyncInterval -3)
nsenter --net --target $peer ptp4l -i eth1 --priority1 10 --uds_address /run/grandmaster "${options[@]}" &
exec ptp4l -i eth0 -s "${options[@]}"
