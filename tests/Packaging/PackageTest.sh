#!/bin/bash
# The Debian package as a user meets it: built from the build tree with CPack, installed
# on this machine with dpkg, its unit verified, the installed agent run on a veth pair in
# a network namespace and read with the installed `lldp`, then removed (only the
# configuration stays) and purged (nothing stays). Root only; leaves the machine as it
# found it, whatever happens.
#   PackageTest.sh BUILD_DIR [DEB]   (DEB: a package already built, as by the package target)
set -u
build=$(cd "$1" && pwd)
given=${2:-}
fail() { echo "FAIL: $*" >&2; exit 1; }
[ "$(id -u)" -eq 0 ] || { echo "not root: skipped"; exit 0; }
command -v dpkg-shlibdeps >/dev/null || fail "dpkg-shlibdeps missing (Debian package dpkg-dev)"

tmp=$(mktemp -d /tmp/lldp-package-$$-XXXX)
ns=lldp-pkg-$$
installed=0
agent=
cleanup() {
  [ -n "$agent" ] && kill "$agent" 2>/dev/null
  ip netns del "$ns" 2>/dev/null
  [ $installed = 1 ] && dpkg -P lldp-agent >/dev/null 2>&1
  rm -rf "$tmp"
}
trap cleanup EXIT

# One package test at a time on this machine, whichever build directory runs it.
exec 9>/run/lock/lldp-agent-package-test
flock -w 600 9 || fail "another package test holds /run/lock/lldp-agent-package-test"

# Never clobber an agent installed by other means.
if dpkg-query -W -f='${Status}' lldp-agent 2>/dev/null | grep -q installed; then
  fail "the package lldp-agent is already installed on this machine"
fi
[ -e /usr/sbin/lldp-agent ] && fail "/usr/sbin/lldp-agent exists outside the package"

# --- Build: one file, named as Debian names packages, depending on runtime libraries only.
if [ -n "$given" ]; then
  cp "$given" "$tmp/" || fail "no $given"
else
  (cd "$tmp" && cpack -G DEB --config "$build/CPackConfig.cmake" -B "$tmp" >cpack.log 2>&1) \
    || fail "cpack: $(cat "$tmp/cpack.log")"
fi
debs=("$tmp"/lldp-agent_*_"$(dpkg --print-architecture)".deb)
[ ${#debs[@]} = 1 ] && [ -f "${debs[0]}" ] || fail "no lldp-agent_VERSION_ARCH.deb: $(ls "$tmp")"
deb=${debs[0]}
depends=$(dpkg-deb -f "$deb" Depends)
[ -n "$depends" ] || fail "no Depends"
grep -qE -- '-dev\b|cmake|g\+\+|clang' <<<"$depends" && fail "build dependency in Depends: $depends"
for lib in libnl libsnmp libsystemd libgrpc libprometheus; do
  grep -q "$lib" <<<"$depends" || fail "Depends lacks $lib: $depends"
done
dpkg-deb -I "$deb" conffiles | grep -qx /etc/lldp-agent.conf || fail "lldp-agent.conf is no conffile"

# --- Install: enabled, not started.
dpkg -i "$deb" >"$tmp/dpkg.log" 2>&1 || fail "dpkg -i: $(cat "$tmp/dpkg.log")"
installed=1
unit=$(dpkg -L lldp-agent | grep '/systemd/system/lldp-agent.service$')
[ -n "$unit" ] || fail "no unit installed"
for f in /usr/sbin/lldp-agent /usr/bin/lldp /etc/lldp-agent.conf /etc/default/lldp-agent \
         /usr/share/man/man8/lldp-agent.8 /usr/share/man/man8/lldp.8 \
         /usr/share/man/man5/lldp-agent.conf.5 /usr/share/doc/lldp-agent/examples/lldp-agent.conf; do
  [ -e "$f" ] || fail "$f not installed"
done
src=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$build/CMakeCache.txt")
for c in lldp lldp-agent; do
  if [ -e "$src/packaging/completion/$c" ]; then
    [ -e "/usr/share/bash-completion/completions/$c" ] || fail "no bash completion for $c"
  fi
done
grep -q "^ExecStart=/usr/sbin/lldp-agent --config /etc/lldp-agent.conf " "$unit" \
  || fail "the unit does not run the installed agent: $(grep ExecStart= "$unit")"
if command -v systemctl >/dev/null; then
  [ -L /etc/systemd/system/multi-user.target.wants/lldp-agent.service ] || fail "not enabled"
fi
systemd-analyze verify "$unit" || fail "systemd-analyze verify $unit"

# --- Run: the installed agent on a veth pair, read through the installed command line.
ip netns add "$ns" || fail "ip netns add"
ip -n "$ns" link add pkg0 type veth peer name pkg1 || fail "veth"
ip -n "$ns" link set pkg0 up && ip -n "$ns" link set pkg1 up
sock="$tmp/agent.sock"
ip netns exec "$ns" /usr/sbin/lldp-agent --config /etc/lldp-agent.conf --socket "$sock" \
  --foreground >"$tmp/agent.log" 2>&1 &
agent=$!
for _ in $(seq 100); do [ -S "$sock" ] && break; sleep 0.1; done
[ -S "$sock" ] || fail "the installed agent did not start: $(cat "$tmp/agent.log")"
seen=
for _ in $(seq 100); do
  out=$(/usr/bin/lldp --socket "$sock" show neighbors 2>&1)
  grep -q pkg0 <<<"$out" && grep -q pkg1 <<<"$out" && { seen=1; break; }
  sleep 0.1
done
[ -n "$seen" ] || fail "no neighbour on the veth pair: $out"
# Without --gnmi, --agentx and --metrics their libraries are not even loaded.
grep -E 'libgrpc|libnetsnmp|libssl|libprometheus|lldp-agent-' /proc/$agent/maps \
  && fail "exporter libraries loaded though no exporter is enabled"
kill "$agent"
wait "$agent" || fail "the agent did not stop cleanly: $(cat "$tmp/agent.log")"
agent=

# --- The exporters: their modules load from the package's library directory.
ip -n "$ns" link set lo up
ip netns exec "$ns" /usr/sbin/lldp-agent --config /etc/lldp-agent.conf \
  --socket "$tmp/exporters.sock" \
  --gnmi 127.0.0.1:9339 --agentx "$tmp/no-master" --metrics 127.0.0.1:9101 --foreground \
  >"$tmp/agent.log" 2>&1 &
agent=$!
for _ in $(seq 100); do [ -S "$tmp/exporters.sock" ] && break; sleep 0.1; done
[ -S "$tmp/exporters.sock" ] \
  || fail "the agent with every exporter did not start: $(cat "$tmp/agent.log")"
for m in gnmi snmp metrics; do
  grep -q "/usr/lib/.*lldp-agent/lldp-agent-$m.so" /proc/$agent/maps \
    || fail "the installed lldp-agent-$m.so is not loaded"
done
kill "$agent"
wait "$agent" || fail "the agent with exporters did not stop cleanly: $(cat "$tmp/agent.log")"
agent=

# --- Upgrade (the same package again): an operator's disabling and edits stay.
[ -e /usr/share/doc/lldp-agent/docs/layers.svg ] || fail "no documentation installed"
echo "# an operator's edit" >>/etc/lldp-agent.conf
rm -f /etc/systemd/system/multi-user.target.wants/lldp-agent.service
dpkg -i "$deb" >"$tmp/dpkg.log" 2>&1 || fail "dpkg -i again: $(cat "$tmp/dpkg.log")"
[ -e /etc/systemd/system/multi-user.target.wants/lldp-agent.service ] \
  && fail "an upgrade enabled the service the operator disabled"
grep -q "an operator's edit" /etc/lldp-agent.conf || fail "an upgrade lost the configuration"

# --- Remove: every file goes but the configuration.
dpkg -L lldp-agent >"$tmp/files"
dpkg -r lldp-agent >"$tmp/dpkg.log" 2>&1 || fail "dpkg -r: $(cat "$tmp/dpkg.log")"
dpkg-query -W -f='${Status}' lldp-agent | grep -q 'config-files' || fail "not removed"
while read -r f; do
  [ -d "$f" ] && continue
  case "$f" in
    /etc/lldp-agent.conf | /etc/default/lldp-agent) [ -e "$f" ] || fail "dpkg -r removed $f" ;;
    *) [ -e "$f" ] && fail "dpkg -r left $f" ;;
  esac
done <"$tmp/files"
grep -q "an operator's edit" /etc/lldp-agent.conf || fail "dpkg -r lost the configuration"

# --- Purge: nothing stays.
dpkg -P lldp-agent >"$tmp/dpkg.log" 2>&1 || fail "dpkg -P: $(cat "$tmp/dpkg.log")"
installed=0
for f in /etc/lldp-agent.conf /etc/default/lldp-agent \
         /etc/systemd/system/multi-user.target.wants/lldp-agent.service; do
  [ -e "$f" ] || [ -L "$f" ] && fail "dpkg -P left $f"
done
echo "package OK: $(basename "$deb")"
