#!/usr/bin/env python3
"""The oracle side of the standard JSON differential test.

  json_differential.py generate DIR COUNT SEED
      writes COUNT documents DIR/gen_<i>.json: random trees with awkward
      numbers (boundaries of 32 and 64 bits, integers beyond 64 bits, long
      mantissas, exponents, subnormals, negative zero), every kind of escape,
      raw and escaped non-ASCII text (astral characters as surrogate-pair
      escapes too), duplicate keys and random whitespace.
  json_differential.py repr COUNT SEED
      prints COUNT lines "<hex bits> <repr>" of finite doubles: random bit
      patterns, random decimals, powers of two and ten, subnormals.
  json_differential.py canonical FILE...
      prints, per file, one line: Python's json reading of the file in the
      canonical form the C++ test makes of the library's reading.

Canonical form: i<integer> for integers that fit 64 bits, d<hex bits> for
every other number (an integer beyond 64 bits as its correctly rounded
double), s<code points in hex, comma separated>, t, f, n, [items,] and
{key:value,} with entries sorted by their canonical key.
"""
import json
import random
import struct
import sys


def canonical(value):
    if value is True:
        return "t"
    if value is False:
        return "f"
    if value is None:
        return "n"
    if isinstance(value, int):
        if -(1 << 63) <= value < (1 << 63):
            return "i%d" % value
        return "d%016x" % struct.unpack("<Q", struct.pack("<d", float(value)))[0]
    if isinstance(value, float):
        return "d%016x" % struct.unpack("<Q", struct.pack("<d", value))[0]
    if isinstance(value, str):
        return "s" + ",".join("%x" % ord(c) for c in value)
    if isinstance(value, list):
        return "[" + "".join(canonical(v) + "," for v in value) + "]"
    entries = sorted((canonical(k), canonical(v)) for k, v in value.items())
    return "{" + "".join("%s:%s," % e for e in entries) + "}"


AWKWARD_TEXTS = [
    "0", "-0", "-0.0", "0e0", "0E+00", "1e308",
    "2147483647", "2147483648", "-2147483648", "-2147483649",
    "9223372036854775807", "9223372036854775808", "-9223372036854775808", "-9223372036854775809",
    "18446744073709551616", "123456789012345678901234567890",
    "0.1", "0.30000000000000004", "1.7976931348623157e308", "2.2250738585072014e-308",
    "2.2250738585072011e-308", "4.9406564584124654e-324", "5e-324", "2.4703282292062328e-324",
    "0.1000000000000000055511151231257827021181583404541015625", "9007199254740993",
    "9007199254740993.0", "1e23", "8.589973e9", "1.00000000000000011102230246251565404236316680908203125",
    "7.2057594037927933e16", "1e-7", "123e-2", "-1.5E+3", "3.14159265358979323846264338327950288",
]


def random_number(rng):
    kind = rng.randrange(7)
    if kind == 0:
        return rng.choice(AWKWARD_TEXTS)
    if kind == 1:
        return str(rng.randrange(-(1 << 70), 1 << 70) >> rng.randrange(0, 70))
    if kind == 2:
        bits = rng.getrandbits(64)
        value = struct.unpack("<d", struct.pack("<Q", bits))[0]
        if value != value or value in (float("inf"), float("-inf")):
            value = 1.5
        return rng.choice([repr(value), "%.17e" % value, "%.25g" % value, "%.20f" % value if abs(value) < 1e20 else repr(value)])
    if kind == 3:
        return "%d.%de%d" % (rng.randrange(-999, 1000), rng.randrange(0, 10 ** rng.randrange(1, 25)), rng.randrange(-330, 305))
    if kind == 4:
        return repr(rng.uniform(-1e6, 1e6))
    if kind == 5:
        return "%de%d" % (rng.randrange(1, 10 ** 19), rng.randrange(-40, 40))
    return str(rng.randrange(-5, 5))


ALPHABET = "abcXYZ 09_\"\\/\b\f\n\r\t\x00\x01\x1f\x7f\u00e9\u00df\u0800\u20ac\uffff\ufeff\U0001f600\U0010ffff\u65e5\u672c"


def random_string(rng):
    out = ['"']
    for _ in range(rng.randrange(0, 12)):
        c = rng.choice(ALPHABET)
        code = ord(c)
        style = rng.randrange(3)
        if c in '"\\' or code < 0x20:
            if style == 0 and c in '"\\/\b\f\n\r\t':
                out.append({'"': '\\"', "\\": "\\\\", "/": "\\/", "\b": "\\b", "\f": "\\f", "\n": "\\n",
                            "\r": "\\r", "\t": "\\t"}[c])
            else:
                out.append("\\u%04x" % code if style == 1 else "\\u%04X" % code)
        elif style == 0 or code < 0x80 and style == 1:
            out.append(c)
        elif code >= 0x10000:
            v = code - 0x10000
            out.append("\\u%04x\\u%04X" % (0xD800 + (v >> 10), 0xDC00 + (v & 0x3FF)))
        else:
            out.append("\\u%04x" % code)
    out.append('"')
    return "".join(out)


def space(rng):
    return "".join(rng.choice(" \t\n\r") for _ in range(rng.choice([0, 0, 0, 1, 2])))


def random_value(rng, depth):
    kind = rng.randrange(10 if depth < 5 else 6)
    if kind < 2:
        return random_number(rng)
    if kind < 4:
        return random_string(rng)
    if kind == 4:
        return rng.choice(["true", "false", "null"])
    if kind == 5:
        return random_number(rng)
    if kind < 8:
        items = [space(rng) + random_value(rng, depth + 1) + space(rng) for _ in range(rng.randrange(0, 6))]
        return "[" + ",".join(items) + "]" if items else "[" + space(rng) + "]"
    keys = [random_string(rng) for _ in range(rng.randrange(0, 6))]
    if keys and rng.randrange(3) == 0:
        keys.append(rng.choice(keys))  # a duplicate: the last value wins
    entries = [space(rng) + k + space(rng) + ":" + space(rng) + random_value(rng, depth + 1) + space(rng) for k in keys]
    return "{" + ",".join(entries) + "}" if entries else "{" + space(rng) + "}"


def random_double(rng, i):
    kind = i % 5
    if kind == 0:
        while True:
            value = struct.unpack("<d", struct.pack("<Q", rng.getrandbits(64)))[0]
            if value == value and abs(value) != float("inf"):
                return value
    if kind == 1:
        return float("%d.%de%d" % (rng.randrange(0, 1000), rng.randrange(0, 10 ** 8), rng.randrange(-30, 30)))
    if kind == 2:
        return rng.choice([-1.0, 1.0]) * 2.0 ** rng.randrange(-1074, 1024)
    if kind == 3:
        return float("1e%d" % rng.randrange(-323, 308))
    return struct.unpack("<d", struct.pack("<Q", rng.getrandbits(52)))[0]  # subnormal


def main():
    if sys.argv[1] == "repr":
        rng = random.Random(int(sys.argv[3]))
        for i in range(int(sys.argv[2])):
            value = random_double(rng, i)
            print("%016x %s" % (struct.unpack("<Q", struct.pack("<d", value))[0], repr(value)))
        return
    if sys.argv[1] == "generate":
        directory, count, seed = sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
        rng = random.Random(seed)
        for i in range(count):
            with open("%s/gen_%d.json" % (directory, i), "w", encoding="utf-8", newline="") as out:
                out.write(space(rng) + random_value(rng, 0) + space(rng))
        return
    for path in sys.argv[2:]:
        with open(path, "rb") as source:
            print(canonical(json.loads(source.read().decode("utf-8"))))


if __name__ == "__main__":
    main()
