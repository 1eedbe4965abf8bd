#!/bin/sh
# Regenerates the zone table from the installed tz data and compares it with
# the committed one, byte for byte. When the installed release differs from
# the table's, there is nothing to compare against: the check is skipped.
set -eu
src="$1"
command -v python3 >/dev/null || { echo "python3 is missing: skipped"; exit 77; }
[ -r /usr/share/zoneinfo/tzdata.zi ] || { echo "no installed tz data: skipped"; exit 77; }
table=$(sed -n 's/.*tz data release \([^ ]*\) .*/\1/p' "$src/src/LUMTimeZoneData.inc" | head -n 1)
installed=$(sed -n '1s/^# version //p' /usr/share/zoneinfo/tzdata.zi)
if [ "$table" != "$installed" ]; then
  echo "table from $table, installed tz data $installed: skipped"
  exit 77
fi
out=$(mktemp)
trap 'rm -f "$out"' EXIT
python3 "$src/tools/tzgen.py" > "$out"
cmp "$out" "$src/src/LUMTimeZoneData.inc"
echo "the generator gives the committed table byte for byte (tz data $installed)"
