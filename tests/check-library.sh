#!/bin/sh
# Checks a built libLumBase.so.0: it needs only the C library (and at most
# libm), its SONAME is libLumBase.so.0, and every exported symbol is one of
# the library's names.
set -eu
lib="$1"
fail=0

needed=$(readelf -d "$lib" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for n in $needed; do
  case "$n" in
    libc.so.6|libm.so.6) ;;
    *) echo "unexpected NEEDED entry: $n"; fail=1 ;;
  esac
done
echo "$needed" | grep -qx 'libc.so.6' || { echo "libc.so.6 is not NEEDED"; fail=1; }

soname=$(readelf -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[ "$soname" = "libLumBase.so.0" ] || { echo "SONAME is '$soname'"; fail=1; }

# Defined dynamic symbols, without version tags.
exports=$(readelf -W --dyn-syms "$lib" | awk '$1 ~ /^[0-9]+:$/ && $7 != "UND" && $7 != "ABS" && $5 != "LOCAL" && $8 != "" {print $8}' | sed 's/@.*//' | sort -u)
count=0
for s in $exports; do
  count=$((count + 1))
  case "$s" in
    LUM*|kLUM*|_LUM*|_kLUM*) ;;
    __kLUMRunLoopAllModes|__LUMTestAllocatorReportPointer|__LUMTestAllocatorReportCounter) ;;
    *) echo "unexpected exported symbol: $s"; fail=1 ;;
  esac
done
[ "$count" -gt 100 ] || { echo "only $count exported symbols"; fail=1; }
# Every export carries the library's symbol version node.
versioned=$(readelf -W --dyn-syms "$lib" | awk '$7 != "UND" && $8 ~ /@@LUMBASE_0$/' | wc -l)
[ "$versioned" -eq "$count" ] || { echo "$versioned of $count exports carry the version LUMBASE_0"; fail=1; }
for s in LUMInitialize LUMStringCreateWithFormat kLUMAllocatorDefault _LUMAssert _kLUMAllocatorConstant; do
  echo "$exports" | grep -qx "$s" || { echo "missing export: $s"; fail=1; }
done
# The compiled zone table is constant data without pointers: each of its
# seven arrays lies in .rodata, needing no relocation.
if readelf -SW "$lib" | grep -q '\.symtab'; then
  sections=$(readelf -SW "$lib" | sed -n 's/^ *\[ *\([0-9]*\)\] \([^ ]*\).*/\1 \2/p')
  zone_objects=0
  for ndx in $(readelf -sW "$lib" | awk '/__kLUMTimeZone(Infos|NamePool|Offsets|OffsetLists|Distances|Indices|Records)/ {print $7}'); do
    zone_objects=$((zone_objects + 1))
    name=$(echo "$sections" | awk -v n="$ndx" '$1 == n {print $2}')
    case "$name" in
      .rodata) ;;
      *) echo "zone table object in section $name, not .rodata"; fail=1 ;;
    esac
  done
  [ "$zone_objects" -eq 7 ] || { echo "$zone_objects zone table objects found, not 7"; fail=1; }
  readelf -lW "$lib" | grep -q GNU_RELRO || { echo "no GNU_RELRO segment"; fail=1; }
  echo "zone table: $zone_objects arrays, all in .rodata"
fi

[ "$fail" -eq 0 ] && echo "NEEDED: $(echo $needed); SONAME: $soname; $count exported symbols, all LumBase names"
exit "$fail"
