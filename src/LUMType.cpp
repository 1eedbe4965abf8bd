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

#include <LumBase/LUMArray.h>
#include <LumBase/LUMAutoreleasePool.h>
#include <LumBase/LUMDictionary.h>

#include <cstdio>

namespace {

constexpr int32_t kInitialClassTableCapacity = 32;

LUMRuntimeClass *__classTable = nullptr;
int32_t __classCount = 0;
int32_t __classTableCapacity = 0;

LUMRuntimeBase *header(LUMTypeRef obj) { return lum::object<LUMRuntimeBase>(obj); }

/* The class of a type ID, as _LUMTypeGetClassByID gives it, in place. */
inline const LUMRuntimeClass *classOf(LUMTypeID id)
{
    if (id == 0 || id > static_cast<LUMTypeID>(__classCount)) return nullptr;
    return &__classTable[id - 1];
}

/* What LUMGetAllocator(obj) == _kLUMAllocatorConstant says, read in place
 * (this runs on every retain and release). */
bool isConstant(LUMTypeRef obj)
{
    LUMAllocatorRef allocator = header(obj)->allocator;
    return allocator == nullptr || allocator == _kLUMAllocatorConstant;
}

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

const LUMRuntimeClass *(_LUMTypeGetClassByID)(LUMTypeID id) { return classOf(id); }

const LUMRuntimeClass *(_LUMTypeGetClass)(LUMTypeRef obj)
{
    if (obj == nullptr || header(obj)->magic != _kLUMRuntimeMagicAlive) return nullptr;
    return classOf(header(obj)->typeID);
}

Boolean (_LUMTypeCheckValid)(LUMTypeRef obj, LUMTypeID id)
{
    if (obj == nullptr || header(obj)->magic != _kLUMRuntimeMagicAlive) return false;
    return id == 0 || header(obj)->typeID == id;
}

namespace {

/* The header of a new instance of cls, then the class's initializer. */
inline Boolean initializeInstance(LUMTypeRef memory, LUMAllocatorRef allocator, LUMTypeID id, const LUMRuntimeClass *cls)
{
    LUMRuntimeBase *base = header(memory);
    base->magic = _kLUMRuntimeMagicAlive;
    base->typeID = id;
    base->retainCount = 1;
    base->allocator = nullptr; // caller memory need not be cleared
    // Retain before storing: while the field is still zero the object counts
    // as constant, which lets an allocator be its own allocator without
    // holding a reference to itself.
    base->allocator = isConstant(allocator) ? allocator : static_cast<LUMAllocatorRef>(LUMRetain(allocator));
    return cls->initialize != nullptr ? cls->initialize(memory) : true;
}

} // namespace

Boolean (_LUMTypeInitializeInstance)(LUMTypeRef memory, LUMAllocatorRef allocator, LUMTypeID id)
{
    if (allocator == nullptr) allocator = LUMAllocatorGetDefault();
    const LUMRuntimeClass *cls = _LUMTypeGetClassByID(id);
    if (cls == nullptr) return false;
    return initializeInstance(memory, allocator, id, cls);
}

LUMTypeRef (_LUMTypeCreateInstance)(LUMAllocatorRef allocator, LUMTypeID id) { return lum::createInstance(allocator, id, 0); }

LUMTypeRef lum::createInstance(LUMAllocatorRef allocator, LUMTypeID id, size_t extraBytes)
{
    const LUMRuntimeClass *cls = classOf(id);
    if (cls == nullptr) return nullptr;
    if (allocator == nullptr) allocator = LUMAllocatorGetDefault();
    size_t bytes = cls->instanceSize + extraBytes;
    if (bytes < extraBytes || bytes > static_cast<size_t>(INT32_MAX)) return nullptr;
    // The library's own malloc allocator is called straight; any other
    // allocator through its context, as always.
    void *memory = allocator == kLUMAllocatorSystemDefault ? malloc(bytes) : LUMAllocatorAllocate(allocator, static_cast<LUMIndex>(bytes), 0);
    if (memory == nullptr) return nullptr;
    memset(memory, 0, cls->instanceSize); // the extra bytes are the caller's to fill
    if (!initializeInstance(memory, allocator, id, cls)) {
        // No finalize runs, and the reference taken on the allocator during
        // initialisation is not given back: a failed initialiser leaves the
        // allocator one retain higher.
        LUMAllocatorDeallocate(allocator, memory);
        return nullptr;
    }
    return memory;
}

LUMTypeRef (LUMRetain)(LUMTypeRef obj)
{
    if (obj == nullptr || isConstant(obj)) return obj;
    header(obj)->retainCount++;
    return obj;
}

namespace {

/* Release nests: a finalizer that drops another object's last reference
 * finalizes and frees it before its own LUMRelease returns, so callers see
 * objects go in the order their owners release them. Only below
 * kDirectReleaseDepth nested finalizations (far deeper than any ordinary
 * program nests objects) is the release deferred: it is queued as a
 * reference still owed and paid by the deepest direct release once its
 * finalizer returns. Freeing a tree a million levels deep thus takes a
 * bounded stack. A queued entry is one reference, not one object, so an
 * object retained and released again while queued is never freed twice. */
constexpr int32_t kDirectReleaseDepth = 1000;

struct DeferredReleases {
    LUMTypeRef *objects;
    size_t count;
    size_t capacity;
};
DeferredReleases __deferredReleases = {nullptr, 0, 0};
int32_t __releaseDepth = 0;

void deferRelease(LUMTypeRef obj)
{
    DeferredReleases &deferred = __deferredReleases;
    if (deferred.count == deferred.capacity) {
        size_t capacity = deferred.capacity < 64 ? 64 : deferred.capacity * 2;
        void *grown = _LUMAllocatorReallocateMalloc(deferred.objects, static_cast<UInt32>(capacity * sizeof(LUMTypeRef)), 0, nullptr);
        if (grown == nullptr) _LUMFatal(__func__, LUM_SOURCE_FILE, __LINE__, "Out of memory");
        deferred.objects = static_cast<LUMTypeRef *>(grown);
        deferred.capacity = capacity;
    }
    deferred.objects[deferred.count++] = obj;
}

/* Finalises an object whose count is zero and frees it, then gives back the
 * reference it held on its allocator: a loop, not recursion. */
void finalizeAndFree(LUMTypeRef obj)
{
    while (obj != nullptr) {
        LUMRuntimeBase *base = header(obj);
        const LUMRuntimeClass *cls = base->magic == _kLUMRuntimeMagicAlive ? classOf(base->typeID) : nullptr;
        if (cls != nullptr && cls->finalize != nullptr) cls->finalize(obj);
        if (base->retainCount != 0) return; // resurrected by its finalizer
        LUMAllocatorRef allocator = base->allocator;
        base->magic = _kLUMRuntimeMagicDead;
        if (allocator == kLUMAllocatorSystemDefault) free(const_cast<void *>(obj));
        else LUMAllocatorDeallocate(allocator, const_cast<void *>(obj));
        // An allocator that allocated itself holds no reference on itself:
        // it was its own (still constant-looking) allocator when it retained.
        if (allocator == obj) return;
        obj = allocator;
        if (obj == nullptr || isConstant(obj) || --header(obj)->retainCount != 0) return;
    }
}

/* The innermost hold first; see lum::FinalizationHold. */
lum::FinalizationHold *__finalizationHolds = nullptr;

/* Decrements the count; true when the object is to be finalised now. An
 * object whose count reaches zero under a hold waits for the hold's end. */
bool dropReference(LUMTypeRef obj)
{
    if (--header(obj)->retainCount != 0) return false;
    for (lum::FinalizationHold *hold = __finalizationHolds; hold != nullptr; hold = hold->outer) {
        if (hold->object == obj) {
            hold->finalizationDue = true;
            return false;
        }
    }
    return true;
}

} // namespace

void lum::beginFinalizationHold(FinalizationHold &hold, LUMTypeRef obj)
{
    hold.object = obj;
    hold.finalizationDue = false;
    hold.outer = __finalizationHolds;
    __finalizationHolds = &hold;
}

void lum::endFinalizationHold(FinalizationHold &hold)
{
    __finalizationHolds = hold.outer;
    if (hold.finalizationDue && header(hold.object)->retainCount == 0) {
        // The release that was held back, now taken as it would have been
        // (an outer hold of the same object holds it again).
        header(hold.object)->retainCount = 1;
        LUMRelease(hold.object);
    }
}

void (LUMRelease)(LUMTypeRef obj)
{
    if (obj == nullptr || isConstant(obj)) return;
    if (__releaseDepth >= kDirectReleaseDepth) {
        deferRelease(obj);
        return;
    }
    if (!dropReference(obj)) return;
    __releaseDepth++;
    size_t owedBefore = __deferredReleases.count;
    finalizeAndFree(obj);
    // Pay what the finalizers below this depth left owing (more may be
    // queued meanwhile; they are paid here too, on this same stack depth).
    while (__deferredReleases.count > owedBefore) {
        LUMTypeRef next = __deferredReleases.objects[--__deferredReleases.count];
        if (dropReference(next)) finalizeAndFree(next);
    }
    __releaseDepth--;
}

LUMIndex (LUMGetRetainCount)(LUMTypeRef obj)
{
    if (obj == nullptr) return 0;
    if (isConstant(obj)) return 1;
    return header(obj)->retainCount;
}

LUMTypeID (LUMGetTypeID)(LUMTypeRef obj)
{
    return obj == nullptr ? 0 : header(obj)->typeID;
}

LUMAllocatorRef (LUMGetAllocator)(LUMTypeRef obj)
{
    if (obj == nullptr || header(obj)->allocator == nullptr) return _kLUMAllocatorConstant;
    return header(obj)->allocator;
}

LUMHashCode (LUMHash)(LUMTypeRef obj)
{
    if (obj == nullptr) return 0;
    const LUMRuntimeClass *cls = _LUMTypeGetClass(obj);
    if (cls == nullptr || cls->hash == nullptr) return static_cast<LUMHashCode>(reinterpret_cast<uintptr_t>(obj));
    return cls->hash(obj);
}

Boolean (LUMEqual)(LUMTypeRef a, LUMTypeRef b)
{
    if (a == b) return true;
    if (a == nullptr || b == nullptr) return false;
    if (header(a)->typeID != header(b)->typeID) return false;
    const LUMRuntimeClass *cls = _LUMTypeGetClass(a);
    if (cls == nullptr || cls->equal == nullptr) return false;
    return cls->equal(a, b);
}

namespace {

const lum::ContainerComparison *comparisonOf(LUMTypeRef obj)
{
    LUMTypeID type = LUMGetTypeID(obj);
    if (type == LUMArrayGetTypeID()) return &lum::kArrayComparison;
    if (type == LUMDictionaryGetTypeID()) return &lum::kDictionaryComparison;
    return nullptr;
}

/* Whether LUMEqual(a, b) would go on into a container comparison. */
const lum::ContainerComparison *opensAsContainer(LUMTypeRef a, LUMTypeRef b)
{
    if (_LUMTypeGetClass(a) == nullptr || LUMGetTypeID(a) != LUMGetTypeID(b)) return nullptr;
    return comparisonOf(a);
}

class ComparisonStack {
public:
    ComparisonStack() = default;
    ~ComparisonStack() { if (frames_ != local_) free(frames_); }
    ComparisonStack(const ComparisonStack &) = delete;
    ComparisonStack &operator=(const ComparisonStack &) = delete;

    struct Frame {
        LUMTypeRef a;
        LUMTypeRef b;
        const lum::ContainerComparison *how;
        LUMIndex next;
        LUMIndex steps;
    };

    /* Opens a pair; false when it is unequal before any step. Sets
     * outOfMemory instead when the stack cannot grow. */
    bool open(LUMTypeRef a, LUMTypeRef b, const lum::ContainerComparison *how)
    {
        if (depth_ == capacity_ && !grow()) {
            outOfMemory = true;
            return true;
        }
        LUMIndex steps = how->steps(a, b);
        if (steps < 0) return false;
        frames_[depth_++] = Frame{a, b, how, 0, steps};
        return true;
    }
    Frame *top() { return depth_ > 0 ? &frames_[depth_ - 1] : nullptr; }
    void close() { depth_--; }
    bool outOfMemory = false;

private:
    bool grow()
    {
        size_t capacity = capacity_ * 2;
        void *grown = frames_ == local_ ? malloc(capacity * sizeof(Frame)) : realloc(frames_, capacity * sizeof(Frame));
        if (grown == nullptr) return false;
        if (frames_ == local_) memcpy(grown, local_, sizeof(local_));
        frames_ = static_cast<Frame *>(grown);
        capacity_ = capacity;
        return true;
    }
    static constexpr size_t kLocalFrames = 16;
    Frame local_[kLocalFrames];
    Frame *frames_ = local_;
    size_t depth_ = 0;
    size_t capacity_ = kLocalFrames;
};

} // namespace

bool lum::equalContainers(LUMTypeRef a, LUMTypeRef b)
{
    ComparisonStack stack;
    if (!stack.open(a, b, comparisonOf(a))) return false;
    if (stack.outOfMemory) return false; // not even the first frame: nothing compared
    while (ComparisonStack::Frame *top = stack.top()) {
        if (top->next == top->steps) {
            stack.close();
            continue;
        }
        lum::ComparisonStep step = top->how->step(top->a, top->b, top->next++);
        // The element rule: identity, then the equal callback when both exist.
        if (step.a == step.b) continue;
        if (step.a == nullptr || step.b == nullptr || step.equal == nullptr) return false;
        const lum::ContainerComparison *how = step.equal == LUMEqual ? opensAsContainer(step.a, step.b) : nullptr;
        if (how != nullptr) {
            if (!stack.open(step.a, step.b, how)) return false;
            if (!stack.outOfMemory) continue;
            stack.outOfMemory = false; // no room to go on iteratively: recurse for this pair
        }
        if (!step.equal(step.a, step.b)) return false;
    }
    return true;
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

/* Hidden aliases for calls from inside the library (see LUMPrivate.h). */
LUM_DEFINE_LOCAL(LUMRetain)
LUM_DEFINE_LOCAL(LUMRelease)
LUM_DEFINE_LOCAL(LUMGetAllocator)
LUM_DEFINE_LOCAL(LUMGetTypeID)
LUM_DEFINE_LOCAL(LUMGetRetainCount)
LUM_DEFINE_LOCAL(LUMEqual)
LUM_DEFINE_LOCAL(LUMHash)
LUM_DEFINE_LOCAL(_LUMTypeGetClassByID)
LUM_DEFINE_LOCAL(_LUMTypeGetClass)
LUM_DEFINE_LOCAL(_LUMTypeCheckValid)
LUM_DEFINE_LOCAL(_LUMTypeCreateInstance)
LUM_DEFINE_LOCAL(_LUMTypeInitializeInstance)
