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

def ident(name):
    return re.sub(r"[/-]", "_", name)


def c_double(value):
    return "%.1f" % value


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--zoneinfo", default="/usr/share/zoneinfo")
    args = parser.parse_args()

    names = [line.strip() for line in open(os.path.join(HERE, "tz", "zone-names.txt")) if line.strip()]
    assert len(names) == 547 and names == sorted(names), "zone-names.txt must hold 547 names in ASCII order"
    idents = [ident(n) for n in names]
    assert len(set(idents)) == len(idents), "two names map to one identifier"

    release = "unknown"
    zi = os.path.join(args.zoneinfo, "tzdata.zi")
    if os.path.exists(zi):
        m = re.match(r"# version (\S+)", open(zi).readline())
        release = m.group(1) if m else release

    # Each name resolves to a zone file; names resolving to one file share it.
    groups = {}
    target_of = {}
    for name in names:
        source = REMOVED_NAMES.get(name, name)
        real = os.path.realpath(os.path.join(args.zoneinfo, source))
        target = os.path.relpath(real, os.path.realpath(args.zoneinfo))
        target_of[name] = target
        if target not in groups:
            groups[target] = zone_records(real)

    out = []
    w = out.append
    w("/* LUMTimeZoneData.inc — the compiled zone table: %d names, %d distinct zones." % (len(names), len(groups)))
    w(" * Generated from IANA tz data release %s (Debian tzdata, compiled TZif files)" % release)
    w(" * by: python3 tools/tzgen.py > src/LUMTimeZoneData.inc")
    w(" * Do not edit by hand; regenerate instead. Part of LumBase; MIT licence. */")
    w("")
    w("// Offsets and transitions, one pair of arrays per distinct zone.")
    for target in sorted(groups):
        offsets, transitions = groups[target]
        w("constexpr __LUMTimeZoneOffset __kLUMTimeZoneOffsets_%s[] = {" % ident(target))
        for std, dst, abbr in offsets:
            w('    {%d, %d, "%s"},' % (std, dst, abbr))
        w("};")
        if transitions:
            w("constexpr __LUMTimeZoneTransition __kLUMTimeZoneTransitions_%s[] = {" % ident(target))
            for index, at in transitions:
                w("    {%d, %s}," % (index, c_double(at)))
            w("};")
    w("")
    w("// Zone names as constant string objects.")
    for name, identifier in zip(names, idents):
        w('constexpr __LUMString __kLUMTimeZoneName_%s = lum::constantString("%s");' % (identifier, name))
    w("")
    w("// The table, in ASCII order of name. Links share their zone's arrays.")
    w("constexpr __LUMTimeZoneInfo __kLUMTimeZoneInfos[] = {")
    for name, identifier in zip(names, idents):
        target = ident(target_of[name])
        count = len(groups[target_of[name]][1])
        transitions = "__kLUMTimeZoneTransitions_%s" % target if count else "nullptr"
        w("    {&__kLUMTimeZoneName_%s, __kLUMTimeZoneOffsets_%s, %d, %s}," % (identifier, target, count, transitions))
    w("};")
    w("static_assert(LUM_COUNTOF(__kLUMTimeZoneInfos) == %d);" % len(names))
    sys.stdout.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
