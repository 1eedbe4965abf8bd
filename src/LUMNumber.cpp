/* LUMNumber.cpp — immutable boxed numbers.
 * Part of LumBase; MIT licence.
 *
 * Invariant: value holds a signed 64-bit integer for the integer types and
 * a double for the float types (5, 12, 13). Equality is LUMNumberCompare, so
 * 1 equals 1.0; the hash is the low half of the raw field, so they hash
 * differently. Both are kept that way. */
#define LUM_SOURCE_FILE "src/LUMNumber"
#include "LUMPrivate.h"

#include <LumBase/LUMNumber.h>

#include <cfloat>
#include <cmath>

struct __LUMNumber {
    LUMRuntimeBase base;
    LUMNumberType type;
    union {
        int64_t integer;
        double real;
        uint64_t bits;
    } value;
};

namespace {

LUMTypeID __kLUMNumberTypeID = 0;

Boolean __LUMNumberInitializeInstance(LUMTypeRef obj);
Boolean __LUMNumberEqual(LUMTypeRef a, LUMTypeRef b);
LUMHashCode __LUMNumberHash(LUMTypeRef obj);
LUMStringRef __LUMNumberCopyDescription(LUMTypeRef obj);

constexpr LUMRuntimeClass __kLUMNumberTypeClass = {
    0, "LUMNumber", sizeof(__LUMNumber), __LUMNumberInitializeInstance, nullptr,
    __LUMNumberEqual, __LUMNumberHash, __LUMNumberCopyDescription,
};

/* Per type code: its byte size and whether it is valid, float, unsigned.
 * Index = code; 0, 6 and 15 and above are invalid. */
struct TypeInfo {
    bool valid;
    bool isFloat;
    bool isUnsigned;
    LUMIndex byteSize;
};
constexpr TypeInfo kTypeInfo[] = {
    /*  0 */ {false, false, false, 0},
    /*  1 */ {true, false, false, 1},
    /*  2 */ {true, false, false, 2},
    /*  3 */ {true, false, false, 4},
    /*  4 */ {true, false, false, 8},
    /*  5 */ {true, true, false, 4},
    /*  6 */ {false, false, false, 0},
    /*  7 */ {true, false, true, 1},
    /*  8 */ {true, false, false, 2},
    /*  9 */ {true, false, false, 4},
    /* 10 */ {true, false, false, 4},
    /* 11 */ {true, false, false, 8},
    /* 12 */ {true, true, false, 4},
    /* 13 */ {true, true, false, 8},
    /* 14 */ {true, false, false, 4},
};
static_assert(LUM_COUNTOF(kTypeInfo) == 15);

constexpr const char kInvalidType[] = "Invalid number type '%d'";

bool isValid(LUMNumberType type) { return type >= 0 && type < LUM_COUNTOF(kTypeInfo) && kTypeInfo[type].valid; }
bool isIntegerType(LUMNumberType type) { return isValid(type) && !kTypeInfo[type].isFloat; }
bool isFloatCode(LUMNumberType type) { return isValid(type) && kTypeInfo[type].isFloat; }

Boolean __LUMNumberTypeIsFloatType(LUMNumberType type)
{
    if (!isValid(type)) LUM_FATAL_AT(101, kInvalidType, type);
    return kTypeInfo[type].isFloat;
}

int64_t __LUMNumberGetIntegerValue(LUMNumberType type, const void *valuePtr)
{
    if (!isIntegerType(type)) LUM_FATAL_AT(143, kInvalidType, type);
    switch (kTypeInfo[type].byteSize) {
    case 1:
        return kTypeInfo[type].isUnsigned ? *static_cast<const uint8_t *>(valuePtr) : *static_cast<const int8_t *>(valuePtr);
    case 2: return *static_cast<const int16_t *>(valuePtr);
    case 4: return *static_cast<const int32_t *>(valuePtr);
    default: return *static_cast<const int64_t *>(valuePtr);
    }
}

double __LUMNumberGetFloatValue(LUMNumberType type, const void *valuePtr)
{
    if (!isFloatCode(type)) LUM_FATAL_AT(167, kInvalidType, type);
    return kTypeInfo[type].byteSize == 4 ? static_cast<double>(*static_cast<const float *>(valuePtr))
                                         : *static_cast<const double *>(valuePtr);
}

/* Narrowing keeps the low bytes, two's complement, as the hardware does. */
void __LUMNumberSetIntegerValue(LUMNumberType type, void *valuePtr, int64_t value)
{
    if (!isIntegerType(type)) LUM_FATAL_AT(208, kInvalidType, type);
    uint64_t bits = static_cast<uint64_t>(value);
    switch (kTypeInfo[type].byteSize) {
    case 1: *static_cast<uint8_t *>(valuePtr) = static_cast<uint8_t>(bits); break;
    case 2: *static_cast<uint16_t *>(valuePtr) = static_cast<uint16_t>(bits); break;
    case 4: *static_cast<uint32_t *>(valuePtr) = static_cast<uint32_t>(bits); break;
    default: *static_cast<int64_t *>(valuePtr) = value; break;
    }
}

/* A double outside the float range becomes an infinity, as IEEE rounding
 * would give, without leaving defined behaviour. */
float toFloat(double value)
{
    if (std::isfinite(value) && std::fabs(value) > static_cast<double>(FLT_MAX))
        return value > 0 ? HUGE_VALF : -HUGE_VALF;
    return static_cast<float>(value);
}

void __LUMNumberSetFloatValue(LUMNumberType type, void *valuePtr, double value)
{
    if (!isFloatCode(type)) LUM_FATAL_AT(229, kInvalidType, type);
    if (kTypeInfo[type].byteSize == 4) *static_cast<float *>(valuePtr) = toFloat(value);
    else *static_cast<double *>(valuePtr) = value;
}

/* Truncation toward zero; NaN gives 0 and values beyond the 64-bit range
 * give its ends, so that the conversion stays defined. */
int64_t toInteger(double value)
{
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775808.0) return INT64_MAX;
    if (value < -9223372036854775808.0) return INT64_MIN;
    return static_cast<int64_t>(value);
}

const __LUMNumber *numberObject(LUMNumberRef number) { return lum::object<__LUMNumber>(number); }

double asDouble(const __LUMNumber *n)
{
    return kTypeInfo[n->type].isFloat ? n->value.real : static_cast<double>(n->value.integer);
}

Boolean __LUMNumberInitializeInstance(LUMTypeRef obj)
{
    __LUMNumber *n = lum::object<__LUMNumber>(obj);
    n->type = 0;
    n->value.bits = 0;
    return true;
}

Boolean __LUMNumberEqual(LUMTypeRef a, LUMTypeRef b)
{
    return LUMNumberCompare(static_cast<LUMNumberRef>(a), static_cast<LUMNumberRef>(b)) == 0;
}

LUMHashCode __LUMNumberHash(LUMTypeRef obj) { return static_cast<LUMHashCode>(numberObject(static_cast<LUMNumberRef>(obj))->value.bits); }

/* Both value fields come from the same raw bits whatever the type; the
 * spelling "valueFloeat" is part of the text. */
LUMStringRef __LUMNumberCopyDescription(LUMTypeRef obj)
{
    const __LUMNumber *n = numberObject(static_cast<LUMNumberRef>(obj));
    double raw;
    memcpy(&raw, &n->value.bits, sizeof(raw));
    return LUMStringCreateWithFormat(
        nullptr, nullptr, LUMSTR("<%p:LUMNumber retainCount=%ld type=%d valueInteger=%ld valueFloeat=%f>"), obj,
        static_cast<long>(LUMGetRetainCount(obj)), static_cast<int>(n->type),
        static_cast<long>(static_cast<int32_t>(static_cast<uint32_t>(n->value.bits))), raw);
}

} // namespace

LUMTypeID (LUMNumberGetTypeID)(void) { return lum::registerClassOnce(__kLUMNumberTypeID, __kLUMNumberTypeClass); }

Boolean _LUMNumberInitializeModule(void) { return LUMNumberGetTypeID() != 0; }

LUMNumberRef (LUMNumberCreate)(LUMAllocatorRef allocator, LUMNumberType type, const void *valuePtr)
{
    bool isFloat = __LUMNumberTypeIsFloatType(type);
    auto *n = lum::createFilledInstance<__LUMNumber>(allocator, LUMNumberGetTypeID());
    if (n == nullptr) return nullptr;
    n->type = type;
    if (isFloat) n->value.real = __LUMNumberGetFloatValue(type, valuePtr);
    else n->value.integer = __LUMNumberGetIntegerValue(type, valuePtr);
    return n;
}

LUMNumberType LUMNumberGetType(LUMNumberRef number) { return numberObject(number)->type; }

Boolean LUMNumberIsFloatType(LUMNumberRef number) { return __LUMNumberTypeIsFloatType(numberObject(number)->type); }

LUMIndex LUMNumberGetByteSize(LUMNumberRef number)
{
    LUMNumberType type = numberObject(number)->type;
    if (!isValid(type)) LUM_FATAL_AT(309, kInvalidType, type);
    return kTypeInfo[type].byteSize;
}

Boolean (LUMNumberGetValue)(LUMNumberRef number, LUMNumberType type, void *valuePtr)
{
    const __LUMNumber *n = numberObject(number);
    bool storedFloat = __LUMNumberTypeIsFloatType(n->type);
    bool requestedFloat = __LUMNumberTypeIsFloatType(type);
    if (!storedFloat && !requestedFloat) {
        __LUMNumberSetIntegerValue(type, valuePtr, n->value.integer);
        return __LUMNumberGetIntegerValue(type, valuePtr) == n->value.integer;
    }
    double value = asDouble(n);
    if (!requestedFloat) {
        __LUMNumberSetIntegerValue(type, valuePtr, toInteger(value));
        return static_cast<double>(__LUMNumberGetIntegerValue(type, valuePtr)) == value;
    }
    __LUMNumberSetFloatValue(type, valuePtr, value);
    if (kTypeInfo[type].byteSize == 8) return value == value; // false only for a NaN
    return static_cast<double>(toFloat(value)) == value;
}

LUMComparisonResult LUMNumberCompare(LUMNumberRef number1, LUMNumberRef number2)
{
    const __LUMNumber *a = numberObject(number1);
    const __LUMNumber *b = numberObject(number2);
    if (__LUMNumberTypeIsFloatType(a->type) || __LUMNumberTypeIsFloatType(b->type)) {
        double x = asDouble(a), y = asDouble(b);
        if (x < y) return kLUMCompareLessThan;
        if (x > y) return kLUMCompareGreaterThan;
        return kLUMCompareEqualTo; // NaN lands here: it compares equal to anything
    }
    if (a->value.integer < b->value.integer) return kLUMCompareLessThan;
    if (a->value.integer > b->value.integer) return kLUMCompareGreaterThan;
    return kLUMCompareEqualTo;
}

/* Hidden aliases for calls from inside the library (see LUMPrivate.h). */
LUM_DEFINE_LOCAL(LUMNumberCreate)
LUM_DEFINE_LOCAL(LUMNumberGetValue)
LUM_DEFINE_LOCAL(LUMNumberGetTypeID)
