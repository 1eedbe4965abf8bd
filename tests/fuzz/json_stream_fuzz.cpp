/* json_stream_fuzz.cpp — the JSON reader fed through a stream in chunk sizes
 * the fuzzer chooses: whatever the chunking it must never crash or leak, and
 * whatever it returns must be writable and describable.
 * Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

namespace {

struct Chunks {
    std::vector<size_t> sizes;
    std::string text;
    size_t position = 0;
    size_t next = 0;
};

Boolean hasBytes(LUMReadStreamRef, void *info)
{
    auto *c = static_cast<Chunks *>(info);
    return c->position < c->text.size();
}

LUMIndex readChunk(LUMReadStreamRef, UInt8 *buffer, LUMIndex length, void *info)
{
    auto *c = static_cast<Chunks *>(info);
    size_t want = c->sizes.empty() ? 1 : c->sizes[c->next++ % c->sizes.size()];
    if (want > static_cast<size_t>(length)) want = static_cast<size_t>(length);
    if (want > c->text.size() - c->position) want = c->text.size() - c->position;
    memcpy(buffer, c->text.data() + c->position, want);
    c->position += want;
    return static_cast<LUMIndex>(want);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    lumfuzz::Input input(bytes, size);
    Chunks chunks;
    for (unsigned n = input.below(8) + 1; n > 0; n--) chunks.sizes.push_back(input.byte() % 64 + 1 + (input.below(4) == 0 ? 1000 : 0));
    chunks.text = input.rest();
    if (lumfuzz::HoldsUnicodeEscape(chunks.text)) {
        if (chunks.text.size() > lumfuzz::kReaderChunkBytes) chunks.text.resize(lumfuzz::kReaderChunkBytes);
        chunks.sizes.assign(1, lumfuzz::kReaderChunkBytes);
    }
    LUMReadStreamContext context = {};
    context.info = &chunks;
    context.hasBytesAvailable = hasBytes;
    context.read = readChunk;
    LUMReadStreamRef stream = _LUMReadStreamCreateWithContext(nullptr, &context);
    LUMPropertyListRef plist = LUMPropertyListCreateWithStream(nullptr, stream, 0, 0, nullptr, nullptr);
    if (plist != nullptr) {
        LUMDataRef written = LUMPropertyListCreateData(nullptr, plist, kLUMPropertyListJSONFormat, 0, nullptr);
        LUMStringRef description = LUMCopyDescription(plist);
        LUMRelease(description);
        LUMRelease(written);
        LUMRelease(plist);
    }
    LUMRelease(stream);
    return 0;
}
