/* LUMPropertyList.cpp — the table-driven JSON reader and the JSON writer.
 * Part of LumBase; MIT licence.
 *
 * Reader invariants: one parse context per call; the current container
 * receives completed values (mode 0 top level, 1 array, 3 object expecting a
 * key, 4 object expecting a value); the two stacks hold the enclosing
 * containers and modes; the parse buffer holds the text of the value being
 * read. The context owns one reference to the current container and the
 * container stack owns one to each enclosing container, so that every path,
 * finished or not, gives everything back. */
#define LUM_SOURCE_FILE "src/LUMPropertyList"
#include "LUMPrivate.h"

#include <cstddef>
#include <clocale>
#include <sys/mman.h>

#include <LumBase/LUMArray.h>
#include <LumBase/LUMBoolean.h>
#include <LumBase/LUMData.h>
#include <LumBase/LUMDictionary.h>
#include <LumBase/LUMNull.h>
#include <LumBase/LUMNumber.h>
#include <LumBase/LUMPropertyList.h>
#include <LumBase/LUMReadStream.h>
#include <LumBase/LUMWriteStream.h>

namespace {

constexpr LUMIndex kChunkBytes = 1024;
constexpr LUMIndex kWriteFlushBytes = 991;
constexpr int kClassCount = 32;
constexpr int kStateCount = 36;

enum Mode : int32_t { kModeTop = 0, kModeArray = 1, kModeKey = 3, kModeValue = 4 };
enum Flags : uint32_t { kFlagEscape = 1, kFlagFraction = 2 };

/* The character classes (128 bytes) and, right behind them, the transition
 * table (36 states x 32 classes), in one block: a class of -1 reads the last
 * column of the row before, and in state 0 the last class-table entry. That
 * is how the automaton has always behaved, and it is kept. */
struct JSONTables {
    int8_t characterClassByCharacter[128];
    int8_t stateTransitions[kStateCount * kClassCount];
};

constexpr JSONTables __kLUMPropertyListJSONTables = {
    {
        // Classes: 0 space, 1 tab/LF/CR, 2 {, 3 }, 4 [, 5 ], 6 :, 7 ",", 8 ",
        // 9 backslash, 10 /, 11 +, 12 -, 13 ., 14 0, 15 1-9, 16-27 a b c d e
        // f l n r s t u, 28 A-D F, 29 E, 30 other printable, 31 *, -1 control.
    /*   0 */  -1, -1, -1, -1, -1, -1, -1, -1, -1,  1,  1, -1, -1,  1, -1, -1,
    /*  16 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    /*  32 */   0, 30,  8, 30, 30, 30, 30, 30, 30, 30, 31, 11,  7, 12, 13, 10,
    /*  48 */  14, 15, 15, 15, 15, 15, 15, 15, 15, 15,  6, 30, 30, 30, 30, 30,
    /*  64 */  30, 28, 28, 28, 28, 29, 28, 30, 30, 30, 30, 30, 30, 30, 30, 30,
    /*  80 */  30, 30, 30, 30, 30, 30, 30, 30, 30, 30, 30,  4,  9,  5, 30, 30,
    /*  96 */  30, 16, 17, 18, 19, 20, 21, 30, 30, 30, 30, 30, 22, 30, 23, 30,
    /* 112 */  30, 30, 24, 25, 26, 27, 30, 30, 30, 30, 30,  2, 30,  3, 30, 30,
    },
    {
        // Non-negative: the next state. -1: error. Below -1: an action.
    //       sp  ws   {   }   [   ]   :   ,   "   \   /   +   -   .   0 1-9   a   b   c   d   e   f   l   n   r   s   t   u A-F   E oth   *
    /*  0 */   0,  0, -6, -1, -5, -1, -1, -1, -1, -1,-10, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // start
    /*  1 */   1,  1, -1, -8, -1, -7, -1, -3, -1, -1,-10, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // value done
    /*  2 */   2,  2, -1, -9, -1, -1, -1, -1,-17, -1,-10, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // object open
    /*  3 */   3,  3, -1, -1, -1, -1, -1, -1,-17, -1,-10, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // key
    /*  4 */   4,  4, -1, -1, -1, -1, -2, -1, -1, -1,-10, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // colon
    /*  5 */   5,  5, -6, -1, -5, -1, -1, -1,-17, -1,-10, -1,-18, -1,-19,-20, -1, -1, -1, -1, -1,-12, -1,-14, -1, -1,-13, -1, -1, -1, -1, -1,  // value
    /*  6 */   6,  6, -6, -1, -5, -7, -1, -1,-17, -1,-10, -1,-18, -1,-19,-20, -1, -1, -1, -1, -1,-12, -1,-14, -1, -1,-13, -1, -1, -1, -1, -1,  // array open
    /*  7 */   7, -1,  7,  7,  7,  7,  7,  7, -4,-21,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  7,  // string
    /*  8 */  -1, -1, -1, -1, -1, -1, -1, -1,  7,  7,  7, -1, -1, -1, -1, -1, -1,  7, -1, -1, -1,  7, -1,  7,  7, -1,  7,  9, -1, -1, -1, -1,  // escape
    /*  9 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 10, 10, 10, 10, 10, 10, 10, 10, -1, -1, -1, -1, -1, -1, 10, 10, -1, -1,  // hex 1
    /* 10 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 11, 11, 11, 11, 11, 11, 11, 11, -1, -1, -1, -1, -1, -1, 11, 11, -1, -1,  // hex 2
    /* 11 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 12, 12, 12, 12, 12, 12, 12, 12, -1, -1, -1, -1, -1, -1, 12, 12, -1, -1,  // hex 3
    /* 12 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,-22,-22,-22,-22,-22,-22,-22,-22, -1, -1, -1, -1, -1, -1,-22,-22, -1, -1,  // hex 4
    /* 13 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 14, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // minus
    /* 14 */   1,  1, -1, -8, -1, -7, -1, -3, -1, -1,-10, -1, -1,-16, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // zero
    /* 15 */   1,  1, -1, -8, -1, -7, -1, -3, -1, -1,-10, -1, -1,-16, 15, 15, -1, -1, -1, -1,-15, -1, -1, -1, -1, -1, -1, -1, -1,-15, -1, -1,  // integer
    /* 16 */   1,  1, -1, -8, -1, -7, -1, -3, -1, -1,-10, -1, -1, -1, 16, 16, -1, -1, -1, -1, 17, -1, -1, -1, -1, -1, -1, -1, -1, 17, -1, -1,  // fraction
    /* 17 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 18, 18, -1, 19, 19, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // exp start
    /* 18 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 19, 19, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // exp sign
    /* 19 */   1,  1, -1, -8, -1, -7, -1, -3, -1, -1, -1, -1, -1, -1, 19, 19, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // exp digits
    /* 20 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 21, -1, -1, -1, -1, -1, -1, -1,  // t
    /* 21 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 22, -1, -1, -1, -1,  // tr
    /* 22 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,-10, -1, -1, -1, -1, -1, -1, -1, -1, -1,  1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // tru
    /* 23 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 24, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // f
    /* 24 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 25, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // fa
    /* 25 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 26, -1, -1, -1, -1, -1, -1,  // fal
    /* 26 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,-10, -1, -1, -1, -1, -1, -1, -1, -1, -1,  1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // fals
    /* 27 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 28, -1, -1, -1, -1,  // n
    /* 28 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 29, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // nu
    /* 29 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,-10, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // nul
    /* 30 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 31,  // comment
    /* 31 */  31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 32,  // comment *
    /* 32 */  31, 31, 31, 31, 31, 31, 31, 31, 31, 31,-11, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 31, 32,  // comment **
    /* 33 */   1,  1, -1, -8, -1, -7, -1, -3, -1, -1, -1, -1, -1, -1, 16, 16, -1, -1, -1, -1, 17, -1, -1, -1, -1, -1, -1, -1, -1, 17, -1, -1,  // point
    /* 34 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, 35, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  // escape 2
    /* 35 */  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,  9, -1, -1, -1, -1,  // escape 2, after its backslash
    },
};
static_assert(sizeof(JSONTables) == 128 + kStateCount * kClassCount);
static_assert(offsetof(JSONTables, stateTransitions) == 128);

constexpr const int8_t *__LUMPropertyListJSONCharacterClassByCharacter = __kLUMPropertyListJSONTables.characterClassByCharacter;

int8_t transition(int32_t state, int32_t characterClass)
{
    // Read through the whole block, so that class -1 reaches into the row
    // (or the table) before, as the automaton does.
    const int8_t *block = reinterpret_cast<const int8_t *>(&__kLUMPropertyListJSONTables);
    return block[128 + state * kClassCount + characterClass];
}

/* ---- Scratch blocks ------------------------------------------------------
 * The reader's own stacks. Small ones come from the C library; from the
 * size on which it treats a request as large they are mapped from the
 * system instead. A large request makes the C library first merge every
 * block freed before (a whole tree released since the last read, say), and
 * freeing a large block raises the size from which it maps blocks itself
 * and the size from which it gives memory back: either way the next trees
 * would pay for the reader's scratch. */
constexpr size_t kMappedScratchBytes = 126 * sizeof(size_t);

void *mapScratch(size_t bytes)
{
    void *block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return block == MAP_FAILED ? nullptr : block;
}

/* The block moved to newBytes, its first oldBytes kept; NULL without
 * memory (the old block stays). */
void *resizeScratch(void *block, size_t oldBytes, size_t newBytes)
{
    if (newBytes < kMappedScratchBytes) return realloc(block, newBytes);
    if (oldBytes >= kMappedScratchBytes) {
        void *moved = mremap(block, oldBytes, newBytes, MREMAP_MAYMOVE);
        return moved == MAP_FAILED ? nullptr : moved;
    }
    void *mapped = mapScratch(newBytes);
    if (mapped == nullptr) return nullptr;
    if (oldBytes > 0) memcpy(mapped, block, oldBytes);
    free(block);
    return mapped;
}

void freeScratch(void *block, size_t bytes)
{
    if (bytes >= kMappedScratchBytes) munmap(block, bytes);
    else free(block);
}

/* The text of the value being read. With a caller's allocator it is the
 * mutable string the reader has always used, so the allocator sees the same
 * calls. With the system allocator nobody can watch it, and it is a plain
 * array of units, appended to in runs. */
class ParseBuffer {
public:
    ParseBuffer(const ParseBuffer &) = delete;
    ParseBuffer &operator=(const ParseBuffer &) = delete;
    ParseBuffer() = default;
    ~ParseBuffer() { release(); }

    void release()
    {
        LUMRelease(string_);
        string_ = nullptr;
        free(units_);
        units_ = nullptr;
        count_ = capacity_ = 0;
    }

    /* Whether the buffer is the private array. */
    bool isPrivate() const { return string_ == nullptr; }
    void useString(LUMMutableStringRef string) { string_ = string; }

    LUMIndex count() const { return string_ != nullptr ? LUMStringGetLength(string_) : count_; }
    const UniChar *units() const { return units_; }
    LUMMutableStringRef string() const { return string_; }

    void append(UniChar unit)
    {
        if (string_ != nullptr) {
            LUMStringAppendCharacters(string_, &unit, 1);
        } else if (count_ < capacity_ || grow(count_ + 1)) {
            units_[count_++] = unit;
        }
    }

    /* Private buffer only: appends each byte as one unit. */
    void appendBytes(const UInt8 *bytes, LUMIndex length)
    {
        if (count_ + length > capacity_ && !grow(count_ + length)) return;
        lum::widenBytes(bytes, static_cast<size_t>(length), units_ + count_);
        count_ += length;
    }

    void removeLast()
    {
        LUMIndex length = count();
        if (length == 0) return;
        if (string_ != nullptr) LUMStringDelete(string_, LUMRangeMake(length - 1, 1));
        else count_--;
    }

    void clear()
    {
        if (string_ != nullptr) LUMStringDelete(string_, LUMRangeMake(0, LUMStringGetLength(string_)));
        else count_ = 0;
    }

    /* Private buffer only: the units as a block of the system allocator,
     * now the caller's (NULL without memory); the buffer starts afresh. */
    UniChar *takeUnits()
    {
        UniChar *units = units_;
        if (capacity_ > count_) {
            // Shrinking keeps the block where it is; only its tail is given back.
            void *fitted = realloc(units_, static_cast<size_t>(count_ > 0 ? count_ : 1) * sizeof(UniChar));
            if (fitted == nullptr) return nullptr;
            units = static_cast<UniChar *>(fitted);
        }
        units_ = nullptr;
        count_ = capacity_ = 0;
        return units;
    }

    void copyLastSix(UniChar (&units)[6]) const
    {
        LUMIndex length = count();
        if (string_ != nullptr) LUMStringGetCharacters(string_, LUMRangeMake(length - 6, 6), units);
        else memcpy(units, units_ + length - 6, sizeof(units));
    }

    void removeLastSix()
    {
        if (string_ != nullptr) LUMStringDelete(string_, LUMRangeMake(LUMStringGetLength(string_) - 6, 6));
        else count_ -= 6;
    }

private:
    // As the mutable string does: what cannot be allocated is not appended.
    bool grow(LUMIndex needed)
    {
        LUMIndex capacity = lum::doubledCapacity<LUMIndex>(capacity_ < 32 ? 32 : capacity_, needed);
        void *units = realloc(units_, static_cast<size_t>(capacity) * sizeof(UniChar));
        if (units == nullptr) return false;
        units_ = static_cast<UniChar *>(units);
        capacity_ = capacity;
        return true;
    }

    LUMMutableStringRef string_ = nullptr;
    UniChar *units_ = nullptr;
    LUMIndex count_ = 0;
    LUMIndex capacity_ = 0;
};

/* The enclosing containers and their modes, as the two arrays the reader
 * has always kept when a caller's allocator watches; they own one
 * reference to each container. */
class ContainerStack {
public:
    ContainerStack() = default;
    ContainerStack(const ContainerStack &) = delete;
    ContainerStack &operator=(const ContainerStack &) = delete;
    ~ContainerStack() { release(); }

    void create(LUMAllocatorRef allocator)
    {
        containers_ = LUMArrayCreateMutable(allocator, 0, &kLUMTypeArrayCallBacks);
        modes_ = LUMArrayCreateMutable(allocator, 0, nullptr);
    }

    /* Takes over the caller's reference to container. */
    void push(LUMTypeRef container, int32_t mode)
    {
        LUMArrayAppendValue(modes_, reinterpret_cast<const void *>(static_cast<intptr_t>(mode)));
        LUMArrayAppendValue(containers_, container);
        LUMRelease(container);
    }

    bool isEmpty() const { return LUMArrayGetCount(containers_) == 0; }

    /* The top container, with the stack's reference handed to the caller. */
    LUMTypeRef pop(int32_t &mode)
    {
        LUMIndex depth = LUMArrayGetCount(containers_);
        LUMTypeRef container = LUMRetain(LUMArrayGetValueAtIndex(containers_, depth - 1));
        mode = static_cast<int32_t>(reinterpret_cast<intptr_t>(LUMArrayGetValueAtIndex(modes_, depth - 1)));
        LUMArrayRemoveValueAtIndex(containers_, depth - 1);
        LUMArrayRemoveValueAtIndex(modes_, depth - 1);
        return container;
    }

    void release()
    {
        LUMRelease(containers_);
        LUMRelease(modes_);
        containers_ = modes_ = nullptr;
    }

private:
    LUMMutableArrayRef containers_ = nullptr;
    LUMMutableArrayRef modes_ = nullptr;
};

/* Where values go when nobody watches the allocator: nothing reads a
 * container before the read ends, so each open container keeps its
 * entries on a private stack, and is made with them all at once when it
 * closes (or when the read ends with it open), in the place among its
 * parent's entries it took when it opened. The tree that results is the
 * one placing each value at once makes. */
class TreeBuilder {
public:
    TreeBuilder() = default;
    TreeBuilder(const TreeBuilder &) = delete;
    TreeBuilder &operator=(const TreeBuilder &) = delete;
    ~TreeBuilder() { release(); }

    void useAllocator(LUMAllocatorRef allocator) { allocator_ = allocator; }

    /* Takes over the references to key (NULL in arrays) and value. */
    bool place(const void *key, const void *value)
    {
        if (count_ == capacity_ && !grow(entries_, capacity_, count_ + 1)) {
            LUMRelease(key);
            LUMRelease(value);
            return false;
        }
        entries_[count_++] = {key, value};
        return true;
    }

    /* Opens a container, placed with key (NULL in arrays, taken over), to
     * take the entries that follow. */
    void open(const void *key, bool isDictionary, int32_t outerMode)
    {
        size_t slot = place(key, nullptr) ? count_ - 1 : kNowhere;
        if (depth_ == frameCapacity_ && !grow(frames_, frameCapacity_, depth_ + 1)) return;
        frames_[depth_++] = {outerMode, slot, count_, isDictionary};
    }

    bool hasOpenContainer() const { return depth_ > 0; }

    /* Makes the innermost open container of its entries and puts it in its
     * place; its outer mode. */
    int32_t close()
    {
        Frame frame = frames_[--depth_];
        Entry *first = entries_ + frame.firstEntry;
        LUMIndex count = static_cast<LUMIndex>(count_ - frame.firstEntry);
        LUMTypeRef container = frame.isDictionary ? makeDictionary(first, count) : makeArray(first, count);
        count_ = frame.firstEntry;
        if (frame.slot != kNowhere) entries_[frame.slot].value = container;
        else LUMRelease(container);
        return frame.outerMode;
    }

    /* Closes what is open; the first top-level value, with its reference. */
    LUMTypeRef finish()
    {
        while (depth_ > 0) close();
        LUMTypeRef first = nullptr;
        for (size_t i = 0; i < count_; i++) {
            if (first == nullptr) first = entries_[i].value;
            else LUMRelease(entries_[i].value);
        }
        count_ = 0;
        return first;
    }

    void release()
    {
        for (size_t i = 0; i < count_; i++) {
            LUMRelease(entries_[i].key);
            LUMRelease(entries_[i].value);
        }
        freeScratch(entries_, capacity_ * sizeof(Entry));
        freeScratch(frames_, frameCapacity_ * sizeof(Frame));
        entries_ = nullptr;
        frames_ = nullptr;
        count_ = capacity_ = depth_ = frameCapacity_ = 0;
    }

private:
    static constexpr size_t kNowhere = SIZE_MAX; // a container whose place could not be kept

    using Entry = lum::KeyValue;
    struct Frame {
        int32_t outerMode;
        size_t slot;
        size_t firstEntry;
        bool isDictionary;
    };

    template <typename T>
    static bool grow(T *&block, size_t &capacity, size_t needed)
    {
        size_t grown = lum::doubledCapacity<size_t>(capacity < 16 ? 16 : capacity, needed);
        void *moved = resizeScratch(block, capacity * sizeof(T), grown * sizeof(T));
        if (moved == nullptr) return false;
        block = static_cast<T *>(moved);
        capacity = grown;
        return true;
    }

    LUMTypeRef makeArray(Entry *entries, LUMIndex count)
    {
        // The values side by side, in the entries' own memory; a container
        // that could not be made has no value.
        auto **values = reinterpret_cast<const void **>(entries);
        LUMIndex kept = 0;
        for (LUMIndex i = 0; i < count; i++) {
            if (entries[i].value != nullptr) values[kept++] = entries[i].value;
        }
        LUMTypeRef array = lum::createArrayAdopting(allocator_, values, kept, true);
        if (array == nullptr) {
            for (LUMIndex i = 0; i < kept; i++) LUMRelease(values[i]);
        }
        return array;
    }

    LUMTypeRef makeDictionary(Entry *entries, LUMIndex count) { return lum::createDictionarySetting(allocator_, entries, count); }

    LUMAllocatorRef allocator_ = nullptr;
    Entry *entries_ = nullptr;
    size_t count_ = 0;
    size_t capacity_ = 0;
    Frame *frames_ = nullptr;
    size_t depth_ = 0;
    size_t frameCapacity_ = 0;
};

struct ParseContext {
    LUMAllocatorRef allocator;
    LUMReadStreamRef stream;
    LUMPropertyListFormat format;
    LUMOptionFlags options;
    LUMErrorRef error;
    LUMTypeRef container;
    LUMTypeRef pendingKey;
    int32_t mode;
    int32_t state;
    ParseBuffer buffer;
    ContainerStack stack;  // with a caller's allocator
    TreeBuilder builder;   // otherwise
    LUMTypeID valueType;
    uint32_t flags;
    bool pointIsRadix; // strtod reads '.' as the decimal point here
    struct {
        LUMTypeID null, boolean, number, dictionary, array, string;
    } types; // looked up once per read
};

void removeLastUnit(ParseContext &c) { c.buffer.removeLast(); }

void clearBuffer(ParseContext &c) { c.buffer.clear(); }

void appendUnit(ParseContext &c, UniChar unit) { c.buffer.append(unit); }

/* Replaces the six units \uXXXX at the end of the buffer by the unit they
 * name. Surrogate halves go in one by one, unpaired. */
void __LUMPropertyListContextParseJSONDecodeUnicodeChar(ParseContext &context)
{
    LUMIndex length = context.buffer.count();
    LUM_ASSERT_AT(563, length >= 6);
    UniChar units[6];
    context.buffer.copyLastSix(units);
    UniChar result = 0;
    for (int k = 0; k < 4; k++) {
        UniChar c = units[5 - k];
        if (c < 'A') c = static_cast<UniChar>(c - '0');
        else if (c < 'a') c = static_cast<UniChar>(c - 55);
        else c = static_cast<UniChar>(c - 87);
        LUM_ASSERT_AT(581, c < 16);
        result = static_cast<UniChar>(result | (c << (4 * k)));
    }
    context.buffer.removeLastSix();
    appendUnit(context, result);
}

/* ---- The buffer's text as a value ---------------------------------------
 * What the public calls on the mutable string would answer, computed
 * straight from the private units where the answer is plain, and by those
 * very calls on a string of the same units otherwise. */

/* strtol and strtod read the string's UTF-8 text; a number text up to this
 * many units always fits the converter's buffer whole. */
constexpr LUMIndex kWholeNumberText = 126;

bool isSpaceUnit(UniChar unit) { return unit == ' ' || unit == '\t' || unit == '\n' || unit == '\r'; }

/* Runs getter on a mutable string holding the private units. */
template <typename T>
T valueOfUnits(const ParseBuffer &buffer, T (*getter)(LUMStringRef))
{
    LUMMutableStringRef string = LUMStringCreateMutable(kLUMAllocatorSystemDefault, 0);
    LUMStringAppendCharacters(string, buffer.units(), buffer.count());
    T value = getter(string);
    LUMRelease(string);
    return value;
}

bool bufferIsTrue(const ParseBuffer &buffer)
{
    if (!buffer.isPrivate()) return LUMEqual(buffer.string(), LUMSTR("true"));
    const UniChar *units = buffer.units();
    return buffer.count() == 4 && units[0] == 't' && units[1] == 'r' && units[2] == 'u' && units[3] == 'e';
}

/* strtol of the text, saturated to 32 bits. */
int32_t bufferIntValue(const ParseBuffer &buffer)
{
    if (!buffer.isPrivate()) return LUMStringGetIntValue(buffer.string());
    const UniChar *units = buffer.units();
    LUMIndex count = buffer.count();
    LUMIndex i = count > 0 && units[0] == '-' ? 1 : 0;
    if (count > kWholeNumberText || i >= count || units[i] < '0' || units[i] > '9') return valueOfUnits(buffer, LUMStringGetIntValue);
    bool negative = i == 1;
    int64_t magnitude = 0;
    for (; i < count && units[i] >= '0' && units[i] <= '9'; i++) {
        if (magnitude <= INT32_MAX) magnitude = magnitude * 10 + (units[i] - '0'); // past it, saturated either way
    }
    int64_t value = negative ? -magnitude : magnitude;
    if (value > INT32_MAX) return INT32_MAX;
    if (value < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(value);
}

/* A text of an optional minus and at most 15 digits: an integer every
 * double holds exactly, so the double strtod reads in any locale. */
bool plainIntegerValue(const UniChar *units, LUMIndex count, double &value)
{
    LUMIndex i = count > 0 && units[0] == '-' ? 1 : 0;
    if (count == i || count - i > 15) return false;
    int64_t magnitude = 0;
    for (; i < count; i++) {
        if (units[i] < '0' || units[i] > '9') return false;
        magnitude = magnitude * 10 + (units[i] - '0');
    }
    value = static_cast<double>(magnitude);
    if (units[0] == '-') value = -value; // -0 too
    return true;
}

/* strtod of the text. */
double bufferDoubleValue(const ParseContext &c)
{
    const ParseBuffer &buffer = c.buffer;
    if (!buffer.isPrivate()) return LUMStringGetDoubleValue(buffer.string());
    const UniChar *units = buffer.units();
    LUMIndex count = buffer.count();
    while (count > 0 && isSpaceUnit(units[count - 1])) count--; // where strtod stops anyway
    if (double value; plainIntegerValue(units, count, value)) return value;
    if (c.pointIsRadix && count <= kWholeNumberText) {
        UInt8 text[kWholeNumberText];
        bool ascii = true;
        for (LUMIndex i = 0; i < count; i++) {
            ascii = ascii && units[i] < 128;
            text[i] = static_cast<UInt8>(units[i]);
        }
        double value;
        if (ascii && lum::convertDecimalText(text, text + count, value)) return value;
    }
    return valueOfUnits(buffer, LUMStringGetDoubleValue);
}

/* From this many units on, a string takes the private buffer's block as
 * its own rather than a copy of it: a long text is not copied again, and
 * the string is laid out as the public creator lays it out. */
constexpr LUMIndex kHandedOverUnits = 4096;

LUMStringRef createBufferString(ParseContext &c)
{
    if (!c.buffer.isPrivate()) return LUMStringCreateCopy(c.allocator, c.buffer.string());
    LUMIndex count = c.buffer.count();
    if (count >= kHandedOverUnits) {
        if (UniChar *units = c.buffer.takeUnits()) {
            LUMStringRef string = LUMStringCreateWithCharactersNoCopy(c.allocator, units, count, kLUMAllocatorSystemDefault);
            if (string == nullptr) free(units);
            return string;
        }
    }
    return lum::createStringWithUnits(c.allocator, c.buffer.units(), count);
}

/* Places a value with the tree builder, by the mode. */
void placePrivately(ParseContext &c, LUMTypeRef value)
{
    if (c.mode == kModeTop || c.mode == kModeArray) {
        c.builder.place(nullptr, value);
    } else if (c.mode == kModeKey) {
        if (c.pendingKey != nullptr) LUMRelease(c.pendingKey); // a key no value followed
        c.pendingKey = value;
    } else if (c.mode == kModeValue) {
        c.builder.place(c.pendingKey, value);
        c.pendingKey = nullptr;
    } else {
        LUMRelease(value);
    }
}

/* The value the buffer and the value type describe; NULL for none. */
LUMTypeRef createValue(ParseContext &c)
{
    LUMTypeID type = c.valueType;
    if (type == 0) return nullptr;
    if (type == c.types.null) return kLUMNull;
    if (type == c.types.boolean) return bufferIsTrue(c.buffer) ? kLUMBooleanTrue : kLUMBooleanFalse;
    if (type == c.types.number) {
        // The kind comes from bit 1 of the state word at completion, not from
        // the fraction flag: deliberate.
        if (c.state & 2) {
            double real = bufferDoubleValue(c);
            return LUMNumberCreate(c.allocator, kLUMNumberDoubleType, &real);
        }
        int32_t integer = bufferIntValue(c.buffer);
        return LUMNumberCreate(c.allocator, kLUMNumberSInt32Type, &integer);
    }
    if (type == c.types.dictionary) return LUMDictionaryCreateMutable(c.allocator, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    if (type == c.types.array) return LUMArrayCreateMutable(c.allocator, 0, &kLUMTypeArrayCallBacks);
    if (type == c.types.string) return createBufferString(c);
    return nullptr;
}

/* The buffer and the value type start afresh. */
void startAfresh(ParseContext &c)
{
    clearBuffer(c);
    c.valueType = 0;
}

/* Places value (NULL: nothing) by the mode and, with a push mode, makes it
 * the current container, with the observed buffer. */
void placeObserved(ParseContext &c, LUMTypeRef value, int32_t pushMode)
{
    if (value != nullptr) {
        if (c.mode == kModeTop || c.mode == kModeArray) {
            LUMArrayAppendValue(static_cast<LUMMutableArrayRef>(const_cast<void *>(c.container)), value);
        } else if (c.mode == kModeKey) {
            LUMRelease(c.pendingKey);
            c.pendingKey = value; // takes over the reference made above
            value = pushMode != 0 ? LUMRetain(value) : nullptr;
        } else if (c.mode == kModeValue) {
            LUMDictionarySetValue(static_cast<LUMMutableDictionaryRef>(const_cast<void *>(c.container)), c.pendingKey, value);
            LUMRelease(c.pendingKey);
            c.pendingKey = nullptr;
        }
        if (pushMode != 0) {
            c.stack.push(c.container, c.mode);
            c.mode = pushMode;
            c.container = LUMRetain(value);
        }
        if (value != nullptr) LUMRelease(value);
    }
}

/* Places value (NULL: nothing) by the mode and, with a push mode, makes it
 * the current container; the buffer and the value type start afresh. */
void placeValue(ParseContext &c, LUMTypeRef value, int32_t pushMode)
{
    if (!c.buffer.isPrivate()) placeObserved(c, value, pushMode);
    else if (value != nullptr) placePrivately(c, value);
    startAfresh(c);
}

/* Places a new container by the mode and opens it to take the values that
 * follow, as placing it would; the tree builder makes it when it closes.
 * The automaton opens containers only in modes 0, 1 and 4: in any other
 * the container is made now, and placed (or dropped) as a value. */
void openPrivately(ParseContext &c, int32_t pushMode)
{
    if (c.mode == kModeTop || c.mode == kModeArray || c.mode == kModeValue) {
        const void *key = c.mode == kModeValue ? c.pendingKey : nullptr;
        c.pendingKey = c.mode == kModeValue ? nullptr : c.pendingKey;
        c.builder.open(key, pushMode == kModeKey, c.mode);
        c.mode = pushMode;
    } else {
        placePrivately(c, createValue(c));
    }
    startAfresh(c);
}

/* Makes the value the buffer and the value type describe, places it by the
 * mode and, with a push mode, makes it the current container. */
void __LUMPropertyListContextParseJSONParseStringBuffer(ParseContext &c, int32_t pushMode)
{
    placeValue(c, createValue(c), pushMode);
}

bool __LUMPropertyListContextPopMode(ParseContext &c, int32_t expectedMode)
{
    if (c.mode != expectedMode) return false;
    if (c.buffer.isPrivate()) {
        if (!c.builder.hasOpenContainer()) return false;
        c.mode = c.builder.close();
        return true;
    }
    if (c.stack.isEmpty()) return false;
    LUMRelease(c.container);
    c.container = c.stack.pop(c.mode);
    return true;
}

/* ---- The actions ----------------------------------------------------------
 * Each is what the automaton does on the byte that calls it, the byte's
 * own append aside; false fails the step. */

/* Actions that remove or clear the byte they were called on: with the
 * observed string the append and its removal are calls the allocator has
 * always seen, so they are made; the private buffer leaves the byte out. */
constexpr bool discardsItsByte(int8_t action)
{
    return (action <= -2 && action >= -9) || action == -21;
}

void takeBackUnit(ParseContext &c)
{
    if (!c.buffer.isPrivate()) removeLastUnit(c);
}

bool takeColon(ParseContext &c) // -2
{
    takeBackUnit(c);
    __LUMPropertyListContextParseJSONParseStringBuffer(c, 0);
    if (c.mode != kModeKey) return false;
    c.mode = kModeValue;
    c.state = 5;
    return true;
}

bool takeComma(ParseContext &c) // -3
{
    takeBackUnit(c);
    __LUMPropertyListContextParseJSONParseStringBuffer(c, 0);
    if (c.mode == kModeArray) c.state = 5;
    else if (c.mode == kModeValue) { c.state = 3; c.mode = kModeKey; }
    else return false;
    return true;
}

/* The string made, placed as a key or a value. */
bool endString(ParseContext &c, LUMTypeRef string)
{
    placeValue(c, string, 0);
    if (c.mode == kModeKey) c.state = 4;
    else if (c.mode == kModeValue || c.mode == kModeArray) c.state = 1;
    else return false;
    return true;
}

bool takeClosingQuote(ParseContext &c) // -4
{
    takeBackUnit(c);
    return endString(c, createValue(c));
}

void openContainer(ParseContext &c, LUMTypeID type, int32_t pushMode)
{
    c.valueType = type;
    if (c.buffer.isPrivate()) openPrivately(c, pushMode);
    else __LUMPropertyListContextParseJSONParseStringBuffer(c, pushMode);
}

void openArray(ParseContext &c) // -5
{
    openContainer(c, c.types.array, kModeArray);
    c.state = 6;
}

void openObject(ParseContext &c) // -6
{
    openContainer(c, c.types.dictionary, kModeKey);
    c.state = 2;
}

bool closeContainer(ParseContext &c, int32_t expectedMode) // -7 ']', -8 '}' after a value
{
    takeBackUnit(c);
    __LUMPropertyListContextParseJSONParseStringBuffer(c, 0);
    if (!__LUMPropertyListContextPopMode(c, expectedMode)) return false;
    c.state = 1;
    return true;
}

bool closeEmptyObject(ParseContext &c) // -9
{
    clearBuffer(c);
    if (!__LUMPropertyListContextPopMode(c, kModeKey)) return false;
    c.state = 1;
    return true;
}

void openString(ParseContext &c) // -17
{
    clearBuffer(c);
    c.valueType = c.types.string;
    c.state = 7;
}

void startNumber(ParseContext &c, int32_t state) // -18 '-', -19 '0', -20 1-9
{
    c.valueType = c.types.number;
    c.flags &= ~kFlagFraction;
    c.state = state;
}

/* Runs an action; false fails the step. */
bool runAction(ParseContext &c, int8_t action)
{
    switch (action) {
    case -2: return takeColon(c);
    case -3: return takeComma(c);
    case -4: return takeClosingQuote(c);
    case -5: openArray(c); return true;
    case -6: openObject(c); return true;
    case -7: return closeContainer(c, kModeArray);
    case -8: return closeContainer(c, kModeValue);
    case -9: return closeEmptyObject(c);
    case -10: // '/' and the end of a comment: comments are not carried out
    case -11:
        return false;
    case -12: c.valueType = c.types.boolean; c.state = 23; return true; // 'f'
    case -13: c.valueType = c.types.boolean; c.state = 20; return true; // 't'
    case -14: c.valueType = c.types.null; c.state = 27; return true;    // 'n'
    case -15: c.valueType = c.types.number; c.flags |= kFlagFraction; c.state = 17; return true;  // e E
    case -16: c.valueType = c.types.number; c.flags |= kFlagFraction; c.state = 33; return true;  // '.'
    case -17: openString(c); return true;
    case -18: startNumber(c, 13); return true;
    case -19: startNumber(c, 14); return true;
    case -20: startNumber(c, 15); return true;
    case -21: // backslash in a string
        takeBackUnit(c);
        c.flags |= kFlagEscape;
        c.state = 8;
        return true;
    case -22: // the fourth hex digit
        __LUMPropertyListContextParseJSONDecodeUnicodeChar(c);
        c.state = 7;
        return true;
    default:
        return false;
    }
}

/* One byte; false fails the step (the rest of the chunk is dropped). */
bool parseByte(ParseContext &c, UInt8 byte)
{
    int32_t characterClass = byte < 128 ? __LUMPropertyListJSONCharacterClassByCharacter[byte] : 30;
    int8_t entry = transition(c.state, characterClass);
    // The byte is one code unit: UTF-8 is not decoded here, on purpose.
    UniChar unit = byte;
    if (c.state == 8) {
        c.flags &= ~kFlagEscape;
        switch (byte) {
        case '"': case '/': case '\\': break;
        case 'b': unit = 8; break;
        case 'f': unit = 12; break;
        case 'n': unit = 10; break;
        case 'r': unit = 13; break;
        case 't': unit = 9; break;
        case 'u': appendUnit(c, '\\'); break; // keeps the six units of \uXXXX
        default: return false;
        }
        appendUnit(c, unit);
    } else if (!((characterClass == 0 || characterClass == 1) && c.valueType == 0)) {
        if (!(c.buffer.isPrivate() && discardsItsByte(entry))) appendUnit(c, unit);
    }
    if (entry >= 0) {
        c.state = entry;
        return true;
    }
    return runAction(c, entry);
}

/* The bytes that stay in a string, state 7, unchanged: all but the quote,
 * the backslash and the control characters. */
constexpr bool staysInString(UInt8 byte) { return byte >= 0x20 && byte != '"' && byte != '\\'; }
constexpr bool isDigitByte(UInt8 byte) { return byte >= '0' && byte <= '9'; }
constexpr bool isSpaceByte(UInt8 byte) { return byte <= ' ' && ((1ull << byte) & ((1ull << ' ') | (1ull << '\t') | (1ull << '\n') | (1ull << '\r'))) != 0; }

/* The position, in memory order, of the first byte of an eight-byte word
 * loaded from memory that has a bit of mask set (mask is not 0). */
inline unsigned firstMarkedByte(uint64_t mask)
{
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return static_cast<unsigned>(__builtin_ctzll(mask)) >> 3;
#else
    return static_cast<unsigned>(__builtin_clzll(mask)) >> 3;
#endif
}

/* Where string text stops staying in state 7: eight bytes at a time up to
 * the first quote, backslash or control character. Below the first such
 * byte no borrow marks a byte falsely, so the lowest mark is exact. */
const UInt8 *endOfStringRun(const UInt8 *p, const UInt8 *end)
{
#if defined(__SSE2__)
    // Sixteen bytes at a time where the processor has the instructions.
    const __m128i quote = _mm_set1_epi8('"'), backslash = _mm_set1_epi8('\\'), lastControl = _mm_set1_epi8(0x1F);
    for (; end - p >= 16; p += 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        __m128i stops = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)),
                                     _mm_cmpeq_epi8(_mm_max_epu8(v, lastControl), lastControl));
        if (int mask = _mm_movemask_epi8(stops)) return p + __builtin_ctz(static_cast<unsigned>(mask));
    }
#endif
    constexpr uint64_t ones = 0x0101010101010101ull, highs = 0x8080808080808080ull;
    for (; end - p >= 8; p += 8) {
        uint64_t v;
        memcpy(&v, p, 8);
        uint64_t quotes = v ^ (ones * '"'), backslashes = v ^ (ones * '\\');
        uint64_t found = (((quotes - ones) & ~quotes) | ((backslashes - ones) & ~backslashes) | ((v - ones * 0x20) & ~v)) & highs;
        if (found != 0) return p + firstMarkedByte(found);
    }
    while (p < end && staysInString(*p)) p++;
    return p;
}

/* Where whitespace stops; runs of spaces (indentation) are passed eight
 * bytes at a time. */
const UInt8 *endOfSpaceRun(const UInt8 *p, const UInt8 *end)
{
    constexpr uint64_t spaces = 0x2020202020202020ull;
    while (p < end) {
        if (end - p >= 8) {
            uint64_t v;
            memcpy(&v, p, 8);
            if (v == spaces) {
                p += 8;
                continue;
            }
            p += firstMarkedByte(v ^ spaces); // the first byte that is not a space
        }
        if (!isSpaceByte(*p)) break;
        p++;
    }
    return p;
}

const UInt8 *endOfDigitRun(const UInt8 *p, const UInt8 *end)
{
    while (p < end && isDigitByte(*p)) p++;
    return p;
}

/* Where a run of bytes each of which the automaton would take one by one
 * into the same state ends: string text, digits and whitespace. */
const UInt8 *endOfRun(const ParseContext &c, const UInt8 *p, const UInt8 *end)
{
    switch (c.state) {
    case 7:
        return endOfStringRun(p, end);
    case 15: case 16: case 19:
        return endOfDigitRun(p, end);
    case 0: case 1: case 2: case 3: case 4: case 5: case 6:
        return endOfSpaceRun(p, end);
    default:
        return p;
    }
}

/* Takes a run the automaton would take into its buffer byte by byte.
 * Whitespace is text too once a value has begun. */
void takeRun(ParseContext &c, const UInt8 *p, const UInt8 *runEnd)
{
    if (c.state >= 7 || c.valueType != 0) c.buffer.appendBytes(p, runEnd - p);
}

/* ---- Whole pieces at once ----------------------------------------------
 * With the private buffer, the pieces every document is made of are taken
 * whole when the chunk holds them: each leaves the state, the mode, the
 * value type, the flags and the buffer as the byte-by-byte steps would,
 * and makes and places the same values through the same actions. A piece
 * that would fail, or that the chunk cuts, is left to those steps. */

constexpr int32_t kStateValueDone = 1;

bool endsValue(int32_t state)
{
    return state == kStateValueDone || state == 14 || state == 15 || state == 16 || state == 19 || state == 33;
}

/* A whole string from its opening quote at p: its closing quote, or NULL
 * when the text has an escape or a control character or the chunk ends
 * first. */
const UInt8 *closingQuoteOf(const UInt8 *p, const UInt8 *end)
{
    const UInt8 *q = endOfStringRun(p + 1, end);
    return q < end && *q == '"' ? q : nullptr;
}

/* A string from its quotes: opened (clearing the buffer), its text, and
 * closed. On failure the state is the one the string was read in. */
bool takeString(ParseContext &c, const UInt8 *open, const UInt8 *close)
{
    c.state = 7;
    return endString(c, lum::createStringWithByteUnits(c.allocator, open + 1, close - open - 1));
}

/* A whole string at its opening quote p: past its closing quote, with
 * taken telling whether the step succeeded; p when the chunk does not hold
 * it whole or it holds an escape (the byte steps take it then). */
const UInt8 *takeWholeString(ParseContext &c, const UInt8 *p, const UInt8 *end, bool &taken)
{
    const UInt8 *close = closingQuoteOf(p, end);
    if (close == nullptr) return p;
    taken = takeString(c, p, close);
    return close + 1;
}

/* '{' or '[' where a value may start. */
void openByByte(ParseContext &c, UInt8 byte)
{
    if (byte == '{') openObject(c);
    else openArray(c);
}

/* true, false or null whole, at its first letter: the value type the first
 * letter sets, each letter appended, and state 1. */
const UInt8 *takeLiteral(ParseContext &c, const UInt8 *p, const UInt8 *end)
{
    const char *word = *p == 't' ? "true" : *p == 'f' ? "false" : "null";
    size_t length = strlen(word);
    if (static_cast<size_t>(end - p) < length || memcmp(p, word, length) != 0) return p;
    c.valueType = *p == 'n' ? c.types.null : c.types.boolean;
    c.buffer.appendBytes(p, static_cast<LUMIndex>(length));
    c.state = kStateValueDone;
    return p + length;
}

/* The first character of a number and, after 1-9, the digits that follow. */
const UInt8 *takeNumberStart(ParseContext &c, const UInt8 *p, const UInt8 *end)
{
    const UInt8 *q = p + 1;
    if (*p == '-') startNumber(c, 13);
    else if (*p == '0') startNumber(c, 14);
    else startNumber(c, 15), q = endOfDigitRun(q, end);
    c.buffer.appendBytes(p, q - p);
    return q;
}

/* The pieces that start at p in the current state, as many as follow one
 * another; where the byte-by-byte steps must go on (end when the chunk is
 * done), or NULL when a step failed. */
const UInt8 *takePieces(ParseContext &c, const UInt8 *p, const UInt8 *end)
{
    while (p < end) {
        if (c.state <= 6 && isSpaceByte(*p)) {
            const UInt8 *q = endOfSpaceRun(p, end);
            takeRun(c, p, q);
            if ((p = q) == end) break;
        }
        UInt8 byte = *p;
        bool taken = true;
        if (endsValue(c.state)) {
            if (byte == ',') taken = takeComma(c);
            else if (byte == ']') taken = closeContainer(c, kModeArray);
            else if (byte == '}') taken = closeContainer(c, kModeValue);
            else return p;
            p++;
        } else if (c.state == 5 || c.state == 6) {
            if (byte == '"') {
                const UInt8 *q = takeWholeString(c, p, end, taken);
                if (q == p) return p;
                p = q;
            } else if (isDigitByte(byte) || byte == '-') {
                p = takeNumberStart(c, p, end);
            } else if (byte == '{' || byte == '[') {
                openByByte(c, byte);
                p++;
            } else if (byte == 't' || byte == 'f' || byte == 'n') {
                const UInt8 *q = takeLiteral(c, p, end);
                if (q == p) return p;
                p = q;
            } else if (byte == ']' && c.state == 6) {
                taken = closeContainer(c, kModeArray);
                p++;
            } else {
                return p;
            }
        } else if (c.state == 2 || c.state == 3) {
            if (byte == '"') {
                const UInt8 *q = takeWholeString(c, p, end, taken);
                if (q == p) return p;
                p = q;
            } else if (byte == '}' && c.state == 2) {
                taken = closeEmptyObject(c);
                p++;
            } else {
                return p;
            }
        } else if (c.state == 4 && byte == ':') {
            taken = takeColon(c);
            p++;
        } else if (c.state == 0 && (byte == '{' || byte == '[')) {
            openByByte(c, byte);
            p++;
        } else {
            return p;
        }
        if (!taken) return nullptr;
    }
    return p;
}

/* One chunk, byte by byte as the automaton reads it; with the private
 * buffer, whole pieces and runs that change nothing but the buffer are
 * taken at once. */
void parseChunk(ParseContext &c, const UInt8 *p, const UInt8 *end)
{
    if (!c.buffer.isPrivate()) {
        while (p < end && parseByte(c, *p)) p++;
        return;
    }
    while (p < end) {
        p = takePieces(c, p, end);
        if (p == nullptr || p == end) return; // on failure the rest of the chunk is dropped; the state stays
        const UInt8 *runEnd = endOfRun(c, p, end);
        if (runEnd != p) {
            takeRun(c, p, runEnd);
            p = runEnd;
            if (p == end) return;
        }
        if (!parseByte(c, *p++)) return;
    }
}

/* ---- Writer ------------------------------------------------------------------ */

constexpr char __LUMPropertyListHexChars[] = "0123456789ABCDEF";

struct WriteContext {
    LUMAllocatorRef allocator;
    LUMWriteStreamRef stream;
    LUMIndex bytesWritten;
    LUMPropertyListFormat format;
    LUMOptionFlags options;
    LUMErrorRef error;
    // A stream nobody can watch (the library's own buffer over the system
    // allocator) gets all the text in one write at the end; any other
    // stream gets the writes it always got.
    bool gathers;
    UInt8 *gathered;
    size_t gatheredCount;
    size_t gatheredCapacity;
    // Number texts are made through string objects of the default
    // allocator; when that is the system allocator, nobody sees them made.
    bool numbersPrivately;
};

void handOver(WriteContext &w)
{
    if (w.gatheredCount > 0) LUMWriteStreamWrite(w.stream, w.gathered, static_cast<LUMIndex>(w.gatheredCount));
    w.gatheredCount = 0;
}

/* Room for length more gathered bytes; false (with what was gathered handed
 * over, and gathering given up) when there is no memory for it. */
bool gatherRoom(WriteContext &w, size_t length)
{
    if (w.gatheredCount + length <= w.gatheredCapacity) return true;
    size_t capacity = lum::doubledCapacity<size_t>(w.gatheredCapacity < 4096 ? 4096 : w.gatheredCapacity, w.gatheredCount + length);
    void *grown = realloc(w.gathered, capacity);
    if (grown == nullptr) {
        handOver(w);
        w.gathers = false;
        return false;
    }
    w.gathered = static_cast<UInt8 *>(grown);
    w.gatheredCapacity = capacity;
    return true;
}

void writeBytes(WriteContext &w, const UInt8 *bytes, LUMIndex length)
{
    if (length <= 0) return;
    if (w.gathers && gatherRoom(w, static_cast<size_t>(length))) {
        memcpy(w.gathered + w.gatheredCount, bytes, static_cast<size_t>(length));
        w.gatheredCount += static_cast<size_t>(length);
    } else {
        LUMWriteStreamWrite(w.stream, bytes, length); // the result is not checked
    }
    w.bytesWritten += length;
}

void writeText(WriteContext &w, const char *text) { writeBytes(w, reinterpret_cast<const UInt8 *>(text), static_cast<LUMIndex>(strlen(text))); }

/* The two hex digits of every byte, from the hex characters. */
struct HexPairs {
    char text[512];
};
constexpr HexPairs makeHexPairs()
{
    HexPairs pairs = {};
    for (int b = 0; b < 256; b++) {
        pairs.text[2 * b] = __LUMPropertyListHexChars[b >> 4];
        pairs.text[2 * b + 1] = __LUMPropertyListHexChars[b & 0xF];
    }
    return pairs;
}
constexpr HexPairs kHexPairs = makeHexPairs();

/* One unit as JSON text: a backslash doubled, a quotation mark escaped
 * when asked, 32-127 as its byte, everything else as \\uXXXX. */
int encodeUnit(UniChar unit, bool escapeQuotes, UInt8 *out)
{
    if (unit == '\\' || (unit == '"' && escapeQuotes)) {
        out[0] = '\\';
        out[1] = static_cast<UInt8>(unit);
        return 2;
    }
    if (unit >= 32 && unit <= 127) {
        out[0] = static_cast<UInt8>(unit);
        return 1;
    }
    out[0] = '\\';
    out[1] = 'u';
    memcpy(out + 2, kHexPairs.text + 2 * (unit >> 8), 2);
    memcpy(out + 4, kHexPairs.text + 2 * (unit & 0xFF), 2);
    return 6;
}

/* Plain text: one byte each, under any escaping. */
constexpr bool isPlainUnit(UniChar unit) { return unit >= 32 && unit <= 127 && unit != '\\' && unit != '"'; }

/* Units as JSON text: handed on whenever more than 991 bytes are waiting
 * before a unit, and at the end. Gathered text is encoded in place. */
void writeUnits(WriteContext &w, const UniChar *units, LUMIndex length, bool escapeQuotes)
{
    if (w.gathers && length > 0 && gatherRoom(w, 6 * static_cast<size_t>(length))) {
        UInt8 *out = w.gathered + w.gatheredCount;
        size_t used = 0;
        for (LUMIndex i = 0; i < length; i++) {
            UniChar unit = units[i];
            if (isPlainUnit(unit)) out[used++] = static_cast<UInt8>(unit);
            else used += static_cast<size_t>(encodeUnit(unit, escapeQuotes, out + used));
        }
        w.gatheredCount += used;
        w.bytesWritten += static_cast<LUMIndex>(used);
        return;
    }
    UInt8 out[kWriteFlushBytes + 16];
    LUMIndex used = 0;
    for (LUMIndex i = 0; i < length; i++) {
        if (used > kWriteFlushBytes) {
            writeBytes(w, out, used);
            used = 0;
        }
        used += encodeUnit(units[i], escapeQuotes, out + used);
    }
    writeBytes(w, out, used);
}

void __LUMPropertyListContextWriteString(WriteContext &w, LUMStringRef string, bool escapeQuotes)
{
    // The string's units, read straight from its storage when it has them.
    LUMIndex length = LUMStringGetLength(string);
    if (const UniChar *units = LUMStringGetCharactersPtr(string)) return writeUnits(w, units, length, escapeQuotes);
    lum::TempBuffer<UniChar, 256> units(static_cast<size_t>(length));
    if (units.get() == nullptr) return;
    LUMStringGetCharacters(string, LUMRangeMake(0, length), units.get());
    writeUnits(w, units.get(), length, escapeQuotes);
}

void writeQuoted(WriteContext &w, LUMStringRef string)
{
    writeText(w, "\"");
    __LUMPropertyListContextWriteString(w, string, true);
    writeText(w, "\"");
}

/* The text "%ld" gives for a 32-bit value. */
LUMIndex integerUnits(int32_t value, UniChar (&units)[16])
{
    char digits[16];
    int count = 0;
    uint32_t magnitude = value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    LUMIndex length = 0;
    if (value < 0) units[length++] = '-';
    while (count > 0) units[length++] = static_cast<UniChar>(digits[--count]);
    return length;
}

void writeNumber(WriteContext &w, LUMNumberRef number)
{
    if (!LUMNumberIsFloatType(number)) {
        int32_t integer = 0;
        LUMNumberGetValue(number, kLUMNumberLongType, &integer);
        if (w.numbersPrivately) {
            UniChar units[16];
            return writeUnits(w, units, integerUnits(integer, units), false);
        }
        LUMStringRef text = LUMStringCreateWithFormat(w.allocator, nullptr, LUMSTR("%ld"), static_cast<long>(integer));
        __LUMPropertyListContextWriteString(w, text, false);
        LUMRelease(text);
        return;
    }
    double real = 0;
    LUMNumberGetValue(number, kLUMNumberDoubleType, &real);
    if (w.numbersPrivately) {
        UniChar units[400]; // the longest "%f" text, of the largest double, is 317 units
        LUMIndex length = lum::formatUnits(units, LUM_COUNTOF(units), LUMSTR("%f"), real);
        if (length <= static_cast<LUMIndex>(LUM_COUNTOF(units))) return writeUnits(w, units, length, false);
    }
    LUMStringRef text = LUMStringCreateWithFormat(w.allocator, nullptr, LUMSTR("%f"), real);
    __LUMPropertyListContextWriteString(w, text, false);
    LUMRelease(text);
}

/* Writes one value that is not a container. */
void writeScalar(LUMTypeRef object, WriteContext &w)
{
    LUMTypeID type = LUMGetTypeID(object);
    if (type == LUMStringGetTypeID()) {
        writeQuoted(w, static_cast<LUMStringRef>(object));
    } else if (type == LUMNumberGetTypeID()) {
        writeNumber(w, static_cast<LUMNumberRef>(object));
    } else if (type == LUMBooleanGetTypeID()) {
        writeText(w, LUMBooleanGetValue(static_cast<LUMBooleanRef>(object)) ? "true" : "false");
    } else if (type == LUMNullGetTypeID()) {
        writeText(w, "null");
    } else if (type == LUMDataGetTypeID()) {
        // The bytes taken as UTF-8 text, without copying.
        auto data = static_cast<LUMDataRef>(object);
        LUMStringRef text = LUMStringCreateWithBytesNoCopy(w.allocator, LUMDataGetBytePtr(data), LUMDataGetLength(data),
                                                           kLUMStringEncodingUTF8, false, kLUMAllocatorNull);
        writeQuoted(w, text);
        LUMRelease(text);
    } else {
        LUMStringRef description = LUMCopyDescription(object);
        writeQuoted(w, description);
        LUMRelease(description);
    }
}

/* A container being written: its entries in the order its apply function
 * gives (slot order for dictionaries), and how far the writer has got. */
struct OpenContainer {
    bool isDictionary;
    LUMIndex next;
    LUMIndex count;
    const void **keys;   // dictionaries only
    const void **values;
};

/* The writer keeps its own stack of open containers instead of recursing,
 * so that any depth a document can have is written with constant machine
 * stack; the output is the same as element-by-element recursion gives. */
class JSONWriter {
public:
    explicit JSONWriter(WriteContext &w) : w_(w) {}
    ~JSONWriter()
    {
        while (depth_ > 0) closeTop(false);
        free(stack_);
    }
    JSONWriter(const JSONWriter &) = delete;
    JSONWriter &operator=(const JSONWriter &) = delete;

    void write(LUMTypeRef root)
    {
        writeValue(root);
        while (depth_ > 0) {
            OpenContainer &top = stack_[depth_ - 1];
            if (top.next == top.count) {
                closeTop(true);
                continue;
            }
            LUMIndex i = top.next++;
            if (i > 0) writeText(w_, ",");
            const void *value = top.values[i];
            if (top.isDictionary) {
                writeKey(top.keys[i]);
                writeText(w_, ":");
            }
            writeValue(value); // may open a container: the loop goes on inside it
        }
    }

private:
    void writeValue(LUMTypeRef object)
    {
        LUMTypeID type = LUMGetTypeID(object);
        if (type == LUMDictionaryGetTypeID()) {
            // Only the slots that hold a key are written, whatever the count
            // says (a null key can be counted without occupying a slot).
            auto dictionary = static_cast<LUMDictionaryRef>(object);
            writeText(w_, "{");
            LUMIndex present = 0;
            LUMDictionaryApplyFunction(dictionary, countEntry, &present);
            OpenContainer &frame = push(true, present);
            frame.next = 0;
            LUMDictionaryApplyFunction(dictionary, collectEntry, &frame);
            frame.next = 0;
        } else if (type == LUMArrayGetTypeID()) {
            auto array = static_cast<LUMArrayRef>(object);
            writeText(w_, "[");
            OpenContainer &frame = push(false, LUMArrayGetCount(array));
            LUMArrayGetValues(array, LUMRangeMake(0, frame.count), frame.values);
        } else {
            writeScalar(object, w_);
        }
    }

    static void countEntry(const void *, const void *, void *context) { ++*static_cast<LUMIndex *>(context); }
    static void collectEntry(const void *key, const void *value, void *context)
    {
        auto *frame = static_cast<OpenContainer *>(context);
        frame->keys[frame->next] = key;
        frame->values[frame->next] = value;
        frame->next++;
    }

    // A key that is not a string is written as what it is; a container key
    // is written whole by a writer of its own.
    void writeKey(const void *key)
    {
        LUMTypeID type = LUMGetTypeID(key);
        if (type == LUMDictionaryGetTypeID() || type == LUMArrayGetTypeID()) {
            JSONWriter nested(w_);
            nested.write(key);
        } else {
            writeScalar(key, w_);
        }
    }

    OpenContainer &push(bool isDictionary, LUMIndex count)
    {
        if (depth_ == capacity_) {
            capacity_ = lum::doubledCapacity<size_t>(capacity_, depth_ + 1);
            stack_ = static_cast<OpenContainer *>(realloc(stack_, capacity_ * sizeof(OpenContainer)));
        }
        OpenContainer &frame = stack_[depth_++];
        size_t slots = static_cast<size_t>(count) * (isDictionary ? 2 : 1) + 1;
        frame.isDictionary = isDictionary;
        frame.next = 0;
        frame.count = count;
        frame.values = static_cast<const void **>(malloc(slots * sizeof(void *)));
        frame.keys = isDictionary ? frame.values + count : nullptr;
        return frame;
    }

    void closeTop(bool writeBracket)
    {
        OpenContainer &top = stack_[--depth_];
        if (writeBracket) writeText(w_, top.isDictionary ? "}" : "]");
        free(top.values);
    }

    WriteContext &w_;
    OpenContainer *stack_ = nullptr;
    size_t depth_ = 0;
    size_t capacity_ = 0;
};

} // namespace

Boolean _LUMPropertyListInitializeModule(void) { return true; }

LUMPropertyListRef LUMPropertyListCreateWithStream(LUMAllocatorRef allocator, LUMReadStreamRef stream, LUMIndex streamLength,
                                                   LUMOptionFlags options, LUMPropertyListFormat *format, LUMErrorRef *error)
{
    ParseContext c = {};
    c.allocator = allocator;
    c.stream = stream;
    c.format = kLUMPropertyListJSONFormat;
    c.options = options;
    // A caller's allocator sees the calls it always has: the root array, the
    // buffer, the stacks. With the system allocator the tree builder holds
    // the values instead, and the buffer is private.
    bool observed = !lum::usesSystemAllocator(allocator);
    // The default is the system allocator then: named, it is known at once.
    if (!observed) c.allocator = kLUMAllocatorSystemDefault;
    LUMMutableArrayRef root = observed ? LUMArrayCreateMutable(allocator, 0, &kLUMTypeArrayCallBacks) : nullptr;
    c.container = LUMRetain(root);
    c.mode = kModeTop;
    c.state = 0;
    if (observed) c.buffer.useString(LUMStringCreateMutable(allocator, 0));
    c.types = {LUMNullGetTypeID(), LUMBooleanGetTypeID(), LUMNumberGetTypeID(), LUMDictionaryGetTypeID(), LUMArrayGetTypeID(),
               LUMStringGetTypeID()};
    const char *point = localeconv()->decimal_point;
    c.pointIsRadix = point[0] == '.' && point[1] == '\0';
    if (observed) c.stack.create(allocator);
    else c.builder.useAllocator(allocator);

    UInt8 local[kChunkBytes];
    while (LUMReadStreamHasBytesAvailable(stream)) {
        LUMIndex length = 0;
        const UInt8 *chunk = LUMReadStreamGetBuffer(stream, kChunkBytes, &length);
        if (chunk == nullptr) {
            length = LUMReadStreamRead(stream, local, kChunkBytes);
            chunk = local;
        }
        if (length == 0) break;
        if (length < 0) continue;
        parseChunk(c, chunk, chunk + length);
    }

    if (format != nullptr) *format = kLUMPropertyListJSONFormat;
    if (error != nullptr) *error = nullptr;
    LUMPropertyListRef result;
    if (observed) result = LUMArrayGetCount(root) > 0 ? LUMRetain(LUMArrayGetValueAtIndex(root, 0)) : nullptr;
    else result = c.builder.finish();
    LUMRelease(c.pendingKey);
    LUMRelease(c.container);
    c.stack.release();
    c.buffer.release();
    LUMRelease(root);
    return result;
}

LUMPropertyListRef LUMPropertyListCreateWithData(LUMAllocatorRef allocator, LUMDataRef data, LUMOptionFlags options,
                                                 LUMPropertyListFormat *format, LUMErrorRef *error)
{
    LUMReadStreamRef stream = LUMReadStreamCreateWithBytesNoCopy(allocator, LUMDataGetBytePtr(data), LUMDataGetLength(data), kLUMAllocatorNull);
    LUMPropertyListRef result = LUMPropertyListCreateWithStream(allocator, stream, 0, options, format, error);
    LUMRelease(stream);
    return result;
}

namespace {

/* Text a writer gathered and kept for its caller. */
struct KeptText {
    UInt8 *bytes = nullptr;
    size_t count = 0;
    bool kept = false;
};

/* Writes the tree to stream. A writer that gathers hands its text to the
 * stream at the end, or, given somewhere to keep it, keeps it there (and
 * writes to the stream only what it could not gather). */
LUMIndex writePropertyList(LUMPropertyListRef propertyList, LUMWriteStreamRef stream, LUMPropertyListFormat format,
                           LUMOptionFlags options, LUMErrorRef *error, bool gathers, KeptText *keep = nullptr)
{
    if (format != kLUMPropertyListJSONFormat) return 0;
    WriteContext w = {};
    w.allocator = nullptr;
    w.stream = stream;
    w.format = format;
    w.options = options;
    w.gathers = gathers;
    w.numbersPrivately = lum::usesSystemAllocator(nullptr);
    {
        JSONWriter writer(w);
        writer.write(propertyList);
    }
    if (keep != nullptr && w.gathers) {
        keep->bytes = w.gathered;
        keep->count = w.gatheredCount;
        keep->kept = true;
    } else {
        handOver(w);
        free(w.gathered);
    }
    if (error != nullptr) *error = nullptr;
    return w.bytesWritten;
}

/* An immutable data object of the default (system) allocator over the
 * kept text, which it takes over. */
LUMDataRef adoptText(KeptText &text)
{
    if (text.count == 0) {
        free(text.bytes);
        return LUMDataCreate(nullptr, nullptr, 0);
    }
    void *fitted = realloc(text.bytes, text.count);
    auto *bytes = static_cast<UInt8 *>(fitted != nullptr ? fitted : text.bytes);
    LUMDataRef data = LUMDataCreateWithBytesNoCopy(nullptr, bytes, static_cast<LUMIndex>(text.count), kLUMAllocatorSystemDefault);
    if (data == nullptr) free(bytes);
    return data;
}

} // namespace

LUMIndex LUMPropertyListWrite(LUMPropertyListRef propertyList, LUMWriteStreamRef stream, LUMPropertyListFormat format,
                              LUMOptionFlags options, LUMErrorRef *error)
{
    return writePropertyList(propertyList, stream, format, options, error, false);
}

LUMDataRef LUMPropertyListCreateData(LUMAllocatorRef allocator, LUMPropertyListRef propertyList, LUMPropertyListFormat format,
                                     LUMOptionFlags options, LUMErrorRef *error)
{
    LUMWriteStreamRef stream = LUMWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr);
    LUMDataRef data;
    if (lum::usesSystemAllocator(nullptr)) {
        // The stream's buffers and the copy it makes of them come from the
        // default allocator: when that is the system allocator, nobody sees
        // them, and the text goes straight into the copy the stream would make.
        KeptText text;
        writePropertyList(propertyList, stream, format, options, error, true, &text);
        data = text.kept ? adoptText(text) : static_cast<LUMDataRef>(LUMWriteStreamCopyProperty(stream, kLUMStreamPropertyDataWritten));
    } else {
        writePropertyList(propertyList, stream, format, options, error, false);
        data = static_cast<LUMDataRef>(LUMWriteStreamCopyProperty(stream, kLUMStreamPropertyDataWritten));
    }
    LUMRelease(stream);
    return data;
}

Boolean LUMPropertyListIsValid(LUMPropertyListRef plist, LUMPropertyListFormat format)
{
    return format == kLUMPropertyListJSONFormat && LUMGetTypeID(plist) == LUMDictionaryGetTypeID();
}
