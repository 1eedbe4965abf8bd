/** @file LUMNumber.h — immutable boxed numbers that remember their type.
 * Part of LumBase; MIT licence.
 *
 * A number keeps one 64-bit field: a signed 64-bit integer for the integer
 * types, a double for the float types. Widths are the same on every
 * platform: kLUMNumberLongType is a 32-bit value even where a C long is 64
 * bits, and kLUMNumberLUMIndexType is 32 bits like LUMIndex. Code 6 is not a
 * valid type; invalid codes end the process ("Invalid number type '%d'"). */
#ifndef LUMBASE_LUMNUMBER_H
#define LUMBASE_LUMNUMBER_H

#include <LumBase/LUMBase.h>

LUM_EXTERN_C_BEGIN

typedef int32_t LUMNumberType; /**< The C type a number was made from or is read as: one of the kLUMNumber...Type values. */
enum {
    kLUMNumberSInt8Type = 1,     /**< int8_t */
    kLUMNumberSInt16Type = 2,    /**< int16_t */
    kLUMNumberSInt32Type = 3,    /**< int32_t */
    kLUMNumberSInt64Type = 4,    /**< int64_t */
    kLUMNumberFloat32Type = 5,   /**< float */
    kLUMNumberCharType = 7,      /**< unsigned 8-bit */
    kLUMNumberShortType = 8,     /**< int16_t */
    kLUMNumberIntType = 9,       /**< int32_t */
    kLUMNumberLongType = 10,     /**< int32_t on every platform */
    kLUMNumberLongLongType = 11, /**< int64_t */
    kLUMNumberFloatType = 12,    /**< float */
    kLUMNumberDoubleType = 13,   /**< double */
    kLUMNumberLUMIndexType = 14  /**< LUMIndex (int32_t) */
};

/** The number class's type ID (registered on first use). */
LUM_EXPORT LUMTypeID LUMNumberGetTypeID(void);

/** Reads the value at valuePtr with the width and signedness of type (code 7
 * zero-extends, the other integers sign-extend, floats widen to double). */
LUM_EXPORT LUMNumberRef LUMNumberCreate(LUMAllocatorRef allocator, LUMNumberType type, const void *valuePtr);
/** The type the number was made with. */
LUM_EXPORT LUMNumberType LUMNumberGetType(LUMNumberRef number);
/** Whether the number holds a floating-point value (types 5, 12 and 13). */
LUM_EXPORT Boolean LUMNumberIsFloatType(LUMNumberRef number);
/** 1, 2, 4 or 8: the byte size of the type the number was created with. */
LUM_EXPORT LUMIndex LUMNumberGetByteSize(LUMNumberRef number);
/** Stores the value converted to type at valuePtr; true when the conversion
 * was exact (integers: the value survives the narrowing; to integers from
 * doubles: no fraction and in range; to double: not a NaN; to float: the
 * float widens back to the same double). */
LUM_EXPORT Boolean LUMNumberGetValue(LUMNumberRef number, LUMNumberType type, void *valuePtr);
/** -1, 0 or 1. As doubles when either is a float type, so a NaN compares
 * equal to anything; as 64-bit integers otherwise. */
LUM_EXPORT LUMComparisonResult LUMNumberCompare(LUMNumberRef number1, LUMNumberRef number2);

LUM_EXTERN_C_END

#endif
