#!/bin/bash
# Installs the build into a temporary prefix and checks the tree: the programs run, the
# systemd unit names them and passes `systemd-analyze verify` (which also looks up the man
# pages it cites), the example configuration is one the daemon accepts, and a second
# install keeps an edited configuration file.
set -eu
build="$1"
prefix=$(mktemp -d /tmp/lldp-install-$$-XXXX)
trap 'rm -rf "$prefix"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null
for f in sbin/lldp-agent bin/lldp lib/systemd/system/lldp-agent.service \
         lib/sysusers.d/lldp-agent.conf \
         share/man/man8/lldp-agent.8 share/man/man8/lldp.8 \
         share/doc/lldp-agent/examples/lldp-agent.conf etc/lldp-agent.conf; do
  [ -e "$prefix/$f" ] || fail "$f not installed"
done
"$prefix/sbin/lldp-agent" --help | grep -q -- '--metrics' || fail "lldp-agent --help"
"$prefix/bin/lldp" --help | grep -q 'topology' || fail "lldp --help"

unit="$prefix/lib/systemd/system/lldp-agent.service"
grep -q "^ExecStart=$prefix/sbin/lldp-agent --config $prefix/etc/lldp-agent.conf " "$unit" \
  || fail "ExecStart does not name the installed files: $(grep ExecStart= "$unit")"
grep -q '^Type=notify$' "$unit" || fail "not Type=notify"
grep -q '^ExecStart=.* --user _lldp ' "$unit" || fail "the unit does not give root up (--user _lldp)"
grep -q '^u _lldp ' "$prefix/lib/sysusers.d/lldp-agent.conf" || fail "sysusers.d does not make _lldp"
if command -v systemd-analyze >/dev/null; then
  MANPATH="$prefix/share/man" systemd-analyze verify "$unit" || fail "systemd-analyze verify"
else
  echo "systemd-analyze not installed: unit not verified"
fi

# The example configuration loads: the daemon gets as far as the control socket.
sock="$prefix/check.sock"
"$prefix/sbin/lldp-agent" --config "$prefix/etc/lldp-agent.conf" --socket "$sock" \
  --interfaces 'none-such*' --foreground >"$prefix/agent.log" 2>&1 &
agent=$!
for _ in $(seq 100); do [ -S "$sock" ] && break; sleep 0.1; done
"$prefix/bin/lldp" --socket "$sock" show configuration >/dev/null \
  || { kill $agent; fail "the example configuration did not load: $(cat "$prefix/agent.log")"; }
kill $agent; wait $agent || true

echo "lldp timer 7" >"$prefix/etc/lldp-agent.conf"
cmake --install "$build" --prefix "$prefix" >/dev/null
grep -q 'lldp timer 7' "$prefix/etc/lldp-agent.conf" || fail "reinstall overwrote the configuration"
echo "install tree OK"
