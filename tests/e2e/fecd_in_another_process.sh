#!/bin/sh
# An agent whose hardware FEC requests are answered by `orb-agent fecd` in
# another process, through the shared-memory tables under one prefix.
set -eu
agent=$1
prefix="e2efecd-$$-"
out=$(mktemp)
trap 'kill $fecd 2>/dev/null || true; rm -f "$out"' EXIT
"$agent" --pond-prefix "$prefix" fecd > "$out" &
fecd=$!
printf '%s\n' \
  'fec-request mpls 10 via 10.0.0.2 Ethernet3 adj-state' \
  'fec-request pw-local 7 via 2001:db8::1 Ethernet5' \
  'fec-request wait 20' \
  'expect show fec-requests mpls ~ 10        1 normal        1 adjStateForwardingPrimaryVias  Ethernet3' \
  'expect show fec-requests pw-local ~ 7        2 normal        2 adjStateUnknown                Ethernet5' \
  'no fec-request mpls 10' \
  'fec-request mpls 11' \
  'fec-request wait 20' \
  'expect show fec-requests mpls ~ 11 3 normal 1' |
  "$agent" --pond-prefix "$prefix" --external-fecd run /dev/stdin
kill "$fecd"
wait "$fecd" || true
grep -q "answering hardware FEC requests under '$prefix'" "$out"
grep -q "hardware FECs held" "$out"
if ls /dev/shm | grep -q "^$prefix"; then
  echo "segments left behind under $prefix" >&2
  exit 1
fi
