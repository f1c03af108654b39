#!/bin/sh
# Starts a private D-Bus system bus and an Avahi daemon on it, the daemon in a network namespace of
# its own whose loopback interface carries multicast, so that advertising and browsing run for real
# without touching the machine's network or its own daemons.
# Prints one line "BUS=<address> DBUS_PID=<pid> AVAHI_PID=<pid> DIR=<folder>" and exits 0, or prints
# "UNAVAILABLE: <why>" and exits 1. The caller stops both processes and removes the folder.
set -u
fail() { echo "UNAVAILABLE: $*"; [ -n "${bus_pid:-}" ] && kill "$bus_pid" 2>/dev/null; exit 1; }
for tool in dbus-daemon avahi-daemon unshare ip; do
  command -v "$tool" >/dev/null 2>&1 || fail "$tool is not installed (scripts/install-deps installs dbus and avahi-daemon)"
done
[ "$(id -u)" -eq 0 ] || fail "starting avahi-daemon in a network namespace needs root"
dir=$(mktemp -d "${TMPDIR:-/tmp}/zt-avahi-XXXXXX") || fail "no temporary folder"
cat > "$dir/bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$dir/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
CONF
cat > "$dir/avahi.conf" <<CONF
[server]
use-ipv4=yes
use-ipv6=no
allow-interfaces=lo
enable-dbus=yes
[wide-area]
enable-wide-area=no
[publish]
publish-hinfo=no
publish-workstation=no
CONF
bus_pid=$(dbus-daemon --config-file="$dir/bus.conf" --fork --print-pid 2>"$dir/bus.err") || fail "dbus-daemon did not start: $(cat "$dir/bus.err")"
DBUS_SYSTEM_BUS_ADDRESS="unix:path=$dir/bus" unshare --net --mount sh -c \
  "ip link set lo up && ip link set lo multicast on && mkdir -p /run/avahi-daemon && \
   mount -t tmpfs tmpfs /run/avahi-daemon && \
   exec avahi-daemon --no-drop-root --no-rlimits --no-chroot --no-proc-title -f '$dir/avahi.conf'" \
  >"$dir/avahi.log" 2>&1 &
avahi_pid=$!
tries=0
while ! grep -q "Server startup complete" "$dir/avahi.log" 2>/dev/null; do
  tries=$((tries + 1))
  if [ $tries -gt 100 ] || ! kill -0 "$avahi_pid" 2>/dev/null; then
    kill "$avahi_pid" 2>/dev/null
    fail "avahi-daemon did not start: $(tr '\n' ' ' < "$dir/avahi.log")"
  fi
  sleep 0.1
done
echo "BUS=unix:path=$dir/bus DBUS_PID=$bus_pid AVAHI_PID=$avahi_pid DIR=$dir"
