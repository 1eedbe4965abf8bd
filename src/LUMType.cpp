/* LUMType.cpp — the class table and the generic object operations: creation,
 * retain and release, hash, equality, descriptions.
 * Part of LumBase; MIT licence.
 *
 * Invariants: type IDs are 1-based indices into __classTable; the allocator
 * class is ID 1 and the string class ID 2, registered first by the module's
 * start function. An object is alive while its magic is 0x1337BABE; an
 * allocator field of zero marks a constant object, which retain and release
 * never touch. */
#define LUM_SOURCE_FILE "src/LUMType"
#include "LUMPrivate.h"

#include <LumBase/LUMAutoreleasePool.h>

#include <cstdio>

namespace {

constexpr int32_t kInitialClassTableCapacity = 32;

LUMRuntimeClass *__classTable = nullptr;
int32_t __classCount = 0;
int32_t __classTableCapacity = 0;

LUMRuntimeBase *header(LUMTypeRef obj) { return lum::object<LUMRuntimeBase>(obj); }

bool isConstant(LUMTypeRef obj) { return LUMGetAllocator(obj) == _kLUMAllocatorConstant; }

} // namespace


Boolean _LUMTypeInitializeModule(void)
{
    // The class table comes straight from the C heap: allocators are objects
    // themselves and cannot be used before their class exists.
    __classCount = 0;
    __classTableCapacity = kInitialClassTableCapacity;
    __classTable = static_cast<LUMRuntimeClass *>(
        _LUMAllocatorReallocateMalloc(__classTable, kInitialClassTableCapacity * sizeof(LUMRuntimeClass), 0, nullptr));
    LUMAllocatorGetTypeID();
    LUMStringGetTypeID();
    return true;
}

LUMTypeID _LUMTypeRegisterClass(const LUMRuntimeClass *cls)
{
    if (__classCount >= __classTableCapacity) {
        __classTableCapacity = lum::doubledCapacity(__classTableCapacity, __classCount + 1);
        __classTable = static_cast<LUMRuntimeClass *>(_LUMAllocatorReallocateMalloc(
            __classTable, static_cast<UInt32>(__classTableCapacity * sizeof(LUMRuntimeClass)), 0, nullptr));
    }
    __classTable[__classCount] = *cls;
    __classCount++;
    return static_cast<LUMTypeID>(__classCount);
}

const LUMRuntimeClass *_LUMTypeGetClassByID(LUMTypeID id)
{
    if (id == 0 || id > static_cast<LUMTypeID>(__classCount)) return nullptr;
    return &__classTable[id - 1];
}

const LUMRuntimeClass *_LUMTypeGetClass(LUMTypeRef obj)
{
    if (obj == nullptr || header(obj)->magic != _kLUMRuntimeMagicAlive) return nullptr;
    return _LUMTypeGetClassByID(header(obj)->typeID);
}

Boolean _LUMTypeCheckValid(LUMTypeRef obj, LUMTypeID id)
{
    if (obj == nullptr || header(obj)->magic != _kLUMRuntimeMagicAlive) return false;
    return id == 0 || header(obj)->typeID == id;
}

Boolean _LUMTypeInitializeInstance(LUMTypeRef memory, LUMAllocatorRef allocator, LUMTypeID id)
{
    if (allocator == nullptr) allocator = LUMAllocatorGetDefault();
    const LUMRuntimeClass *cls = _LUMTypeGetClassByID(id);
    if (cls == nullptr) return false;
    LUMRuntimeBase *base = header(memory);
    base->magic = _kLUMRuntimeMagicAlive;
    base->typeID = id;
    base->retainCount = 1;
    base->allocator = nullptr; // caller memory need not be cleared
    // Retain before storing: while the field is still zero the object counts
    // as constant, which lets an allocator be its own allocator without
    // holding a reference to itself.
    base->allocator = static_cast<LUMAllocatorRef>(LUMRetain(allocator));
    return cls->initialize != nullptr ? cls->initialize(memory) : true;
}

LUMTypeRef _LUMTypeCreateInstance(LUMAllocatorRef allocator, LUMTypeID id)
{
    const LUMRuntimeClass *cls = _LUMTypeGetClassByID(id);
    if (cls == nullptr) return nullptr;
    if (allocator == nullptr) allocator = LUMAllocatorGetDefault();
    void *memory = LUMAllocatorAllocate(allocator, static_cast<LUMIndex>(cls->instanceSize), 0);
    if (memory == nullptr) return nullptr;
    _LUMZeroMemory(memory, cls->instanceSize);
    if (!_LUMTypeInitializeInstance(memory, allocator, id)) {
        // No finalize runs, and the reference taken on the allocator during
        // initialisation is not given back: a failed initialiser leaves the
        // allocator one retain higher.
        LUMAllocatorDeallocate(allocator, memory);
        return nullptr;
    }
    return memory;
}

LUMTypeRef LUMRetain(LUMTypeRef obj)
{
    if (obj == nullptr || isConstant(obj)) return obj;
    header(obj)->retainCount++;
    return obj;
}

namespace {

/* Objects whose count reached zero while another object was being
 * finalised. Their own finalisation waits until the outermost release gets
 * to it, so that freeing a deeply nested tree (a document may nest a
 * hundred thousand levels) takes constant stack: a finalizer that releases
 * its children only queues them. */
struct PendingReleases {
    LUMTypeRef *objects;
    size_t count;
    size_t capacity;
};
PendingReleases __pendingReleases = {nullptr, 0, 0};
bool __releasing = false;

void queueForFinalization(LUMTypeRef obj)
{
    PendingReleases &pending = __pendingReleases;
    if (pending.count == pending.capacity) {
        pending.capacity = lum::doubledCapacity(pending.capacity, pending.count + 1);
        if (pending.capacity < 64) pending.capacity = 64;
        pending.objects = static_cast<LUMTypeRef *>(
            _LUMAllocatorReallocateMalloc(pending.objects, static_cast<UInt32>(pending.capacity * sizeof(LUMTypeRef)), 0, nullptr));
    }
    pending.objects[pending.count++] = obj;
}

/* Finalises an object whose count is zero and frees it, then gives back the
 * reference it held on its allocator: a loop, not recursion. */
void finalizeAndFree(LUMTypeRef obj)
{
    while (obj != nullptr) {
        LUMRuntimeBase *base = header(obj);
        const LUMRuntimeClass *cls = _LUMTypeGetClass(obj);
        if (cls != nullptr && cls->finalize != nullptr) cls->finalize(obj);
        if (base->retainCount != 0) return; // resurrected by its finalizer
        LUMAllocatorRef allocator = base->allocator;
        base->magic = _kLUMRuntimeMagicDead;
        LUMAllocatorDeallocate(allocator, const_cast<void *>(obj));
        // An allocator that allocated itself holds no reference on itself:
        // it was its own (still constant-looking) allocator when it retained.
        if (allocator == obj) return;
        obj = allocator;
        if (obj == nullptr || isConstant(obj) || --header(obj)->retainCount != 0) return;
    }
}

} // namespace

void LUMRelease(LUMTypeRef obj)
{
    if (obj == nullptr || isConstant(obj)) return;
    if (--header(obj)->retainCount != 0) return;
    if (__releasing) {
        queueForFinalization(obj);
        return;
    }
    __releasing = true;
    finalizeAndFree(obj);
    while (__pendingReleases.count > 0) {
        LUMTypeRef next = __pendingReleases.objects[--__pendingReleases.count];
        // A queued object that was retained again meanwhile is left alive.
        if (header(next)->retainCount == 0) finalizeAndFree(next);
    }
    __releasing = false;
}

LUMIndex LUMGetRetainCount(LUMTypeRef obj)
{
    if (obj == nullptr) return 0;
    if (isConstant(obj)) return 1;
    return header(obj)->retainCount;
}

LUMTypeID LUMGetTypeID(LUMTypeRef obj)
{
    return obj == nullptr ? 0 : header(obj)->typeID;
}

LUMAllocatorRef LUMGetAllocator(LUMTypeRef obj)
{
    if (obj == nullptr || header(obj)->allocator == nullptr) return _kLUMAllocatorConstant;
    return header(obj)->allocator;
}

LUMHashCode LUMHash(LUMTypeRef obj)
{
    if (obj == nullptr) return 0;
    const LUMRuntimeClass *cls = _LUMTypeGetClass(obj);
    if (cls == nullptr || cls->hash == nullptr) return static_cast<LUMHashCode>(reinterpret_cast<uintptr_t>(obj));
    return cls->hash(obj);
}

Boolean LUMEqual(LUMTypeRef a, LUMTypeRef b)
{
    if (a == b) return true;
    if (a == nullptr || b == nullptr) return false;
    if (header(a)->typeID != header(b)->typeID) return false;
    const LUMRuntimeClass *cls = _LUMTypeGetClass(a);
    if (cls == nullptr || cls->equal == nullptr) return false;
    return cls->equal(a, b);
}

LUMStringRef LUMCopyDescription(LUMTypeRef obj)
{
    const LUMRuntimeClass *cls = _LUMTypeGetClass(obj);
    if (cls == nullptr) return LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("<%p>"), obj);
    if (cls->copyDescription != nullptr) return cls->copyDescription(obj);
    return LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("<%p:%s retainCount=%ld>"), obj, cls->className,
                                     static_cast<long>(LUMGetRetainCount(obj)));
}

LUMStringRef LUMCopyTypeIDDescription(LUMTypeID id)
{
    const LUMRuntimeClass *cls = _LUMTypeGetClassByID(id);
    if (cls == nullptr) return LUMSTR("N/A");
    return LUMStringCreateWithCString(nullptr, cls->className, kLUMStringEncodingUTF8);
}

void LUMShow(LUMTypeRef obj)
{
    constexpr LUMIndex kShowBufferBytes = 10000;
    char buffer[kShowBufferBytes];
    LUMStringRef description = LUMCopyDescription(obj);
    LUMStringGetCString(description, buffer, kShowBufferBytes, kLUMStringEncodingUTF8);
    LUMRelease(description);
    puts(buffer);
}

LUMTypeRef LUMAutorelease(LUMTypeRef obj)
{
    if (obj == nullptr || isConstant(obj)) return obj;
    LUMRetain(obj);
    LUMAutoreleasePoolRef pool = _LUMAutoreleasePoolGetCurrent();
    if (pool != nullptr) {
        // The pool takes over the caller's reference; the retain above only
        // kept the object alive across the hand-over.
        LUMAutoreleasePoolAddObject(pool, obj);
    } else {
        // Nobody will give the caller's reference back: the leak is
        // announced rather than hidden.
        LUMLog(5, LUMSTR("No autorelease pool active, will leak memory: %@"), obj);
    }
    LUMRelease(obj);
    return obj;
}

LUMRange LUMRangeMake(LUMIndex location, LUMIndex length)
{
    LUMRange range = {location, length};
    return range;
}

