#!/bin/bash
# Installs the build into a temporary prefix and checks the tree: the programs run, the
# systemd unit names them and passes `systemd-analyze verify` (which also looks up the man
# pages it cites), the example configuration is one the daemon accepts, the exporters'
# modules load from the installed tree (and a missing one is a clear error), and a second
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
         share/doc/lldp-agent/examples/lldp-agent.conf etc/lldp-agent.conf \
         lib/lldp-agent/lldp-agent-snmp.so lib/lldp-agent/lldp-agent-metrics.so; do
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

# The example configuration loads: the daemon gets as far as the control socket. With
# --agentx it loads the installed SNMP module (no master agent needed to start).
sock="$prefix/check.sock"
"$prefix/sbin/lldp-agent" --config "$prefix/etc/lldp-agent.conf" --socket "$sock" \
  --interfaces 'none-such*' --agentx "$prefix/no-master" --foreground >"$prefix/agent.log" 2>&1 &
agent=$!
for _ in $(seq 100); do [ -S "$sock" ] && break; sleep 0.1; done
"$prefix/bin/lldp" --socket "$sock" show configuration >/dev/null \
  || { kill $agent; fail "the example configuration did not load: $(cat "$prefix/agent.log")"; }
grep -q "$prefix/lib/lldp-agent/lldp-agent-snmp.so" /proc/$agent/maps \
  || { kill $agent; fail "--agentx did not load the installed module"; }
kill $agent; wait $agent || true

# A daemon that cannot find a module it is asked to load says so and stops (one that
# started anyway is stopped by the timeout and fails the check all the same).
mkdir -p "$prefix/else/where" && cp "$prefix/sbin/lldp-agent" "$prefix/else/where/"
out=$(timeout 10 "$prefix/else/where/lldp-agent" --socket "$prefix/none.sock" \
      --metrics 127.0.0.1:1 --foreground 2>&1) && fail "started without its metrics module"
grep -q -- '--metrics: cannot load the metrics exporter: lldp-agent-metrics.so: ' <<<"$out" \
  || fail "a missing module's error: $out"

echo "lldp timer 7" >"$prefix/etc/lldp-agent.conf"
cmake --install "$build" --prefix "$prefix" >/dev/null
grep -q 'lldp timer 7' "$prefix/etc/lldp-agent.conf" || fail "reinstall overwrote the configuration"
echo "install tree OK"
