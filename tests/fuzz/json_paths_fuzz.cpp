/* json_paths_fuzz.cpp — a libFuzzer target for the JSON reader's two ways of
 * reading: with the system allocator it reads into a private buffer, taking
 * whole pieces and runs at once; with any other allocator it reads byte by
 * byte through the calls that allocator sees. The first input byte cuts the
 * rest into reads of that many bytes (0: one read); both ways must give
 * the very same tree, retain counts and slot order included.
 * Build and run with scripts/fuzz. Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

#include "../support/LUMExactShape.h"

namespace {

struct Reads {
    std::string text;
    size_t step;
    size_t at;
};

LUMReadStreamRef CreateCutStream(LUMAllocatorRef allocator, Reads &reads)
{
    LUMReadStreamContext context = {};
    context.info = &reads;
    context.hasBytesAvailable = [](LUMReadStreamRef, void *info) -> Boolean {
        auto *r = static_cast<Reads *>(info);
        return r->at < r->text.size();
    };
    context.read = [](LUMReadStreamRef, UInt8 *buffer, LUMIndex length, void *info) -> LUMIndex {
        auto *r = static_cast<Reads *>(info);
        size_t count = r->text.size() - r->at;
        if (r->step > 0 && count > r->step) count = r->step;
        if (count > static_cast<size_t>(length)) count = static_cast<size_t>(length);
        memcpy(buffer, r->text.data() + r->at, count);
        r->at += count;
        return static_cast<LUMIndex>(count);
    };
    return _LUMReadStreamCreateWithContext(allocator, &context);
}

std::string ShapeReadWith(LUMAllocatorRef allocator, const std::string &text, size_t step)
{
    Reads reads{text, step, 0};
    LUMReadStreamRef stream = CreateCutStream(allocator, reads);
    LUMPropertyListRef plist = LUMPropertyListCreateWithStream(allocator, stream, 0, 0, nullptr, nullptr);
    std::string shape = lumtest::ExactShape(plist);
    LUMRelease(plist);
    LUMRelease(stream);
    return shape;
}

/* Another allocator over malloc: the reader then reads the observed way. */
LUMAllocatorRef WatchedAllocator()
{
    static LUMAllocatorRef allocator = [] {
        LUMAllocatorContext context = {};
        context.allocate = [](UInt32 size, LUMOptionFlags, void *) -> void * { return malloc(static_cast<size_t>(size)); };
        context.reallocate = [](void *block, UInt32 size, LUMOptionFlags, void *) -> void * { return realloc(block, static_cast<size_t>(size)); };
        context.deallocate = [](void *block, void *) { free(block); };
        return LUMAllocatorCreate(kLUMAllocatorSystemDefault, &context);
    }();
    return allocator;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    if (size == 0) return 0;
    size_t step = bytes[0] % 64;
    std::string text(reinterpret_cast<const char *>(bytes + 1), size - 1);
    // Escapes stay within one read of the reader's own size, as its contract asks.
    if (lumfuzz::HoldsUnicodeEscape(text)) {
        step = 0;
        if (text.size() > lumfuzz::kReaderChunkBytes) text.resize(lumfuzz::kReaderChunkBytes);
    }
    if (ShapeReadWith(kLUMAllocatorSystemDefault, text, step) != ShapeReadWith(WatchedAllocator(), text, step))
        lumfuzz::Finding("the two ways of reading gave different trees");
    return 0;
}
