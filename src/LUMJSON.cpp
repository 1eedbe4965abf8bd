/* LUMJSON.cpp — standard JSON: a strict reader that builds property lists
 * with its own stack, and a writer that produces text any JSON reader
 * takes back unchanged.
 * Part of LumBase; MIT licence.
 *
 * The reader works on the whole document in memory: a stream is read to
 * its end first. Completed values wait on a value stack (keys on a key
 * stack) until their container closes; the container is then made in one
 * step, taking over those references. Every object on the stacks is owned
 * by the reader until it is handed to its container or to the caller, so
 * a failure anywhere releases what the stacks hold and nothing else. */
#define LUM_SOURCE_FILE "src/LUMJSON"
#include "LUMStringPrivate.h"

#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstdio>

#include <LumBase/LUMArray.h>
#include <LumBase/LUMBoolean.h>
#include <LumBase/LUMData.h>
#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMError.h>
#include <LumBase/LUMJSON.h>
#include <LumBase/LUMNull.h>
#include <LumBase/LUMNumber.h>
#include <LumBase/LUMReadStream.h>
#include <LumBase/LUMString.h>
#include <LumBase/LUMWriteStream.h>

#include <locale.h>

LUM_CONSTANT_STRING(kLUMJSONErrorDomain, "LUMJSONErrorDomain");
LUM_CONSTANT_STRING(kLUMJSONErrorByteOffsetKey, "LUMJSONErrorByteOffset");
LUM_CONSTANT_STRING(kLUMJSONErrorLineKey, "LUMJSONErrorLine");
LUM_CONSTANT_STRING(kLUMJSONErrorColumnKey, "LUMJSONErrorColumn");

namespace {

/* ---- Scratch memory --------------------------------------------------------
 * Private to one call and never seen by an allocator: plain malloc. A
 * failed growth sets `failed` and keeps what is there. */

template <typename T>
class Stack {
public:
    Stack() = default;
    Stack(const Stack &) = delete;
    Stack &operator=(const Stack &) = delete;
    ~Stack() { free(items_); }

    bool push(const T &item)
    {
        if (count_ == capacity_ && !grow(count_ + 1)) return false;
        items_[count_++] = item;
        return true;
    }
    bool reserve(size_t extra) { return count_ + extra <= capacity_ || grow(count_ + extra); }
    /* Room for n more items at the end, to be taken with commit(); NULL
     * when there is no memory. */
    T *room(size_t n) { return reserve(n > 0 ? n : 1) ? items_ + count_ : nullptr; }
    void commit(size_t n) { count_ += n; }
    /* n more items at the end, uninitialised; NULL when there is no memory. */
    T *extend(size_t n)
    {
        if (!reserve(n > 0 ? n : 1)) return nullptr; // a block even for none

        count_ += n;
        return items_ + count_ - n;
    }
    T &top() { return items_[count_ - 1]; }
    T &operator[](size_t i) { return items_[i]; }
    const T &itemAt(size_t i) const { return items_[i]; }
    T *at(size_t i) { return items_ + i; }
    size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    void pop() { count_--; }
    void truncate(size_t count) { count_ = count; }
    bool failed() const { return failed_; }

private:
    bool grow(size_t needed)
    {
        size_t capacity = capacity_ < 16 ? 16 : capacity_;
        while (capacity < needed) {
            if (capacity > SIZE_MAX / 2 / sizeof(T)) return fail();
            capacity *= 2;
        }
        T *grown = static_cast<T *>(realloc(items_, capacity * sizeof(T)));
        if (grown == nullptr) return fail();
        items_ = grown;
        capacity_ = capacity;
        return true;
    }
    bool fail()
    {
        failed_ = true;
        return false;
    }

    T *items_ = nullptr;
    size_t count_ = 0;
    size_t capacity_ = 0;
    bool failed_ = false;
};

/* A growing run of bytes. */
class Bytes {
public:
    Bytes() = default;
    Bytes(const Bytes &) = delete;
    Bytes &operator=(const Bytes &) = delete;
    ~Bytes() { free(bytes_); }

    bool reserve(size_t extra)
    {
        if (length_ + extra <= capacity_) return true;
        size_t capacity = capacity_ < 256 ? 256 : capacity_;
        while (capacity < length_ + extra) {
            if (capacity > SIZE_MAX / 2) return fail();
            capacity *= 2;
        }
        auto *grown = static_cast<UInt8 *>(realloc(bytes_, capacity));
        if (grown == nullptr) return fail();
        bytes_ = grown;
        capacity_ = capacity;
        return true;
    }
    bool append(const void *bytes, size_t length)
    {
        if (!reserve(length)) return false;
        if (length > 0) memcpy(bytes_ + length_, bytes, length);
        length_ += length;
        return true;
    }
    bool append(UInt8 byte) { return append(&byte, 1); }
    /* Room for extra bytes at end(); commit what was written with grow(). */
    UInt8 *end() { return bytes_ + length_; }
    void grow(size_t written) { length_ += written; }
    const UInt8 *data() const { return bytes_; }
    UInt8 *data() { return bytes_; }
    size_t size() const { return length_; }
    void clear() { length_ = 0; }
    bool failed() const { return failed_; }

private:
    bool fail()
    {
        failed_ = true;
        return false;
    }

    UInt8 *bytes_ = nullptr;
    size_t length_ = 0;
    size_t capacity_ = 0;
    bool failed_ = false;
};

/* ---- Numbers the same in every C locale ------------------------------------ */

locale_t cLocale()
{
    static locale_t locale = nullptr;
    if (locale == nullptr) locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return locale;
}

/* Runs the C library's number conversions in the C locale for its lifetime. */
class CLocaleScope {
public:
    CLocaleScope() : previous_(cLocale() != nullptr ? uselocale(cLocale()) : nullptr) {}
    ~CLocaleScope()
    {
        if (previous_ != nullptr) uselocale(previous_);
    }
    CLocaleScope(const CLocaleScope &) = delete;
    CLocaleScope &operator=(const CLocaleScope &) = delete;

private:
    locale_t previous_;
};

constexpr double kExactPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                        1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/* What the grammar pass learnt about a number's digits. */
struct Decimal {
    uint64_t mantissa = 0; // the first 19 significant digits
    int digits = 0;        // how many of them
    bool truncated = false; // a nonzero digit beyond them
    int64_t exponent = 0;  // value = mantissa x 10^exponent (before truncation)
    bool negative = false;
    bool integral = true;  // no fraction and no exponent part

    void takeDigit(UInt8 c, bool fractional)
    {
        uint64_t digit = static_cast<uint64_t>(c - '0');
        if (digits == 0 && digit == 0) {
            if (fractional) exponent--;
        } else if (digits < 19) {
            mantissa = mantissa * 10 + digit;
            digits++;
            if (fractional) exponent--;
        } else {
            truncated = truncated || digit != 0;
            if (!fractional) exponent++;
        }
    }

    /* The exponent part's digits from p on; where they end. Far beyond any
     * double's range the value no longer matters, only that it is far. */
    const UInt8 *takeExponent(const UInt8 *p, const UInt8 *end, bool negativeExponent)
    {
        int64_t value = 0;
        for (; p < end && *p >= '0' && *p <= '9'; p++) {
            if (value < 1000000) value = value * 10 + (*p - '0');
        }
        exponent += negativeExponent ? -value : value;
        return p;
    }
};

#ifdef __SIZEOF_INT128__
using Wide = unsigned __int128;

constexpr uint64_t kPowersOfTen[20] = {1ull,
                                       10ull,
                                       100ull,
                                       1000ull,
                                       10000ull,
                                       100000ull,
                                       1000000ull,
                                       10000000ull,
                                       100000000ull,
                                       1000000000ull,
                                       10000000000ull,
                                       100000000000ull,
                                       1000000000000ull,
                                       10000000000000ull,
                                       100000000000000ull,
                                       1000000000000000ull,
                                       10000000000000000ull,
                                       100000000000000000ull,
                                       1000000000000000000ull,
                                       10000000000000000000ull};

/* m x 2^exponent, plus something less than one unit of m when inexact,
 * rounded once to the nearest double (ties to even). m is nonzero and the
 * result normal, which the callers' ranges guarantee. */
double roundedDouble(Wide m, int exponent, bool inexact)
{
    uint64_t high = static_cast<uint64_t>(m >> 64);
    int bits = high != 0 ? 128 - __builtin_clzll(high) : 64 - __builtin_clzll(static_cast<uint64_t>(m));
    int shift = bits - 53;
    uint64_t mantissa;
    if (shift > 0) {
        mantissa = static_cast<uint64_t>(m >> shift);
        Wide rest = m & ((Wide{1} << shift) - 1);
        Wide half = Wide{1} << (shift - 1);
        if (rest > half || (rest == half && (inexact || (mantissa & 1) != 0))) mantissa++;
    } else {
        mantissa = static_cast<uint64_t>(m) << -shift; // exact: what is left over is below half a unit
    }
    return std::ldexp(static_cast<double>(mantissa), exponent + shift);
}

/* mantissa x 10^exponent correctly rounded with integer arithmetic, for
 * every mantissa below 2^64 and exponent in [-19, 19]. */
double exactDecimal(uint64_t mantissa, int exponent)
{
    if (exponent >= 0) return roundedDouble(Wide{mantissa} * kPowersOfTen[exponent], 0, false);
    // Divide with the mantissa at the top of 128 bits: a quotient of at
    // least 64 significant bits, and the remainder says whether inexact.
    int shift = 64 + __builtin_clzll(mantissa);
    Wide scaled = Wide{mantissa} << shift;
    uint64_t divisor = kPowersOfTen[-exponent];
    return roundedDouble(scaled / divisor, -shift, scaled % divisor != 0);
}
#endif

/* The correctly rounded double of the number text [begin, end). Exact
 * arithmetic when the digits and the power of ten are both exact doubles
 * (one rounding), or, where the compiler has 128-bit integers, exact
 * integer arithmetic for up to 19 digits and powers of ten up to 19;
 * otherwise the C library's correctly rounding strtod. */
double decimalToDouble(const Decimal &d, const UInt8 *begin, const UInt8 *end)
{
    if (d.mantissa == 0 && !d.truncated) return d.negative ? -0.0 : 0.0;
    if (!d.truncated && d.mantissa <= (uint64_t{1} << 53) && d.exponent >= -22 && d.exponent <= 22) {
        double value = static_cast<double>(d.mantissa);
        value = d.exponent < 0 ? value / kExactPowersOfTen[-d.exponent] : value * kExactPowersOfTen[d.exponent];
        return d.negative ? -value : value;
    }
#ifdef __SIZEOF_INT128__
    if (!d.truncated && d.exponent >= -19 && d.exponent <= 19) {
        double value = exactDecimal(d.mantissa, static_cast<int>(d.exponent));
        return d.negative ? -value : value;
    }
#endif
    size_t length = static_cast<size_t>(end - begin);
    char small[64];
    char *text = length < sizeof(small) ? small : static_cast<char *>(malloc(length + 1));
    if (text == nullptr) return NAN;
    memcpy(text, begin, length);
    text[length] = '\0';
    double value = cLocale() != nullptr ? strtod_l(text, nullptr, cLocale()) : strtod(text, nullptr);
    if (text != small) free(text);
    return value;
}

/* ---- UTF-8 ---------------------------------------------------------------- */

/* The length of the valid UTF-8 sequence at p (lead byte >= 0x80), or 0. */
int validSequenceLength(const UInt8 *p, const UInt8 *end)
{
    UInt8 lead = p[0];
    size_t available = static_cast<size_t>(end - p);
    auto continuation = [&](size_t i, UInt8 low, UInt8 high) { return i < available && p[i] >= low && p[i] <= high; };
    if (lead >= 0xC2 && lead <= 0xDF) return continuation(1, 0x80, 0xBF) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        UInt8 low = lead == 0xE0 ? 0xA0 : 0x80;  // no overlong forms
        UInt8 high = lead == 0xED ? 0x9F : 0xBF; // no encoded surrogates
        return continuation(1, low, high) && continuation(2, 0x80, 0xBF) ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        UInt8 low = lead == 0xF0 ? 0x90 : 0x80;
        UInt8 high = lead == 0xF4 ? 0x8F : 0xBF; // nothing above U+10FFFF
        return continuation(1, low, high) && continuation(2, 0x80, 0xBF) && continuation(3, 0x80, 0xBF) ? 4 : 0;
    }
    return 0;
}

int encodeUTF8(uint32_t codePoint, UInt8 *out)
{
    if (codePoint < 0x80) {
        out[0] = static_cast<UInt8>(codePoint);
        return 1;
    }
    if (codePoint < 0x800) {
        out[0] = static_cast<UInt8>(0xC0 | (codePoint >> 6));
        out[1] = static_cast<UInt8>(0x80 | (codePoint & 0x3F));
        return 2;
    }
    if (codePoint < 0x10000) {
        out[0] = static_cast<UInt8>(0xE0 | (codePoint >> 12));
        out[1] = static_cast<UInt8>(0x80 | ((codePoint >> 6) & 0x3F));
        out[2] = static_cast<UInt8>(0x80 | (codePoint & 0x3F));
        return 3;
    }
    out[0] = static_cast<UInt8>(0xF0 | (codePoint >> 18));
    out[1] = static_cast<UInt8>(0x80 | ((codePoint >> 12) & 0x3F));
    out[2] = static_cast<UInt8>(0x80 | ((codePoint >> 6) & 0x3F));
    out[3] = static_cast<UInt8>(0x80 | (codePoint & 0x3F));
    return 4;
}

/* ---- Byte classes ---------------------------------------------------------- */

/* Bytes that end a run of plain string text: quote, backslash, control
 * characters, and every byte of a multi-byte character. */
constexpr bool endsPlainText(UInt8 c) { return c == '"' || c == '\\' || c < 0x20 || c >= 0x80; }

struct ByteTable {
    bool entries[256];
};
constexpr ByteTable makePlainTextEnds()
{
    ByteTable table = {};
    for (int c = 0; c < 256; c++) table.entries[c] = endsPlainText(static_cast<UInt8>(c));
    return table;
}
constexpr ByteTable kPlainTextEnds = makePlainTextEnds();

constexpr bool isSpace(UInt8 c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
constexpr bool isDigit(UInt8 c) { return c >= '0' && c <= '9'; }

int hexValue(UInt8 c)
{
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<UInt8>(c | 0x20);
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

/* The first byte at or after p that ends plain text, or end. Eight bytes
 * at a time while whole words are left. */
const UInt8 *skipPlainText(const UInt8 *p, const UInt8 *end)
{
    constexpr uint64_t ones = 0x0101010101010101ull;
    constexpr uint64_t highs = 0x8080808080808080ull;
    while (end - p >= 8) {
        uint64_t word;
        memcpy(&word, p, 8);
        uint64_t quote = word ^ (ones * '"');
        uint64_t backslash = word ^ (ones * '\\');
        uint64_t stops = ((quote - ones) & ~quote) | ((backslash - ones) & ~backslash) | (word - ones * 0x20) | word;
        stops &= highs;
        if (stops != 0) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
            // Borrows only run upwards from a flagged byte, so the lowest
            // flag is exact: the first byte in memory that ends the run.
            return p + (__builtin_ctzll(stops) >> 3);
#else
            break;
#endif
        }
        p += 8;
    }
    while (p < end && !kPlainTextEnds.entries[*p]) p++;
    return p;
}

} // namespace

bool lum::convertDecimalText(const UInt8 *begin, const UInt8 *end, double &value)
{
    Decimal d;
    const UInt8 *p = begin;
    auto takeDigits = [&](bool fractional) {
        const UInt8 *first = p;
        for (; p < end && isDigit(*p); p++) d.takeDigit(*p, fractional);
        return p != first;
    };
    if (p < end && *p == '-') {
        d.negative = true;
        p++;
    }
    if (!takeDigits(false)) return false;
    if (p < end && *p == '.') {
        p++;
        if (!takeDigits(true)) return false;
    }
    if (p < end && (*p == 'e' || *p == 'E')) {
        p++;
        bool negativeExponent = false;
        if (p < end && (*p == '+' || *p == '-')) negativeExponent = *p++ == '-';
        if (p == end || !isDigit(*p)) return false;
        p = d.takeExponent(p, end, negativeExponent);
    }
    if (p != end) return false;
    value = decimalToDouble(d, begin, end);
    return !std::isnan(value); // NaN only without memory for the long form
}

namespace {

/* ---- Where a reading error is ------------------------------------------------ */

struct Failure {
    LUMIndex code = 0;
    size_t offset = 0;
    bool outOfRange = false; // a number too large for a double
};

/* Line and column (both from 1; a column counts characters, that is bytes
 * that do not continue a UTF-8 sequence) of offset in bytes. */
void locate(const UInt8 *bytes, size_t offset, LUMIndex &line, LUMIndex &column)
{
    line = 1;
    column = 1;
    for (size_t i = 0; i < offset; i++) {
        if (bytes[i] == '\n') {
            line++;
            column = 1;
        } else if ((bytes[i] & 0xC0) != 0x80) {
            column++;
        }
    }
}

/* The sentence a reading error reads as. */
LUMStringRef copyReadingDescription(const Failure &failure, const UInt8 *bytes, size_t length, LUMIndex line, LUMIndex column)
{
    char what[64];
    UInt8 c = failure.offset < length ? bytes[failure.offset] : 0;
    auto describeByte = [&](const char *prefix, const char *suffix) {
        if (c > 0x20 && c < 0x7F) snprintf(what, sizeof what, "%scharacter '%c'%s", prefix, c, suffix);
        else snprintf(what, sizeof what, "%sbyte 0x%02X%s", prefix, c, suffix);
    };
    switch (failure.code) {
    case kLUMJSONErrorUnexpectedCharacter: describeByte("Unexpected ", ""); break;
    case kLUMJSONErrorTrailingGarbage: describeByte("Unexpected ", " after the value"); break;
    case kLUMJSONErrorUnexpectedEnd: snprintf(what, sizeof what, "Unexpected end of input"); break;
    case kLUMJSONErrorInvalidUTF8: snprintf(what, sizeof what, "Invalid UTF-8"); break;
    case kLUMJSONErrorInvalidEscape: snprintf(what, sizeof what, "Invalid escape"); break;
    case kLUMJSONErrorNoMemory: snprintf(what, sizeof what, "Out of memory"); break;
    default: snprintf(what, sizeof what, failure.outOfRange ? "Number out of range" : "Invalid number"); break;
    }
    char sentence[128];
    snprintf(sentence, sizeof sentence, "%s at line %ld, column %ld", what, static_cast<long>(line), static_cast<long>(column));
    return LUMStringCreateWithCString(nullptr, sentence, kLUMStringEncodingUTF8);
}

/* A new error in the JSON domain; position entries when located. Made with
 * the default allocator, so that a caller's allocator that ran out still
 * gets its error. */
LUMErrorRef createError(LUMIndex code, LUMStringRef description, const LUMIndex *position)
{
    const void *keys[4] = {kLUMErrorLocalizedDescriptionKey, kLUMJSONErrorByteOffsetKey, kLUMJSONErrorLineKey, kLUMJSONErrorColumnKey};
    const void *values[4] = {description, nullptr, nullptr, nullptr};
    LUMIndex count = 1;
    if (position != nullptr) {
        for (int i = 0; i < 3; i++) values[1 + i] = LUMNumberCreate(nullptr, kLUMNumberLUMIndexType, &position[i]);
        count = 4;
    }
    LUMDictionaryRef userInfo =
        LUMDictionaryCreate(nullptr, keys, values, count, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    LUMErrorRef error = LUMErrorCreate(nullptr, kLUMJSONErrorDomain, code, userInfo);
    LUMRelease(userInfo);
    for (LUMIndex i = 1; i < count; i++) LUMRelease(values[i]);
    return error;
}

void reportReadingFailure(const Failure &failure, const UInt8 *bytes, size_t length, LUMErrorRef *error)
{
    if (error == nullptr) return;
    LUMIndex position[3] = {static_cast<LUMIndex>(failure.offset), 0, 0};
    locate(bytes, failure.offset, position[1], position[2]);
    LUMStringRef description = copyReadingDescription(failure, bytes, length, position[1], position[2]);
    *error = createError(failure.code, description, position);
    LUMRelease(description);
}

void reportFailure(LUMIndex code, const char *sentence, LUMErrorRef *error)
{
    if (error == nullptr) return;
    LUMStringRef description = LUMStringCreateWithCString(nullptr, sentence, kLUMStringEncodingUTF8);
    *error = createError(code, description, nullptr);
    LUMRelease(description);
}

/* ---- Values read once, shared by every place that holds them --------------
 * Strings and numbers are immutable, so a read gives equal keys, equal
 * short strings and equal integers one object each: fewer allocations, and
 * equal keys are one pointer (which is how duplicate keys are found). */

uint64_t load64(const UInt8 *at)
{
    uint64_t word;
    memcpy(&word, at, 8);
    return word;
}

uint64_t load32(const UInt8 *at)
{
    uint32_t word;
    memcpy(&word, at, 4);
    return word;
}

/* The first and last (up to) eight bytes, and a middle word for longer
 * texts: equal texts are confirmed byte for byte anyway, so the hash only
 * has to spread ordinary keys well, and cheaply. */
uint64_t hashBytes(const UInt8 *p, size_t length)
{
    uint64_t first, last, middle = 0;
    if (length >= 8) {
        first = load64(p);
        last = load64(p + length - 8);
        if (length > 16) middle = load64(p + length / 2 - 4);
    } else if (length >= 4) {
        first = load32(p);
        last = load32(p + length - 4);
    } else {
        first = length > 0 ? uint64_t{p[0]} << 16 | uint64_t{p[length / 2]} << 8 | p[length - 1] : 0;
        last = 0;
    }
    uint64_t h = (first * 0x9E3779B97F4A7C15ull) ^ (last * 0xC4CEB9FE1A85EC53ull) ^ (middle * 0xFF51AFD7ED558CCDull) ^ length;
    return h ^ (h >> 32);
}

/* Whether two texts of the same length are equal; short ones word-wise. */
bool sameBytes(const UInt8 *a, const UInt8 *b, size_t length)
{
    if (length >= 8 && length <= 16) return load64(a) == load64(b) && load64(a + length - 8) == load64(b + length - 8);
    if (length >= 4 && length < 8) return load32(a) == load32(b) && load32(a + length - 4) == load32(b + length - 4);
    return memcmp(a, b, length) == 0;
}

class SharedStrings {
public:
    SharedStrings() = default;
    SharedStrings(const SharedStrings &) = delete;
    SharedStrings &operator=(const SharedStrings &) = delete;
    ~SharedStrings()
    {
        for (size_t i = 0; i < entries_.size(); i++) LUMRelease(entries_[i].string);
        free(index_);
    }

    /* Where a string is kept: its entry number stays the same for the
     * whole read. mark and position serve the duplicate-key check. */
    struct Entry {
        LUMStringRef string;
        uint32_t length; // bytes of its text (ASCII, or two per unit)
        uint32_t hash;
        uint32_t mark;
        LUMIndex position;
        uint32_t next;      // the key that last followed this one in an object
        bool literal;       // ASCII whose document form is itself: no escape needed
    };
    static constexpr uint32_t kNone = UINT32_MAX;

    /* Whether the document at p (a quote) holds exactly this entry's text
     * between quotes, with nothing escaped. */
    bool matchesQuoted(uint32_t number, const UInt8 *p, const UInt8 *end) const
    {
        const Entry &entry = entries_.itemAt(number);
        size_t length = entry.length;
        return entry.literal && static_cast<size_t>(end - p) > length + 1 && p[length + 1] == '"' &&
               sameBytes(p + 1, static_cast<const UInt8 *>(entry.string->buffer), length);
    }

    /* The entry of the string read earlier with this text (ASCII bytes or
     * unit bytes, told apart by the hash), or kNone. */
    uint32_t find(const UInt8 *text, size_t length, uint32_t hash) const
    {
        if (capacity_ == 0) return kNone;
        for (size_t i = hash & (capacity_ - 1);; i = (i + 1) & (capacity_ - 1)) {
            const Slot &slot = index_[i];
            if (slot.entry == 0) return kNone;
            if (slot.hash != hash) continue;
            const Entry &entry = entries_.itemAt(slot.entry - 1);
            if (entry.length == length && sameBytes(static_cast<const UInt8 *>(entry.string->buffer), text, length)) return slot.entry - 1;
        }
    }

    /* Keeps a reference to string (whose own text is the text it is found
     * by) and returns its entry, or kNone when there is no memory. */
    uint32_t insert(LUMStringRef string, size_t length, uint32_t hash)
    {
        if (2 * (entries_.size() + 1) > capacity_ && !grow()) return kNone;
        bool literal = string->bufferType == _kLUMStringBufferTypeCString;
        const auto *text = static_cast<const UInt8 *>(string->buffer);
        for (size_t i = 0; i < length && literal; i++) literal = !endsPlainText(text[i]);
        if (!entries_.push({string, static_cast<uint32_t>(length), hash, 0, 0, kNone, literal})) return kNone;
        LUMRetain(string);
        size_t i = hash & (capacity_ - 1);
        while (index_[i].entry != 0) i = (i + 1) & (capacity_ - 1);
        index_[i] = {static_cast<uint32_t>(entries_.size()), hash};
        return static_cast<uint32_t>(entries_.size() - 1);
    }

    Entry &entry(uint32_t number) { return entries_[number]; }
    size_t count() const { return entries_.size(); }

private:
    bool grow()
    {
        size_t capacity = capacity_ == 0 ? 1024 : capacity_ * 2;
        auto *index = static_cast<Slot *>(calloc(capacity, sizeof(Slot)));
        if (index == nullptr) return false;
        for (size_t n = 0; n < entries_.size(); n++) {
            size_t at = entries_[n].hash & (capacity - 1);
            while (index[at].entry != 0) at = (at + 1) & (capacity - 1);
            index[at] = {static_cast<uint32_t>(n + 1), entries_[n].hash};
        }
        free(index_);
        index_ = index;
        capacity_ = capacity;
        return true;
    }

    /* The hash beside the entry number spares a visit to the entry (and
     * to the string's text) for every slot that cannot match. */
    struct Slot {
        uint32_t entry; // entry number + 1; 0 is free
        uint32_t hash;
    };

    Stack<Entry> entries_;
    Slot *index_ = nullptr;
    size_t capacity_ = 0;
};

/* Integers read in one call, by value. */
class SharedIntegers {
public:
    SharedIntegers() = default;
    SharedIntegers(const SharedIntegers &) = delete;
    SharedIntegers &operator=(const SharedIntegers &) = delete;
    ~SharedIntegers()
    {
        for (size_t i = 0; i < capacity_; i++)
            if (slots_[i].number != nullptr) LUMRelease(slots_[i].number);
        free(slots_);
    }

    LUMNumberRef find(int64_t value) const
    {
        if (capacity_ == 0) return nullptr;
        for (size_t i = slotOf(value, capacity_);; i = (i + 1) & (capacity_ - 1)) {
            if (slots_[i].number == nullptr) return nullptr;
            if (slots_[i].value == value) return slots_[i].number;
        }
    }
    size_t count() const { return count_; }
    /* Keeps a reference to number under value; false (nothing kept) when
     * there is no memory. */
    bool insert(int64_t value, LUMNumberRef number)
    {
        if (2 * (count_ + 1) > capacity_ && !grow()) return false;
        size_t i = slotOf(value, capacity_);
        while (slots_[i].number != nullptr) i = (i + 1) & (capacity_ - 1);
        slots_[i] = {value, static_cast<LUMNumberRef>(LUMRetain(number))};
        count_++;
        return true;
    }

private:
    struct Slot {
        int64_t value;
        LUMNumberRef number;
    };
    static size_t slotOf(int64_t value, size_t capacity)
    {
        uint64_t h = static_cast<uint64_t>(value) * 0x9E3779B97F4A7C15ull;
        return static_cast<size_t>(h ^ (h >> 29)) & (capacity - 1);
    }
    bool grow()
    {
        size_t capacity = capacity_ == 0 ? 64 : capacity_ * 2;
        auto *slots = static_cast<Slot *>(calloc(capacity, sizeof(Slot)));
        if (slots == nullptr) return false;
        for (size_t i = 0; i < capacity_; i++) {
            if (slots_[i].number == nullptr) continue;
            size_t at = slotOf(slots_[i].value, capacity);
            while (slots[at].number != nullptr) at = (at + 1) & (capacity - 1);
            slots[at] = slots_[i];
        }
        free(slots_);
        slots_ = slots;
        capacity_ = capacity;
        return true;
    }

    Slot *slots_ = nullptr;
    size_t capacity_ = 0;
    size_t count_ = 0;
};

/* Values shared within one read: strings of at most this many bytes (of
 * ASCII or of units), and up to this many of each kind. */
constexpr size_t kSharedValueBytes = 32;
constexpr size_t kSharedValueLimit = 65536;

/* ---- The reader ------------------------------------------------------------ */

class Reader {
public:
    Reader(LUMAllocatorRef allocator, const UInt8 *bytes, size_t length, bool mutableContainers)
        : allocator_(allocator), begin_(bytes), p_(bytes), end_(bytes + length), mutable_(mutableContainers)
    {
    }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;
    ~Reader()
    {
        for (size_t i = 0; i < values_.size(); i++) LUMRelease(values_[i]);
        for (size_t i = 0; i < keys_.size(); i++) LUMRelease(keys_[i]);
    }

    /* The document's value (the caller owns it), or NULL with failure set. */
    LUMPropertyListRef read();
    const Failure &failure() const { return failure_; }

private:
    struct Frame {
        size_t firstValue;
        size_t firstKey;
        bool isObject;
    };
    /* A string's text after escapes: ASCII bytes (in the document or in
     * text_) when every character is ASCII and none is NUL, otherwise
     * UTF-16 units in units_ (length then counts bytes, two per unit). */
    struct Text {
        const UInt8 *bytes;
        size_t length;
        bool plainASCII;
    };

    bool fail(LUMIndex code, const UInt8 *at)
    {
        if (failure_.code == 0) failure_ = {code, static_cast<size_t>(at - begin_), false};
        return false;
    }
    bool failEnd() { return fail(kLUMJSONErrorUnexpectedEnd, end_); }
    bool failNoMemory() { return fail(kLUMJSONErrorNoMemory, p_); }
    bool failUnexpected() { return p_ == end_ ? failEnd() : fail(kLUMJSONErrorUnexpectedCharacter, p_); }

    void skipSpace()
    {
        while (p_ < end_ && isSpace(*p_)) {
            p_++;
            // Indentation comes in long runs of spaces.
            while (end_ - p_ >= 8) {
                uint64_t word;
                memcpy(&word, p_, 8);
                if (word != 0x2020202020202020ull) break;
                p_ += 8;
            }
        }
    }
    bool pushValue(LUMTypeRef value)
    {
        if (value == nullptr) return failNoMemory();
        if (values_.push(value)) return true;
        LUMRelease(value);
        return failNoMemory();
    }

    bool readValue();
    bool readItem();
    bool openContainer(bool isObject);
    bool closeContainer();
    bool readKeyAndColon();
    bool readText(Text &text);
    bool readEscapedText(const UInt8 *start, Text &text);
    bool readMultiByteRun();
    bool readEscape(UniChar (&units)[2], int &count);
    bool readString();
    bool readNumber();
    bool readLiteral(const char *word, size_t length, LUMTypeRef value);
    LUMStringRef createString(const Text &text);
    LUMStringRef sharedString(const Text &text, bool isKey, uint32_t &entry);
    LUMNumberRef sharedInteger(int64_t value);
    void removeDuplicateKeys(const void **keys, const void **values, uint32_t *entries, LUMIndex &count);

    LUMAllocatorRef allocator_;
    const UInt8 *begin_;
    const UInt8 *p_;
    const UInt8 *end_;
    bool mutable_;
    Failure failure_;
    Stack<const void *> values_;
    Stack<const void *> keys_;
    Stack<uint32_t> keyEntries_; // beside keys_: where each key is kept
    Stack<Frame> frames_;
    Bytes text_;
    Stack<UniChar> units_;
    SharedStrings strings_;
    uint32_t closedObjects_ = 0;
    uint32_t firstKeyGuess_ = SharedStrings::kNone; // the first key of the last object
    SharedIntegers integers_;
};

LUMPropertyListRef Reader::read()
{
    // A UTF-8 byte order mark before the text is ignored, as the RFC allows.
    if (end_ - p_ >= 3 && p_[0] == 0xEF && p_[1] == 0xBB && p_[2] == 0xBF) p_ += 3;
    skipSpace();
    if (!readValue()) return nullptr;
    while (true) {
        skipSpace();
        if (frames_.empty()) break;
        if (!readItem()) return nullptr;
    }
    if (p_ != end_) return fail(kLUMJSONErrorTrailingGarbage, p_), nullptr;
    LUMPropertyListRef result = values_[0];
    values_.truncate(0);
    return result;
}

/* One step inside the innermost open container: its closing bracket, or
 * its next element (after a comma unless it is the first), or for an
 * object its next key, colon and value. */
bool Reader::readItem()
{
    const Frame &frame = frames_.top();
    bool isObject = frame.isObject;
    bool first = values_.size() == frame.firstValue;
    if (p_ == end_) return failEnd();
    if (*p_ == (isObject ? '}' : ']')) {
        p_++;
        return closeContainer();
    }
    if (!first) {
        if (*p_ != ',') return failUnexpected();
        p_++;
        skipSpace();
    }
    if (isObject && !readKeyAndColon()) return false;
    return readValue();
}

/* Reads the value at p_: a scalar is pushed, a container is opened. */
bool Reader::readValue()
{
    if (p_ == end_) return failEnd();
    switch (*p_) {
    case '{': return openContainer(true);
    case '[': return openContainer(false);
    case '"': return readString();
    case 't': return readLiteral("true", 4, kLUMBooleanTrue);
    case 'f': return readLiteral("false", 5, kLUMBooleanFalse);
    case 'n': return readLiteral("null", 4, kLUMNull);
    default:
        if (*p_ == '-' || isDigit(*p_)) return readNumber();
        return failUnexpected();
    }
}

bool Reader::openContainer(bool isObject)
{
    p_++;
    if (!frames_.push({values_.size(), keys_.size(), isObject})) return failNoMemory();
    return true;
}

/* Makes the innermost container from what its frame gathered and pushes it
 * as a value of the one around it. */
bool Reader::closeContainer()
{
    Frame frame = frames_.top();
    LUMIndex count = static_cast<LUMIndex>(values_.size() - frame.firstValue);
    const void **values = values_.at(frame.firstValue);
    LUMTypeRef container;
    if (frame.isObject) {
        const void **keys = keys_.at(frame.firstKey);
        removeDuplicateKeys(keys, values, keyEntries_.at(frame.firstKey), count);
        container = lum::createDictionaryAdopting(allocator_, keys, values, count, mutable_);
        if (container == nullptr) {
            // The dropped duplicates are gone already; the rest still ours.
            keys_.truncate(frame.firstKey + static_cast<size_t>(count));
            values_.truncate(frame.firstValue + static_cast<size_t>(count));
            return failNoMemory();
        }
        keys_.truncate(frame.firstKey);
        keyEntries_.truncate(frame.firstKey);
    } else {
        container = lum::createArrayAdopting(allocator_, values, count, mutable_);
        if (container == nullptr) return failNoMemory();
    }
    values_.truncate(frame.firstValue);
    frames_.pop();
    return pushValue(container);
}

/* Keeps the last value of each key, in the place of the key's first
 * occurrence. Equal keys are one entry of the shared strings; marking each
 * entry with this object's serial number finds repeats in one pass. */
void Reader::removeDuplicateKeys(const void **keys, const void **values, uint32_t *entries, LUMIndex &count)
{
    uint32_t serial = ++closedObjects_;
    LUMIndex kept = 0;
    for (LUMIndex i = 0; i < count; i++) {
        SharedStrings::Entry &entry = strings_.entry(entries[i]);
        if (entry.mark == serial) {
            LUMRelease(values[entry.position]);
            values[entry.position] = values[i];
            LUMRelease(keys[i]);
            continue;
        }
        entry.mark = serial;
        entry.position = kept;
        keys[kept] = keys[i];
        values[kept] = values[i];
        entries[kept] = entries[i];
        kept++;
    }
    count = kept;
}

/* Reads a key, the colon and the space after it. Objects in a document
 * tend to repeat their keys in the same order, so the key that followed
 * the previous key last time is tried first, byte for byte: a hit needs no
 * scanning, hashing or lookup. */
bool Reader::readKeyAndColon()
{
    if (p_ == end_) return failEnd();
    if (*p_ != '"') return failUnexpected();
    bool first = keys_.size() == frames_.top().firstKey;
    uint32_t previous = first ? SharedStrings::kNone : keyEntries_.top();
    uint32_t guess = first ? firstKeyGuess_ : strings_.entry(previous).next;
    uint32_t entry = guess;
    LUMStringRef key;
    if (guess != SharedStrings::kNone && strings_.matchesQuoted(guess, p_, end_)) {
        key = static_cast<LUMStringRef>(LUMRetain(strings_.entry(guess).string));
        p_ += strings_.entry(guess).length + 2;
    } else {
        Text text;
        if (!readText(text)) return false;
        key = sharedString(text, true, entry);
        if (key == nullptr) return failNoMemory();
        if (first) firstKeyGuess_ = entry;
        else strings_.entry(previous).next = entry;
    }
    if (!keys_.push(key)) {
        LUMRelease(key);
        return failNoMemory();
    }
    if (!keyEntries_.push(entry)) return failNoMemory();
    skipSpace();
    if (p_ == end_) return failEnd();
    if (*p_ != ':') return failUnexpected();
    p_++;
    skipSpace();
    return true;
}

/* Reads the string at p_ (its opening quote) into text. Text without
 * escapes or multi-byte characters stays where it is in the document. */
bool Reader::readText(Text &text)
{
    const UInt8 *start = ++p_;
    const UInt8 *stop = skipPlainText(start, end_);
    if (stop < end_ && *stop == '"') {
        text = {start, static_cast<size_t>(stop - start), true};
        p_ = stop + 1;
        return true;
    }
    p_ = stop;
    return readEscapedText(start, text);
}

/* The rest of a string whose plain start is [start, p_): decoded into
 * units_, escapes and multi-byte characters checked on the way, and
 * narrowed to ASCII bytes again when that is all it holds. */
bool Reader::readEscapedText(const UInt8 *start, Text &text)
{
    units_.truncate(0);
    uint32_t seen = 0; // all units ORed: below 0x80 means ASCII
    bool hasNUL = false;
    auto widen = [&](const UInt8 *from, const UInt8 *to) {
        UniChar *out = units_.extend(static_cast<size_t>(to - from));
        if (out == nullptr) return failNoMemory();
        while (from < to) *out++ = *from++;
        return true;
    };
    if (!widen(start, p_)) return false;
    while (true) {
        if (p_ == end_) return failEnd();
        UInt8 c = *p_;
        if (c == '"') break;
        if (c == '\\') {
            UniChar unit[2];
            int count = 0;
            if (!readEscape(unit, count)) return false;
            UniChar *out = units_.extend(static_cast<size_t>(count));
            if (out == nullptr) return failNoMemory();
            for (int i = 0; i < count; i++) {
                out[i] = unit[i];
                seen |= unit[i];
                hasNUL = hasNUL || unit[i] == 0;
            }
        } else if (c < 0x20) {
            return fail(kLUMJSONErrorUnexpectedCharacter, p_);
        } else if (c >= 0x80) {
            if (!readMultiByteRun()) return false;
            seen |= 0x80;
        } else {
            const UInt8 *run = p_;
            p_ = skipPlainText(p_, end_);
            if (!widen(run, p_)) return false;
        }
    }
    p_++;
    size_t count = units_.size();
    if (seen < 0x80 && !hasNUL) {
        text_.clear();
        if (!text_.reserve(count)) return failNoMemory();
        UInt8 *out = text_.end();
        for (size_t i = 0; i < count; i++) out[i] = static_cast<UInt8>(*units_.at(i));
        text_.grow(count);
        text = {text_.data(), count, true};
    } else {
        text = {reinterpret_cast<const UInt8 *>(units_.at(0)), count * sizeof(UniChar), false};
    }
    return true;
}

/* Decodes the multi-byte characters from p_ onto units_, up to the next
 * ASCII byte; the first sequence that is not UTF-8 is an error. Three-byte
 * characters (most of the BMP) take a short path. */
bool Reader::readMultiByteRun()
{
    constexpr size_t kChunk = 64; // units decoded between checks for room
    while (p_ < end_ && *p_ >= 0x80) {
        UniChar *out = units_.room(kChunk);
        if (out == nullptr) return failNoMemory();
        size_t written = 0;
        while (written + 2 <= kChunk && p_ < end_ && *p_ >= 0x80) {
            UInt8 lead = *p_;
            if (lead >= 0xE1 && lead <= 0xEC && end_ - p_ >= 3 && (p_[1] & 0xC0) == 0x80 && (p_[2] & 0xC0) == 0x80) {
                out[written++] = static_cast<UniChar>(((lead & 0x0F) << 12) | ((p_[1] & 0x3F) << 6) | (p_[2] & 0x3F));
                p_ += 3;
                continue;
            }
            int length = validSequenceLength(p_, end_);
            if (length == 0) {
                units_.commit(written);
                return fail(kLUMJSONErrorInvalidUTF8, p_);
            }
            if (length == 2) {
                out[written++] = static_cast<UniChar>(((lead & 0x1F) << 6) | (p_[1] & 0x3F));
            } else if (length == 3) {
                out[written++] = static_cast<UniChar>(((lead & 0x0F) << 12) | ((p_[1] & 0x3F) << 6) | (p_[2] & 0x3F));
            } else {
                uint32_t c = ((lead & 0x07u) << 18) | ((p_[1] & 0x3Fu) << 12) | ((p_[2] & 0x3Fu) << 6) | (p_[3] & 0x3Fu);
                c -= 0x10000;
                out[written++] = static_cast<UniChar>(0xD800 | (c >> 10));
                out[written++] = static_cast<UniChar>(0xDC00 | (c & 0x3FF));
            }
            p_ += length;
        }
        units_.commit(written);
    }
    return true;
}

/* Decodes the escape at p_ (its backslash) into one unit, or two for a
 * surrogate pair. */
bool Reader::readEscape(UniChar (&units)[2], int &count)
{
    const UInt8 *backslash = p_;
    if (end_ - p_ < 2) return failEnd();
    UInt8 c = p_[1];
    p_ += 2;
    count = 1;
    switch (c) {
    case '"': units[0] = '"'; return true;
    case '\\': units[0] = '\\'; return true;
    case '/': units[0] = '/'; return true;
    case 'b': units[0] = '\b'; return true;
    case 'f': units[0] = '\f'; return true;
    case 'n': units[0] = '\n'; return true;
    case 'r': units[0] = '\r'; return true;
    case 't': units[0] = '\t'; return true;
    case 'u': break;
    default: return fail(kLUMJSONErrorInvalidEscape, backslash);
    }
    auto readHex = [&](uint32_t &unit) {
        if (end_ - p_ < 4) {
            for (const UInt8 *q = p_; q < end_; q++)
                if (hexValue(*q) < 0) return fail(kLUMJSONErrorInvalidEscape, backslash);
            return failEnd();
        }
        unit = 0;
        for (int i = 0; i < 4; i++) {
            int digit = hexValue(p_[i]);
            if (digit < 0) return fail(kLUMJSONErrorInvalidEscape, backslash);
            unit = unit << 4 | static_cast<uint32_t>(digit);
        }
        p_ += 4;
        return true;
    };
    uint32_t unit = 0;
    if (!readHex(unit)) return false;
    if (unit >= 0xDC00 && unit <= 0xDFFF) return fail(kLUMJSONErrorInvalidEscape, backslash);
    units[0] = static_cast<UniChar>(unit);
    if (unit < 0xD800 || unit > 0xDBFF) return true;
    // A high surrogate: only a low-surrogate escape may follow.
    if (end_ - p_ < 2) return p_ == end_ || *p_ == '\\' ? failEnd() : fail(kLUMJSONErrorInvalidEscape, backslash);
    if (p_[0] != '\\' || p_[1] != 'u') return fail(kLUMJSONErrorInvalidEscape, backslash);
    const UInt8 *second = p_;
    p_ += 2;
    uint32_t low = 0;
    if (!readHex(low)) return false;
    if (low < 0xDC00 || low > 0xDFFF) return fail(kLUMJSONErrorInvalidEscape, second);
    units[1] = static_cast<UniChar>(low);
    count = 2;
    return true;
}

LUMStringRef Reader::createString(const Text &text)
{
    if (text.plainASCII) return lum::createStringWithASCII(allocator_, text.bytes, static_cast<LUMIndex>(text.length));
    return lum::createStringWithUnits(allocator_, reinterpret_cast<const UniChar *>(text.bytes),
                                      static_cast<LUMIndex>(text.length / sizeof(UniChar)));
}

bool Reader::readString()
{
    Text text;
    if (!readText(text)) return false;
    uint32_t entry;
    bool shared = text.length <= kSharedValueBytes && strings_.count() < kSharedValueLimit;
    return pushValue(shared ? sharedString(text, false, entry) : createString(text));
}

/* A new reference to the string read earlier with the same text, or to a
 * new one kept for later reads; NULL when there is no memory. entry
 * receives where it is kept (kNone when it is not). Every key is kept, so
 * keys with equal text are one pointer and one entry. */
LUMStringRef Reader::sharedString(const Text &text, bool isKey, uint32_t &entry)
{
    auto hash = static_cast<uint32_t>(hashBytes(text.bytes, text.length) ^ (text.plainASCII ? 0 : 1));
    entry = strings_.find(text.bytes, text.length, hash);
    if (entry != SharedStrings::kNone) return static_cast<LUMStringRef>(LUMRetain(strings_.entry(entry).string));
    LUMStringRef string = createString(text);
    if (string == nullptr) return nullptr;
    entry = strings_.insert(string, text.length, hash);
    if (entry == SharedStrings::kNone && isKey) {
        LUMRelease(string);
        return nullptr;
    }
    return string;
}

/* A new reference to the integer read earlier with the same value, or to a
 * new one kept for later reads. */
LUMNumberRef Reader::sharedInteger(int64_t value)
{
    LUMNumberRef number = integers_.find(value);
    if (number != nullptr) return static_cast<LUMNumberRef>(LUMRetain(number));
    if (value >= INT32_MIN && value <= INT32_MAX) {
        int32_t small = static_cast<int32_t>(value);
        number = LUMNumberCreate(allocator_, kLUMNumberSInt32Type, &small);
    } else {
        number = LUMNumberCreate(allocator_, kLUMNumberSInt64Type, &value);
    }
    if (number != nullptr && integers_.count() < kSharedValueLimit) integers_.insert(value, number);
    return number;
}

bool Reader::readLiteral(const char *word, size_t length, LUMTypeRef value)
{
    for (size_t i = 0; i < length; i++) {
        if (p_ + i == end_) return failEnd();
        if (p_[i] != static_cast<UInt8>(word[i])) return fail(kLUMJSONErrorUnexpectedCharacter, p_ + i);
    }
    p_ += length;
    return pushValue(value);
}

bool Reader::readNumber()
{
    const UInt8 *start = p_;
    Decimal d;
    auto requireDigit = [&]() {
        if (p_ == end_) return failEnd();
        if (!isDigit(*p_)) return fail(kLUMJSONErrorInvalidNumber, p_);
        return true;
    };
    if (*p_ == '-') {
        d.negative = true;
        p_++;
    }
    if (!requireDigit()) return false;
    if (*p_ == '0') {
        p_++;
        if (p_ < end_ && isDigit(*p_)) return fail(kLUMJSONErrorInvalidNumber, p_);
    } else {
        while (p_ < end_ && isDigit(*p_)) d.takeDigit(*p_++, false);
    }
    if (p_ < end_ && *p_ == '.') {
        d.integral = false;
        p_++;
        if (!requireDigit()) return false;
        while (p_ < end_ && isDigit(*p_)) d.takeDigit(*p_++, true);
    }
    if (p_ < end_ && (*p_ == 'e' || *p_ == 'E')) {
        d.integral = false;
        p_++;
        bool negativeExponent = false;
        if (p_ < end_ && (*p_ == '+' || *p_ == '-')) negativeExponent = *p_++ == '-';
        if (!requireDigit()) return false;
        p_ = d.takeExponent(p_, end_, negativeExponent);
    }
    if (d.integral && !d.truncated && d.exponent == 0) {
        uint64_t limit = d.negative ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
        if (d.mantissa <= limit) {
            int64_t value = d.negative ? static_cast<int64_t>(0 - d.mantissa) : static_cast<int64_t>(d.mantissa);
            return pushValue(sharedInteger(value));
        }
    }
    double value = decimalToDouble(d, start, p_);
    if (std::isnan(value)) return failNoMemory();
    if (std::isinf(value)) {
        fail(kLUMJSONErrorInvalidNumber, start);
        failure_.outOfRange = true;
        return false;
    }
    return pushValue(LUMNumberCreate(allocator_, kLUMNumberDoubleType, &value));
}

LUMPropertyListRef readDocument(LUMAllocatorRef allocator, const UInt8 *bytes, size_t length, LUMOptionFlags options, LUMErrorRef *error)
{
    if (error != nullptr) *error = nullptr;
    Reader reader(allocator, bytes, length, (options & kLUMJSONReadingMutableContainers) != 0);
    LUMPropertyListRef result = reader.read();
    if (result == nullptr) reportReadingFailure(reader.failure(), bytes, length, error);
    return result;
}

/* ---- The writer ------------------------------------------------------------ */

/* ---- Shortest round-trip digits of a double ----------------------------------
 * Grisu3 (Loitsch, "Printing floating-point numbers quickly and accurately
 * with integers"): digits are generated from 64-bit approximations of the
 * value and of the two boundaries of its rounding interval, scaled by a
 * cached power of ten. It yields the shortest digits that read back as the
 * value and, among those, the closest to it; for the few values where it
 * cannot prove that (about one in two hundred), it says so and the C
 * library is asked instead. */

struct DiyFp {
    uint64_t f;
    int e;
};

DiyFp multiply(DiyFp x, DiyFp y)
{
    // The upper 64 bits of the 128-bit product, rounded; 32-bit halves so
    // that 32-bit targets need no 128-bit type.
    constexpr uint64_t kLow = 0xFFFFFFFFu;
    uint64_t a = x.f >> 32, b = x.f & kLow, c = y.f >> 32, d = y.f & kLow;
    uint64_t ac = a * c, bc = b * c, ad = a * d, bd = b * d;
    uint64_t middle = (bd >> 32) + (ad & kLow) + (bc & kLow) + (uint64_t{1} << 31);
    return {ac + (ad >> 32) + (bc >> 32) + (middle >> 32), x.e + y.e + 64};
}

DiyFp normalized(DiyFp x)
{
    while ((x.f & (uint64_t{1} << 63)) == 0) {
        x.f <<= 1;
        x.e--;
    }
    return x;
}

struct CachedPower {
    uint64_t significand;
    int16_t binaryExponent;
    int16_t decimalExponent;
};

/* 10^k for k = -348, -340, ..., 340, rounded to 64-bit significands. */
constexpr CachedPower kCachedPowers[] = {
    {0xFA8FD5A0081C0288ULL, -1220, -348},
    {0xBAAEE17FA23EBF76ULL, -1193, -340},
    {0x8B16FB203055AC76ULL, -1166, -332},
    {0xCF42894A5DCE35EAULL, -1140, -324},
    {0x9A6BB0AA55653B2DULL, -1113, -316},
    {0xE61ACF033D1A45DFULL, -1087, -308},
    {0xAB70FE17C79AC6CAULL, -1060, -300},
    {0xFF77B1FCBEBCDC4FULL, -1034, -292},
    {0xBE5691EF416BD60CULL, -1007, -284},
    {0x8DD01FAD907FFC3CULL, -980, -276},
    {0xD3515C2831559A83ULL, -954, -268},
    {0x9D71AC8FADA6C9B5ULL, -927, -260},
    {0xEA9C227723EE8BCBULL, -901, -252},
    {0xAECC49914078536DULL, -874, -244},
    {0x823C12795DB6CE57ULL, -847, -236},
    {0xC21094364DFB5637ULL, -821, -228},
    {0x9096EA6F3848984FULL, -794, -220},
    {0xD77485CB25823AC7ULL, -768, -212},
    {0xA086CFCD97BF97F4ULL, -741, -204},
    {0xEF340A98172AACE5ULL, -715, -196},
    {0xB23867FB2A35B28EULL, -688, -188},
    {0x84C8D4DFD2C63F3BULL, -661, -180},
    {0xC5DD44271AD3CDBAULL, -635, -172},
    {0x936B9FCEBB25C996ULL, -608, -164},
    {0xDBAC6C247D62A584ULL, -582, -156},
    {0xA3AB66580D5FDAF6ULL, -555, -148},
    {0xF3E2F893DEC3F126ULL, -529, -140},
    {0xB5B5ADA8AAFF80B8ULL, -502, -132},
    {0x87625F056C7C4A8BULL, -475, -124},
    {0xC9BCFF6034C13053ULL, -449, -116},
    {0x964E858C91BA2655ULL, -422, -108},
    {0xDFF9772470297EBDULL, -396, -100},
    {0xA6DFBD9FB8E5B88FULL, -369, -92},
    {0xF8A95FCF88747D94ULL, -343, -84},
    {0xB94470938FA89BCFULL, -316, -76},
    {0x8A08F0F8BF0F156BULL, -289, -68},
    {0xCDB02555653131B6ULL, -263, -60},
    {0x993FE2C6D07B7FACULL, -236, -52},
    {0xE45C10C42A2B3B06ULL, -210, -44},
    {0xAA242499697392D3ULL, -183, -36},
    {0xFD87B5F28300CA0EULL, -157, -28},
    {0xBCE5086492111AEBULL, -130, -20},
    {0x8CBCCC096F5088CCULL, -103, -12},
    {0xD1B71758E219652CULL, -77, -4},
    {0x9C40000000000000ULL, -50, 4},
    {0xE8D4A51000000000ULL, -24, 12},
    {0xAD78EBC5AC620000ULL, 3, 20},
    {0x813F3978F8940984ULL, 30, 28},
    {0xC097CE7BC90715B3ULL, 56, 36},
    {0x8F7E32CE7BEA5C70ULL, 83, 44},
    {0xD5D238A4ABE98068ULL, 109, 52},
    {0x9F4F2726179A2245ULL, 136, 60},
    {0xED63A231D4C4FB27ULL, 162, 68},
    {0xB0DE65388CC8ADA8ULL, 189, 76},
    {0x83C7088E1AAB65DBULL, 216, 84},
    {0xC45D1DF942711D9AULL, 242, 92},
    {0x924D692CA61BE758ULL, 269, 100},
    {0xDA01EE641A708DEAULL, 295, 108},
    {0xA26DA3999AEF774AULL, 322, 116},
    {0xF209787BB47D6B85ULL, 348, 124},
    {0xB454E4A179DD1877ULL, 375, 132},
    {0x865B86925B9BC5C2ULL, 402, 140},
    {0xC83553C5C8965D3DULL, 428, 148},
    {0x952AB45CFA97A0B3ULL, 455, 156},
    {0xDE469FBD99A05FE3ULL, 481, 164},
    {0xA59BC234DB398C25ULL, 508, 172},
    {0xF6C69A72A3989F5CULL, 534, 180},
    {0xB7DCBF5354E9BECEULL, 561, 188},
    {0x88FCF317F22241E2ULL, 588, 196},
    {0xCC20CE9BD35C78A5ULL, 614, 204},
    {0x98165AF37B2153DFULL, 641, 212},
    {0xE2A0B5DC971F303AULL, 667, 220},
    {0xA8D9D1535CE3B396ULL, 694, 228},
    {0xFB9B7CD9A4A7443CULL, 720, 236},
    {0xBB764C4CA7A44410ULL, 747, 244},
    {0x8BAB8EEFB6409C1AULL, 774, 252},
    {0xD01FEF10A657842CULL, 800, 260},
    {0x9B10A4E5E9913129ULL, 827, 268},
    {0xE7109BFBA19C0C9DULL, 853, 276},
    {0xAC2820D9623BF429ULL, 880, 284},
    {0x80444B5E7AA7CF85ULL, 907, 292},
    {0xBF21E44003ACDD2DULL, 933, 300},
    {0x8E679C2F5E44FF8FULL, 960, 308},
    {0xD433179D9C8CB841ULL, 986, 316},
    {0x9E19DB92B4E31BA9ULL, 1013, 324},
    {0xEB96BF6EBADF77D9ULL, 1039, 332},
    {0xAF87023B9BF0EE6BULL, 1066, 340}
};
constexpr int kCachedPowersOffset = 348;
constexpr int kCachedPowersStep = 8;

/* A cached power c = 10^-k with minimum <= e(w x c) + 64 <= maximum. */
CachedPower cachedPowerFor(int minimumExponent)
{
    double k = std::ceil((minimumExponent + 63) * 0.30102999566398114);
    int index = (kCachedPowersOffset + static_cast<int>(k) - 1) / kCachedPowersStep + 1;
    return kCachedPowers[index];
}

/* Moves the last digit towards w while that stays inside the safe interval,
 * and says whether the result is provably the closest shortest. */
bool roundWeed(char *digits, int length, uint64_t distanceTooHighW, uint64_t unsafeInterval, uint64_t rest, uint64_t tenKappa,
               uint64_t unit)
{
    uint64_t smallDistance = distanceTooHighW - unit;
    uint64_t bigDistance = distanceTooHighW + unit;
    while (rest < smallDistance && unsafeInterval - rest >= tenKappa &&
           (rest + tenKappa < smallDistance || smallDistance - rest >= rest + tenKappa - smallDistance)) {
        digits[length - 1]--;
        rest += tenKappa;
    }
    if (rest < bigDistance && unsafeInterval - rest >= tenKappa &&
        (rest + tenKappa < bigDistance || bigDistance - rest > rest + tenKappa - bigDistance)) {
        return false;
    }
    return 2 * unit <= rest && rest <= unsafeInterval - 4 * unit;
}

/* Digits of w between the scaled boundaries low and high; kappa receives
 * the decimal exponent of the last digit. */
bool generateDigits(DiyFp low, DiyFp w, DiyFp high, char *digits, int &length, int &kappa)
{
    uint64_t unit = 1;
    DiyFp tooLow = {low.f - unit, low.e};
    DiyFp tooHigh = {high.f + unit, high.e};
    uint64_t unsafeInterval = tooHigh.f - tooLow.f;
    int shift = -w.e;
    uint64_t one = uint64_t{1} << shift;
    auto integrals = static_cast<uint32_t>(tooHigh.f >> shift);
    uint64_t fractionals = tooHigh.f & (one - 1);
    uint32_t divisor = 1;
    kappa = 1;
    while (kappa < 10 && divisor * uint64_t{10} <= integrals) {
        divisor *= 10;
        kappa++;
    }
    if (integrals == 0) kappa = 0;
    length = 0;
    while (kappa > 0) {
        digits[length++] = static_cast<char>('0' + integrals / divisor);
        integrals %= divisor;
        kappa--;
        uint64_t rest = (static_cast<uint64_t>(integrals) << shift) + fractionals;
        if (rest < unsafeInterval)
            return roundWeed(digits, length, tooHigh.f - w.f, unsafeInterval, rest, static_cast<uint64_t>(divisor) << shift, unit);
        divisor /= 10;
    }
    while (true) {
        fractionals *= 10;
        unit *= 10;
        unsafeInterval *= 10;
        digits[length++] = static_cast<char>('0' + (fractionals >> shift));
        fractionals &= one - 1;
        kappa--;
        if (fractionals < unsafeInterval) return roundWeed(digits, length, (tooHigh.f - w.f) * unit, unsafeInterval, fractionals, one, unit);
    }
}

/* Shortest digits of a positive finite value: value = digits x 10^exponent. */
bool grisu3(double value, char *digits, int &length, int &exponent)
{
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    uint64_t fraction = bits & ((uint64_t{1} << 52) - 1);
    int biased = static_cast<int>(bits >> 52);
    DiyFp v = biased == 0 ? DiyFp{fraction, -1074} : DiyFp{fraction | (uint64_t{1} << 52), biased - 1075};
    DiyFp w = normalized(v);
    DiyFp plus = normalized({(v.f << 1) + 1, v.e - 1});
    bool lowerCloser = fraction == 0 && biased > 1;
    DiyFp minus = lowerCloser ? DiyFp{(v.f << 2) - 1, v.e - 2} : DiyFp{(v.f << 1) - 1, v.e - 1};
    minus.f <<= minus.e - plus.e;
    minus.e = plus.e;
    // Scale so that the product's exponent lands in [-60, -32].
    CachedPower cached = cachedPowerFor(-60 - (w.e + 64));
    DiyFp power = {cached.significand, cached.binaryExponent};
    int kappa = 0;
    bool exact = generateDigits(multiply(minus, power), multiply(w, power), multiply(plus, power), digits, length, kappa);
    exponent = kappa - cached.decimalExponent;
    return exact;
}

/* The same digits from the C library, for values Grisu3 leaves open: the
 * first precision whose correctly rounded digits read back. */
void shortestDigitsByTrial(double value, char *digits, int &length, int &exponent)
{
    char text[40];
    for (int precision = 1; precision <= 17; precision++) {
        snprintf(text, sizeof text, "%.*e", precision - 1, value);
        if (precision == 17 || strtod(text, nullptr) == value) break;
    }
    // d.ddde[+-]x
    length = 0;
    const char *at = text;
    for (; *at != 'e'; at++)
        if (isDigit(static_cast<UInt8>(*at))) digits[length++] = *at;
    exponent = atoi(at + 1) - (length - 1);
    while (length > 1 && digits[length - 1] == '0') {
        length--;
        exponent++;
    }
}

/* The shortest text that reads back as value, laid out as Python's repr
 * lays it out: positional from 1e-4 up to below 1e16 (with ".0" when
 * integral), otherwise d.ddde+XX. Runs in the C locale. */
int formatDouble(double value, char (&text)[40])
{
    int at = 0;
    if (std::signbit(value)) {
        text[at++] = '-';
        value = -value;
    }
    if (value == 0) {
        memcpy(text + at, "0.0", 4);
        return at + 3;
    }
    char digits[24];
    int length = 0, exponent = 0;
    if (!grisu3(value, digits, length, exponent)) shortestDigitsByTrial(value, digits, length, exponent);
    int point = length + exponent; // digits d1 d2 ... with the point after `point` of them
    if (point > -4 && point <= 16) {
        if (point <= 0) {
            text[at++] = '0';
            text[at++] = '.';
            for (int i = 0; i < -point; i++) text[at++] = '0';
            memcpy(text + at, digits, static_cast<size_t>(length));
            at += length;
        } else if (point >= length) {
            memcpy(text + at, digits, static_cast<size_t>(length));
            at += length;
            for (int i = length; i < point; i++) text[at++] = '0';
            text[at++] = '.';
            text[at++] = '0';
        } else {
            memcpy(text + at, digits, static_cast<size_t>(point));
            at += point;
            text[at++] = '.';
            memcpy(text + at, digits + point, static_cast<size_t>(length - point));
            at += length - point;
        }
        text[at] = '\0';
        return at;
    }
    text[at++] = digits[0];
    if (length > 1) {
        text[at++] = '.';
        memcpy(text + at, digits + 1, static_cast<size_t>(length - 1));
        at += length - 1;
    }
    at += snprintf(text + at, sizeof text - static_cast<size_t>(at), "e%c%02d", point - 1 < 0 ? '-' : '+', std::abs(point - 1));
    return at;
}

int formatInteger(int64_t value, char (&text)[40])
{
    char reversed[24];
    int count = 0;
    uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    do {
        reversed[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    int length = 0;
    if (value < 0) text[length++] = '-';
    while (count > 0) text[length++] = reversed[--count];
    return length;
}

/* Code-point order of two strings compared by UTF-16 units: units of
 * surrogates sort above the rest of the BMP. */
uint32_t codePointOrder(UniChar unit)
{
    if (unit >= 0xD800 && unit <= 0xDFFF) return unit + 0x2000u;
    if (unit >= 0xE000) return unit - 0x800u;
    return unit;
}

int compareKeys(const void *a, const void *b)
{
    auto left = *static_cast<LUMStringRef const *>(a);
    auto right = *static_cast<LUMStringRef const *>(b);
    LUMIndex leftLength = LUMStringGetLength(left);
    LUMIndex rightLength = LUMStringGetLength(right);
    LUMStringInlineBuffer x, y;
    LUMStringInitInlineBuffer(left, &x, LUMRangeMake(0, leftLength));
    LUMStringInitInlineBuffer(right, &y, LUMRangeMake(0, rightLength));
    for (LUMIndex i = 0; i < leftLength && i < rightLength; i++) {
        uint32_t l = codePointOrder(LUMStringGetCharacterFromInlineBuffer(&x, i));
        uint32_t r = codePointOrder(LUMStringGetCharacterFromInlineBuffer(&y, i));
        if (l != r) return l < r ? -1 : 1;
    }
    return leftLength < rightLength ? -1 : (leftLength > rightLength ? 1 : 0);
}

/* The containers being written, to refuse one inside itself. Entries leave
 * in the reverse order they came, so emptying a slot never breaks a probe
 * sequence still in use. */
class OpenContainers {
public:
    OpenContainers() = default;
    OpenContainers(const OpenContainers &) = delete;
    OpenContainers &operator=(const OpenContainers &) = delete;
    ~OpenContainers() { free(slots_); }

    /* False when container is open already (or no memory: noMemory set). */
    bool enter(LUMTypeRef container)
    {
        if (2 * (count_ + 1) > capacity_ && !grow()) {
            noMemory = true;
            return false;
        }
        size_t at = slotOf(container, capacity_);
        while (slots_[at] != nullptr) {
            if (slots_[at] == container) return false;
            at = (at + 1) & (capacity_ - 1);
        }
        slots_[at] = container;
        count_++;
        return true;
    }
    void leave(LUMTypeRef container)
    {
        size_t at = slotOf(container, capacity_);
        while (slots_[at] != container) at = (at + 1) & (capacity_ - 1);
        slots_[at] = nullptr;
        count_--;
    }
    bool noMemory = false;

private:
    static size_t slotOf(LUMTypeRef container, size_t capacity)
    {
        auto bits = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(container));
        return static_cast<size_t>((bits * 0x9E3779B97F4A7C15ull) >> 24) & (capacity - 1);
    }
    bool grow()
    {
        // Re-inserting in slot order is fine: a grown table is rebuilt whole.
        size_t capacity = capacity_ == 0 ? 32 : capacity_ * 2;
        auto *slots = static_cast<LUMTypeRef *>(calloc(capacity, sizeof(LUMTypeRef)));
        if (slots == nullptr) return false;
        for (size_t i = 0; i < capacity_; i++) {
            if (slots_[i] == nullptr) continue;
            size_t at = slotOf(slots_[i], capacity);
            while (slots[at] != nullptr) at = (at + 1) & (capacity - 1);
            slots[at] = slots_[i];
        }
        free(slots_);
        slots_ = slots;
        capacity_ = capacity;
        return true;
    }

    LUMTypeRef *slots_ = nullptr;
    size_t capacity_ = 0;
    size_t count_ = 0;
};

class Writer {
public:
    explicit Writer(LUMOptionFlags options)
        : pretty_((options & kLUMJSONWritingPrettyPrinted) != 0), sorted_((options & kLUMJSONWritingSortedKeys) != 0),
          stringType_(LUMStringGetTypeID()), numberType_(LUMNumberGetTypeID()), booleanType_(LUMBooleanGetTypeID()),
          nullType_(LUMNullGetTypeID()), arrayType_(LUMArrayGetTypeID()), dictionaryType_(LUMDictionaryGetTypeID())
    {
    }

    /* The whole text of root in out(), or false with code() and sentence(). */
    bool write(LUMTypeRef root);
    const Bytes &out() const { return out_; }
    LUMIndex code() const { return code_; }
    const char *sentence() const { return sentence_; }

private:
    struct Frame {
        LUMTypeRef container;
        size_t firstItem; // keys then values in items_, for a dictionary
        LUMIndex count;
        LUMIndex next;
        bool isObject;
    };

    bool fail(LUMIndex code, const char *format, const char *detail = "")
    {
        code_ = code;
        snprintf(sentence_, sizeof sentence_, format, detail);
        return false;
    }
    bool failNoMemory() { return fail(kLUMJSONErrorNoMemory, "Out of memory while writing JSON"); }
    bool put(const char *text, size_t length) { return out_.append(text, length) || failNoMemory(); }
    bool put(char c) { return out_.append(static_cast<UInt8>(c)) || failNoMemory(); }
    bool newline(size_t depth)
    {
        if (!out_.reserve(1 + 2 * depth)) return failNoMemory();
        UInt8 *at = out_.end();
        at[0] = '\n';
        memset(at + 1, ' ', 2 * depth);
        out_.grow(1 + 2 * depth);
        return true;
    }

    bool writeValue(LUMTypeRef value);
    bool writeNumber(LUMNumberRef number);
    bool writeString(LUMStringRef string);
    template <typename Unit>
    bool writeQuoted(const Unit *units, LUMIndex count);
    bool openArray(LUMArrayRef array);
    bool openDictionary(LUMDictionaryRef dictionary);
    bool writeNextItem();

    bool pretty_;
    bool sorted_;
    LUMTypeID stringType_, numberType_, booleanType_, nullType_, arrayType_, dictionaryType_;
    Bytes out_;
    Stack<Frame> frames_;
    Stack<const void *> items_;
    Stack<UniChar> units_;
    OpenContainers open_;
    LUMIndex code_ = 0;
    char sentence_[160] = "";
};

bool Writer::write(LUMTypeRef root)
{
    CLocaleScope cLocale;
    if (!writeValue(root)) return false;
    while (!frames_.empty()) {
        if (!writeNextItem()) return false;
    }
    return !pretty_ || put('\n');
}

/* One step in the innermost open container: its next element (with the
 * separator before it), or its closing bracket. */
bool Writer::writeNextItem()
{
    Frame &frame = frames_.top();
    if (frame.next == frame.count) {
        Frame done = frame;
        frames_.pop();
        items_.truncate(done.firstItem);
        open_.leave(done.container);
        if (pretty_ && !newline(frames_.size())) return false;
        return put(done.isObject ? '}' : ']');
    }
    LUMIndex index = frame.next++;
    if (index > 0 && !put(',')) return false;
    if (pretty_ && !newline(frames_.size())) return false;
    if (!frame.isObject) return writeValue(LUMArrayGetValueAtIndex(static_cast<LUMArrayRef>(frame.container), index));
    size_t first = frame.firstItem;
    LUMIndex count = frame.count;
    // writeString may grow frames_; read everything needed from the frame first.
    if (!writeString(static_cast<LUMStringRef>(items_[first + static_cast<size_t>(index)]))) return false;
    if (!put(":", 1) || (pretty_ && !put(' '))) return false;
    return writeValue(items_[first + static_cast<size_t>(count + index)]);
}

bool Writer::writeValue(LUMTypeRef value)
{
    LUMTypeID type = value != nullptr ? LUMGetTypeID(value) : 0;
    if (type == stringType_) return writeString(static_cast<LUMStringRef>(value));
    if (type == numberType_) return writeNumber(static_cast<LUMNumberRef>(value));
    if (type == booleanType_) return LUMBooleanGetValue(static_cast<LUMBooleanRef>(value)) ? put("true", 4) : put("false", 5);
    if (type == nullType_) return put("null", 4);
    if (type == arrayType_) return openArray(static_cast<LUMArrayRef>(value));
    if (type == dictionaryType_) return openDictionary(static_cast<LUMDictionaryRef>(value));
    const LUMRuntimeClass *cls = value != nullptr ? _LUMTypeGetClass(value) : nullptr;
    return fail(kLUMJSONErrorInvalidValue, "Cannot write a value of class %s as JSON", cls != nullptr ? cls->className : "NULL");
}

bool Writer::writeNumber(LUMNumberRef number)
{
    char text[40];
    int length;
    if (LUMNumberIsFloatType(number)) {
        double value = 0;
        LUMNumberGetValue(number, kLUMNumberDoubleType, &value);
        if (!std::isfinite(value)) return fail(kLUMJSONErrorInvalidValue, "Cannot write a NaN or infinite number as JSON");
        length = formatDouble(value, text);
    } else {
        int64_t value = 0;
        LUMNumberGetValue(number, kLUMNumberSInt64Type, &value);
        length = formatInteger(value, text);
    }
    return put(text, static_cast<size_t>(length));
}

bool Writer::writeString(LUMStringRef string)
{
    const __LUMString *s = static_cast<const __LUMString *>(string);
    if (s->bufferType == _kLUMStringBufferTypeCString) {
        // ASCII byte form is written from its bytes; anything else by units.
        const auto *bytes = static_cast<const UInt8 *>(s->buffer);
        bool ascii = true;
        for (LUMIndex i = 0; i < s->length && ascii; i++) ascii = bytes[i] < 0x80;
        if (ascii) return writeQuoted(bytes, s->length);
    }
    const UniChar *units = LUMStringGetCharactersPtr(string);
    if (units != nullptr) return writeQuoted(units, s->length);
    units_.truncate(0);
    if (!units_.reserve(static_cast<size_t>(s->length) + 1)) return failNoMemory();
    LUMStringGetCharacters(string, LUMRangeMake(0, s->length), units_.at(0));
    return writeQuoted(units_.at(0), s->length);
}

/* Quoted UTF-8 of ASCII bytes or UTF-16 units, escaping only what JSON
 * requires. */
template <typename Unit>
bool Writer::writeQuoted(const Unit *units, LUMIndex count)
{
    static constexpr char kHex[] = "0123456789abcdef";
    // Each unit takes at most 6 bytes (\u001f; a surrogate pair 4 for two).
    if (!out_.reserve(6 * static_cast<size_t>(count) + 2)) return failNoMemory();
    UInt8 *start = out_.end();
    UInt8 *at = start;
    *at++ = '"';
    for (LUMIndex i = 0; i < count; i++) {
        UniChar unit = units[i];
        if (unit >= 0x20 && unit < 0x80 && unit != '"' && unit != '\\') {
            *at++ = static_cast<UInt8>(unit);
        } else if (unit < 0x80) {
            *at++ = '\\';
            switch (unit) {
            case '"': *at++ = '"'; break;
            case '\\': *at++ = '\\'; break;
            case '\b': *at++ = 'b'; break;
            case '\f': *at++ = 'f'; break;
            case '\n': *at++ = 'n'; break;
            case '\r': *at++ = 'r'; break;
            case '\t': *at++ = 't'; break;
            default:
                *at++ = 'u';
                *at++ = '0';
                *at++ = '0';
                *at++ = kHex[unit >> 4];
                *at++ = kHex[unit & 0xF];
            }
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            bool paired = unit <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF;
            if (!paired) return fail(kLUMJSONErrorInvalidValue, "Cannot write a string with an unpaired surrogate as JSON");
            uint32_t codePoint = 0x10000 + ((unit - 0xD800u) << 10) + (static_cast<uint32_t>(units[++i]) - 0xDC00u);
            at += encodeUTF8(codePoint, at);
        } else {
            at += encodeUTF8(unit, at);
        }
    }
    *at++ = '"';
    out_.grow(static_cast<size_t>(at - start));
    return true;
}

bool Writer::openArray(LUMArrayRef array)
{
    LUMIndex count = LUMArrayGetCount(array);
    if (count == 0) return put("[]", 2);
    if (!open_.enter(array)) {
        if (open_.noMemory) return failNoMemory();
        return fail(kLUMJSONErrorInvalidValue, "Cannot write a container that contains itself as JSON");
    }
    if (!frames_.push({array, items_.size(), count, 0, false})) return failNoMemory();
    return put('[');
}

bool Writer::openDictionary(LUMDictionaryRef dictionary)
{
    LUMIndex count = LUMDictionaryGetCount(dictionary);
    if (count == 0) return put("{}", 2);
    if (!open_.enter(dictionary)) {
        if (open_.noMemory) return failNoMemory();
        return fail(kLUMJSONErrorInvalidValue, "Cannot write a container that contains itself as JSON");
    }
    size_t first = items_.size();
    if (!items_.reserve(2 * static_cast<size_t>(count))) return failNoMemory();
    const void **keys = items_.at(first);
    const void **values = keys + count;
    LUMDictionaryGetKeysAndValues(dictionary, keys, values);
    items_.truncate(first + 2 * static_cast<size_t>(count));
    for (LUMIndex i = 0; i < count; i++) {
        if (keys[i] != nullptr && LUMGetTypeID(keys[i]) == stringType_) continue;
        const LUMRuntimeClass *cls = keys[i] != nullptr ? _LUMTypeGetClass(keys[i]) : nullptr;
        return fail(kLUMJSONErrorInvalidValue, "Cannot write a dictionary key of class %s as JSON", cls != nullptr ? cls->className : "NULL");
    }
    if (sorted_ && count > 1) {
        // Sort (key, value) pairs together: gather, sort the pairs, spread.
        Stack<const void *> pairs;
        if (!pairs.reserve(2 * static_cast<size_t>(count))) return failNoMemory();
        const void **pair = pairs.at(0);
        for (LUMIndex i = 0; i < count; i++) {
            pair[2 * i] = keys[i];
            pair[2 * i + 1] = values[i];
        }
        qsort(pair, static_cast<size_t>(count), 2 * sizeof(void *), compareKeys);
        for (LUMIndex i = 0; i < count; i++) {
            keys[i] = pair[2 * i];
            values[i] = pair[2 * i + 1];
        }
    }
    if (!frames_.push({dictionary, first, count, 0, true})) return failNoMemory();
    return put('{');
}

/* The text of plist, or false with the error reported. */
bool writeDocument(Writer &writer, LUMPropertyListRef plist, LUMErrorRef *error)
{
    if (error != nullptr) *error = nullptr;
    if (writer.write(plist)) return true;
    reportFailure(writer.code(), writer.sentence(), error);
    return false;
}

} // namespace

LUMPropertyListRef LUMJSONCreateWithData(LUMAllocatorRef allocator, LUMDataRef data, LUMOptionFlags options, LUMErrorRef *error)
{
    LUM_ASSERT(_LUMTypeCheckValid(data, LUMDataGetTypeID()));
    return readDocument(allocator, LUMDataGetBytePtr(data), static_cast<size_t>(LUMDataGetLength(data)), options, error);
}

LUMPropertyListRef LUMJSONCreateWithStream(LUMAllocatorRef allocator, LUMReadStreamRef stream, LUMOptionFlags options, LUMErrorRef *error)
{
    LUM_ASSERT(_LUMTypeCheckValid(stream, LUMReadStreamGetTypeID()));
    if (error != nullptr) *error = nullptr;
    Bytes document;
    while (true) {
        if (!document.reserve(16384)) {
            reportFailure(kLUMJSONErrorNoMemory, "Out of memory while reading JSON", error);
            return nullptr;
        }
        LUMIndex read = LUMReadStreamRead(stream, document.end(), 16384);
        if (read == 0) break;
        if (read < 0) {
            reportFailure(kLUMJSONErrorStream, "The stream could not be read", error);
            return nullptr;
        }
        document.grow(static_cast<size_t>(read));
    }
    return readDocument(allocator, document.data(), document.size(), options, error);
}

LUMDataRef LUMJSONCreateData(LUMAllocatorRef allocator, LUMPropertyListRef plist, LUMOptionFlags options, LUMErrorRef *error)
{
    Writer writer(options);
    if (!writeDocument(writer, plist, error)) return nullptr;
    LUMDataRef data = LUMDataCreate(allocator, writer.out().data(), static_cast<LUMIndex>(writer.out().size()));
    if (data == nullptr) reportFailure(kLUMJSONErrorNoMemory, "Out of memory while writing JSON", error);
    return data;
}

LUMIndex LUMJSONWrite(LUMPropertyListRef plist, LUMWriteStreamRef stream, LUMOptionFlags options, LUMErrorRef *error)
{
    LUM_ASSERT(_LUMTypeCheckValid(stream, LUMWriteStreamGetTypeID()));
    Writer writer(options);
    if (!writeDocument(writer, plist, error)) return 0;
    const UInt8 *bytes = writer.out().data();
    size_t length = writer.out().size();
    size_t written = 0;
    while (written < length) {
        size_t chunk = length - written < 65536 ? length - written : 65536;
        LUMIndex taken = LUMWriteStreamWrite(stream, bytes + written, static_cast<LUMIndex>(chunk));
        if (taken <= 0) {
            reportFailure(kLUMJSONErrorStream, "The stream did not take the JSON text", error);
            return 0;
        }
        written += static_cast<size_t>(taken);
    }
    return static_cast<LUMIndex>(written);
}
