#!/usr/bin/env bash
# Checks the start-up layout list against a link of pdtool: fails when an
# entry of the list places no code, which is what a C library member renamed
# or dropped by a new toolchain (or a member pdtool no longer links) looks
# like. The entries then need regenerating with scripts/hot-layout.sh.
#
# Usage: scripts/hot-layout-check.sh LINK_MAP LIST
#   LINK_MAP  the map written when pdtool was linked (build/<preset>/cli/pdtool.map)
#   LIST      the list it was linked with (cli/pdtool-hot.ld)
set -euo pipefail

map=$1
list=$2
listed=$(grep -c '(\.text' "$list")

# The map repeats each statement of the list inside the .text.hot output
# section, followed by the input sections it placed (a name too long for its
# column puts address and size on the next line).
report=$(awk '
  function close_entry() {
    if (entry != "") { seen++; if (!placed) print "stale: " entry }
  }
  /^\.text\.hot / { inside = 1; next }
  inside && /^[^ ]/ { close_entry(); entry = ""; inside = 0 }
  !inside { next }
  /^ \*fill\*/ { next }
  /^ \*/ { close_entry(); entry = substr($0, 2); placed = 0; next }
  /^ \.[^ ]+ +0x[0-9a-f]+ +0x[0-9a-f]+ / { if ($3 != "0x0") placed = 1; next }
  /^ \.[^ ]+$/ { if (getline > 0 && $2 != "0x0") placed = 1; next }
  END { close_entry(); print "seen: " seen + 0 }
' "$map")

seen=$(sed -n 's/^seen: //p' <<<"$report")
stale=$(grep '^stale: ' <<<"$report" | sed 's/^stale: /  /' || true)
if [ "$seen" -ne "$listed" ]; then
  echo "hot-layout-check: $map shows $seen of the $listed entries of $list: was pdtool linked with it?"
  exit 1
fi
if [ -n "$stale" ]; then
  echo "hot-layout-check: $(wc -l <<<"$stale") of $listed entries of $list place no code in this link:"
  echo "$stale"
  echo "Regenerate the list (README.md, Performance: scripts/hot-layout.sh) and commit it."
  exit 1
fi
echo "hot-layout-check: all $listed entries of $list place code"
