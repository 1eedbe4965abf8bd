/* json_paths_fuzz.cpp — a libFuzzer target for the JSON reader's two ways of
 * reading: with the system allocator it reads into a private buffer, taking
 * whole pieces and runs at once; with any other allocator it reads byte by
 * byte through the calls that allocator sees. The first input byte cuts the
 * rest into reads of that many bytes (0: one read); both ways must give
 * the very same tree, retain counts and slot order included.
 * Build and run with scripts/fuzz. Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

#include "../support/LUMShapeReading.h"

namespace {

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
    std::vector<size_t> splits;
    for (size_t at = step; step > 0 && at < text.size(); at += step) splits.push_back(at);
    if (lumtest::ReadShapeWith(kLUMAllocatorSystemDefault, text, splits) != lumtest::ReadShapeWith(WatchedAllocator(), text, splits))
        lumfuzz::Finding("the two ways of reading gave different trees");
    return 0;
}
