#!/usr/bin/env python3
"""tzgen.py — generates src/LUMTimeZoneData.inc, LumBase's compiled zone table.

Usage (a developer step, not part of the build):

    python3 tools/tzgen.py [--zoneinfo /usr/share/zoneinfo] > src/LUMTimeZoneData.inc

Reads the compiled TZif files of the installed tzdata (version 2+ 64-bit data
and the footer rule) for the 547 names of tools/tz/zone-names.txt, in that
order. Names that are links share the arrays of the zone they resolve to. A
zone whose footer rule still has daylight saving keeps its transitions from
2000-01-01 through 2050 (the footer rule extends the explicit ones); any
other zone keeps its explicit transitions, up to 2050. Output is
deterministic: the same tz data gives the same bytes.
"""
import argparse
import os
import re
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
SINCE_1970 = 978307200
START_2000 = 946684800           # 2000-01-01 00:00:00 UTC
END_2050 = 2556144000            # 2051-01-01 00:00:00 UTC: transitions before it
END_OF_32_BIT_TIME = 2 ** 31 - 1  # 2038-01-19 03:14:07 UTC
MAX_RECORDS = 140
REMOVED_NAMES = {"Canada/East-Saskatchewan": "America/Regina"}


def read_tzif(path):
    data = open(path, "rb").read()
    if data[:4] != b"TZif":
        raise ValueError(path + ": not a TZif file")
    version = data[4:5]

    def header(offset):
        counts = struct.unpack(">6l", data[offset + 20:offset + 44])
        return counts  # isutcnt, isstdcnt, leapcnt, timecnt, typecnt, charcnt

    isut, isstd, leap, timecnt, typecnt, charcnt = header(0)
    v1_size = 44 + timecnt * 5 + typecnt * 6 + charcnt + leap * 8 + isstd + isut
    if version < b"2":
        raise ValueError(path + ": version 1 data only")
    offset = v1_size
    isut, isstd, leap, timecnt, typecnt, charcnt = header(offset)
    offset += 44
    times = list(struct.unpack(">%dq" % timecnt, data[offset:offset + 8 * timecnt]))
    offset += 8 * timecnt
    indices = list(data[offset:offset + timecnt])
    offset += timecnt
    types = []
    for i in range(typecnt):
        utoff, isdst, abbrind = struct.unpack(">lBB", data[offset + 6 * i:offset + 6 * i + 6])
        types.append((utoff, isdst, abbrind))
    offset += 6 * typecnt
    chars = data[offset:offset + charcnt]
    offset += charcnt + leap * 12 + isstd + isut
    footer = data[offset:].split(b"\n")[1].decode("ascii")

    def abbr(i):
        end = chars.index(b"\0", i)
        return chars[i:end].decode("ascii")

    types = [(utoff, isdst, abbr(ai)) for utoff, isdst, ai in types]
    return times, indices, types, footer


# ---- POSIX TZ strings (the footer) -------------------------------------------

def parse_offset(text, pos):
    """[+-]hh[:mm[:ss]] -> seconds, new position."""
    m = re.compile(r"([+-]?)(\d{1,3})(?::(\d{2}))?(?::(\d{2}))?").match(text, pos)
    sign = -1 if m.group(1) == "-" else 1
    seconds = int(m.group(2)) * 3600 + int(m.group(3) or 0) * 60 + int(m.group(4) or 0)
    return sign * seconds, m.end()


def parse_name(text, pos):
    if text[pos] == "<":
        end = text.index(">", pos)
        return text[pos + 1:end], end + 1
    m = re.compile(r"[A-Za-z]+").match(text, pos)
    return m.group(0), m.end()


def parse_rule(text, pos):
    """Mm.w.d[/time] | Jn[/time] | n[/time] -> (kind, fields, time), position."""
    if text[pos] == "M":
        m = re.compile(r"M(\d+)\.(\d)\.(\d)").match(text, pos)
        rule, pos = ("M", int(m.group(1)), int(m.group(2)), int(m.group(3))), m.end()
    elif text[pos] == "J":
        m = re.compile(r"J(\d+)").match(text, pos)
        rule, pos = ("J", int(m.group(1))), m.end()
    else:
        m = re.compile(r"(\d+)").match(text, pos)
        rule, pos = ("N", int(m.group(1))), m.end()
    at = 7200
    if pos < len(text) and text[pos] == "/":
        at, pos = parse_offset(text, pos + 1)
    return (rule, at), pos


def parse_tz(text):
    """-> dict(std=(name, utoff), dst=(name, utoff) or None, start, end)."""
    std_name, pos = parse_name(text, 0)
    std_off, pos = parse_offset(text, pos)
    result = {"std": (std_name, -std_off), "dst": None}
    if pos >= len(text):
        return result
    dst_name, pos = parse_name(text, pos)
    dst_off = -std_off + 3600
    if pos < len(text) and text[pos] != ",":
        off, pos = parse_offset(text, pos)
        dst_off = -off
    result["dst"] = (dst_name, dst_off)
    start, pos = parse_rule(text, pos + 1)
    end, pos = parse_rule(text, pos + 1)
    result["start"], result["end"] = start, end
    return result


def days_before_year(year):
    y = year - 1
    return y * 365 + y // 4 - y // 100 + y // 400 - (1969 * 365 + 1969 // 4 - 1969 // 100 + 1969 // 400)


def is_leap(year):
    return year % 4 == 0 and (year % 100 != 0 or year % 400 == 0)


def rule_day(rule, year):
    """Day of the year (0-based) that a rule picks in year."""
    kind = rule[0]
    if kind == "J":
        n = rule[1]
        return n - 1 + (1 if is_leap(year) and n >= 60 else 0)
    if kind == "N":
        return rule[1]
    _, month, week, weekday = rule
    month_days = [31, 29 if is_leap(year) else 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31]
    first = sum(month_days[:month - 1])
    first_weekday = (days_before_year(year) + first + 4) % 7  # 1970-01-01 was a Thursday
    day = (weekday - first_weekday) % 7
    day += 7 * (week - 1)
    while day >= month_days[month - 1]:
        day -= 7
    return first + day


def footer_transitions(tz, year):
    """The two transitions a footer rule makes in year: (utc time, is_dst)."""
    (start_rule, start_at), (end_rule, end_at) = tz["start"], tz["end"]
    std, dst = tz["std"][1], tz["dst"][1]
    base = days_before_year(year) * 86400
    # The start is given in standard (local) time, the end in daylight time.
    start = base + rule_day(start_rule, year) * 86400 + start_at - std
    end = base + rule_day(end_rule, year) * 86400 + end_at - dst
    return sorted([(start, True), (end, False)])


# ---- One zone -----------------------------------------------------------------

def zone_records(path):
    times, indices, types, footer = read_tzif(path)
    tz = parse_tz(footer) if footer else None
    observes_dst = tz is not None and tz["dst"] is not None

    # Explicit transitions as (time, utoff, isdst, abbr). The zone files end
    # many zones with a placeholder at the end of 32-bit time that repeats
    # the record before it: it changes nothing, and kept as the last record
    # it would make the zone answer as if a change were still to come.
    explicit = [(t, types[i][0], types[i][1], types[i][2]) for t, i in zip(times, indices)]
    explicit = [r for k, r in enumerate(explicit)
                if not (r[0] == END_OF_32_BIT_TIME and k > 0 and r[1:] == explicit[k - 1][1:])]

    def standard_offset(k, seq):
        """The standard offset for a daylight record: that of the standard
        record it falls back to (the next one), else of the one before it;
        whichever leaves a non-zero daylight part."""
        utoff = seq[k][1]
        after = [seq[j][1] for j in range(k + 1, len(seq)) if not seq[j][2]][:1]
        before = [seq[j][1] for j in range(k - 1, -1, -1) if not seq[j][2]][:1]
        for candidate in after + before:
            if candidate != utoff:
                return candidate
        return utoff - 3600

    if observes_dst:
        records = [r for r in explicit if START_2000 <= r[0] < END_2050]
        last = explicit[-1][0] if explicit else START_2000 - 1
        year = max(2000, time_year(last))
        while year <= 2050:
            for t, is_dst in footer_transitions(tz, year):
                if t > last and START_2000 <= t < END_2050:
                    name, off = tz["dst"] if is_dst else tz["std"]
                    records.append((t, off, 1 if is_dst else 0, name))
            year += 1
        records.sort(key=lambda r: r[0])
        seq = records
        # The daylight records of the explicit data look for their standard
        # offset among all explicit records (also those before 2000); the
        # footer's records take the footer's standard offset.
        std_of = {}
        for k, r in enumerate(seq):
            if r[0] > last:
                std_of[k] = tz["std"][1]
            else:
                position = next(j for j, e in enumerate(explicit) if e[0] == r[0])
                std_of[k] = standard_offset(position, explicit)
    else:
        seq = [r for r in explicit if r[0] < END_2050]
        std_of = {k: standard_offset(k, seq) for k in range(len(seq))}

    offsets = []
    transitions = []
    for k, (t, utoff, isdst, abbr) in enumerate(seq):
        std = std_of[k] if isdst else utoff
        entry = (std, utoff - std, abbr)
        if entry not in offsets:
            offsets.append(entry)
        transitions.append((offsets.index(entry), t - SINCE_1970))
    if not offsets:
        utoff, isdst, abbr = types[0]
        offsets.append((utoff, 0, abbr))
    if len(transitions) > MAX_RECORDS:
        raise ValueError("%s: %d records" % (path, len(transitions)))
    return offsets, transitions


def time_year(t):
    days = t // 86400
    year = 1970 + days // 366
    while days_before_year(year + 1) <= days:
        year += 1
    return year


# ---- Output -------------------------------------------------------------------
#
# The layout (read by src/LUMTimeZone.cpp, which states it again):
# - names: one pool of NUL-terminated names in table order; an entry keeps
#   the offset of its name;
# - offsets: one pool of distinct offset records (standard, daylight,
#   abbreviation offset into a pool of NUL-terminated abbreviations); each
#   zone keeps a list of indices into it, in the order its transitions name;
# - transitions: the first time of a zone as a 64-bit count of seconds since
#   2001-01-01 (LUMAbsoluteTime), then one unsigned LEB128 number per later
#   transition for its distance from the one before: hours * 2 when the
#   distance is a whole number of hours, else seconds * 2 + 1. Distance
#   streams and index streams (a 4-bit local offset index per transition,
#   two to a byte, low half first) are shared by every zone they fit;
# - zones with the same records share one zone record.
# Nothing in it is a pointer, so the table needs no relocation.

def leb128(value):
    out = []
    while True:
        byte = value & 0x7F
        value >>= 7
        if value:
            out.append(byte | 0x80)
        else:
            out.append(byte)
            return out


def encode_distances(times):
    out = []
    for before, after in zip(times, times[1:]):
        distance = after - before
        assert distance > 0
        out += leb128(distance // 3600 * 2 if distance % 3600 == 0 else distance * 2 + 1)
    return out


def decode_distances(data, start, count, first):
    times, at = [first], start
    for _ in range(count - 1):
        value, shift = 0, 0
        while True:
            byte = data[at]
            at += 1
            value |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                break
        times.append(times[-1] + (value // 2 * 3600 if value % 2 == 0 else value // 2))
    return times


class Pool:
    """A byte pool that stores each distinct run once and hands out offsets."""

    def __init__(self):
        self.data = []
        self.where = {}

    def add(self, run):
        key = tuple(run)
        if key not in self.where:
            self.where[key] = len(self.data)
            self.data += run
        return self.where[key]


def c_bytes(data, per_line=24):
    return ["    " + "".join("%d," % b for b in data[i:i + per_line]) for i in range(0, len(data), per_line)]


def c_string_pool(texts):
    """One literal per text, so that no NUL escape can run into a digit."""
    lines, line = [], ""
    for text in texts:
        assert all(32 < ord(c) < 127 and c not in '\\"' for c in text)
        piece = '"%s\\0"' % text
        if line and len(line) + len(piece) > 100:
            lines.append("    " + line)
            line = ""
        line += (" " if line else "") + piece
    if line:
        lines.append("    " + line)
    return lines


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--zoneinfo", default="/usr/share/zoneinfo")
    args = parser.parse_args()

    names = [line.strip() for line in open(os.path.join(HERE, "tz", "zone-names.txt")) if line.strip()]
    assert len(names) == 547 and names == sorted(names), "zone-names.txt must hold 547 names in ASCII order"

    release = "unknown"
    zi = os.path.join(args.zoneinfo, "tzdata.zi")
    if os.path.exists(zi):
        m = re.match(r"# version (\S+)", open(zi).readline())
        release = m.group(1) if m else release

    # Each name resolves to a zone file; names resolving to one file share it.
    records_of = {}
    target_of = {}
    for name in names:
        source = REMOVED_NAMES.get(name, name)
        real = os.path.realpath(os.path.join(args.zoneinfo, source))
        target_of[name] = real
        if real not in records_of:
            records_of[real] = zone_records(real)

    # Zones with the same records share one zone record.
    abbreviations, abbreviation_at = [], {}
    offset_records, offset_index = [], {}
    offset_lists = []
    distances, indices = Pool(), Pool()
    zones, zone_of_content = [], {}
    for name in names:
        offsets, transitions = records_of[target_of[name]]
        content = (tuple(offsets), tuple(transitions))
        if content in zone_of_content:
            continue
        local = []
        for std, dst, abbr in offsets:
            if abbr not in abbreviation_at:
                abbreviation_at[abbr] = sum(len(a) + 1 for a in abbreviations)
                abbreviations.append(abbr)
            record = (std, dst, abbreviation_at[abbr])
            if record not in offset_index:
                offset_index[record] = len(offset_records)
                offset_records.append(record)
            local.append(offset_index[record])
        assert len(local) <= 16
        list_at = len(offset_lists)
        offset_lists += local
        times = [int(at) for _, at in transitions]
        assert all(at == int(at) for _, at in transitions)
        nibbles = [index for index, _ in transitions]
        packed = [nibbles[i] | (nibbles[i + 1] << 4 if i + 1 < len(nibbles) else 0) for i in range(0, len(nibbles), 2)]
        encoded = encode_distances(times)
        zone = (times[0] if times else 0, len(transitions), list_at, distances.add(encoded) if encoded else 0,
                indices.add(packed) if packed else 0)
        # The encoding must give back every record exactly.
        assert decode_distances(distances.data, zone[3], len(times), zone[0])[:len(times)] == times or not times
        zone_of_content[content] = len(zones)
        zones.append(zone)
    assert len(distances.data) < 65536 and len(indices.data) < 65536 and len(offset_lists) < 65536

    name_pool_size = sum(len(n) + 1 for n in names)
    assert name_pool_size < 65536

    out = []
    w = out.append
    w("/* LUMTimeZoneData.inc — the compiled zone table: %d names, %d distinct zones." % (len(names), len(zones)))
    w(" * Generated from IANA tz data release %s (Debian tzdata, compiled TZif files)" % release)
    w(" * by: python3 tools/tzgen.py > src/LUMTimeZoneData.inc")
    w(" * Do not edit by hand; regenerate instead. Part of LumBase; MIT licence. */")
    w("")
    w("// Zone names, NUL-terminated, in table order.")
    w("constexpr char __kLUMTimeZoneNamePool[] =")
    out += c_string_pool(names)
    w(";")
    w("")
    w("// Abbreviations, NUL-terminated.")
    w("constexpr char __kLUMTimeZoneAbbreviationPool[] =")
    out += c_string_pool(abbreviations)
    w(";")
    w("")
    w("// Distinct offset records: standard and daylight seconds, abbreviation.")
    w("constexpr __LUMTimeZoneOffset __kLUMTimeZoneOffsets[] = {")
    for std, dst, abbr in offset_records:
        w("    {%d, %d, %d}," % (std, dst, abbr))
    w("};")
    w("")
    w("// Each zone's offset records, as indices into __kLUMTimeZoneOffsets.")
    w("constexpr uint16_t __kLUMTimeZoneOffsetLists[] = {")
    out += c_bytes(offset_lists, 20)
    w("};")
    w("")
    w("// Distances between transitions (LEB128: hours * 2, or seconds * 2 + 1).")
    w("constexpr uint8_t __kLUMTimeZoneDistances[] = {")
    out += c_bytes(distances.data)
    w("};")
    w("")
    w("// Local offset index of each transition, 4 bits, low half first.")
    w("constexpr uint8_t __kLUMTimeZoneIndices[] = {")
    out += c_bytes(indices.data)
    w("};")
    w("")
    w("// Zones: first transition time, transition count, offset list, distances, indices.")
    w("constexpr __LUMTimeZoneRecords __kLUMTimeZoneRecords[] = {")
    for first, count, list_at, distance_at, index_at in zones:
        w("    {%d, %d, %d, %d, %d}," % (first, count, list_at, distance_at, index_at))
    w("};")
    w("")
    w("// The table, in ASCII order of name: name offset, zone record.")
    w("constexpr __LUMTimeZoneInfo __kLUMTimeZoneInfos[] = {")
    at = 0
    for name in names:
        offsets, transitions = records_of[target_of[name]]
        w("    {%d, %d}, // %s" % (at, zone_of_content[(tuple(offsets), tuple(transitions))], name))
        at += len(name) + 1
    w("};")
    w("static_assert(LUM_COUNTOF(__kLUMTimeZoneInfos) == %d);" % len(names))
    w("static_assert(sizeof(__kLUMTimeZoneNamePool) == %d);" % (name_pool_size + 1))
    sys.stdout.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
