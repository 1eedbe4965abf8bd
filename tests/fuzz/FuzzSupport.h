/* FuzzSupport.h — what LumBase's libFuzzer targets share: start-up once, and
 * a reader that takes choices and pieces from the fuzzer's bytes. A target
 * passes the library only what its contract allows (programming errors end
 * in assertions on purpose and are not findings). Part of LumBase; MIT licence. */
#ifndef LUMBASE_TESTS_FUZZ_SUPPORT_H
#define LUMBASE_TESTS_FUZZ_SUPPORT_H

#include <LumBase.h>
#include <LumBase/LUMInternal.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace lumfuzz {

inline void Start()
{
    static bool started = LUMInitialize(0, nullptr);
    (void)started;
}

/* Ends the run as a finding, with a message on standard error. */
[[noreturn]] inline void Finding(const char *what)
{
    fprintf(stderr, "FINDING: %s\n", what);
    abort();
}

class Input {
public:
    Input(const uint8_t *bytes, size_t size) : bytes_(bytes), size_(size) {}
    bool empty() const { return at_ >= size_; }
    size_t left() const { return size_ - at_; }
    uint8_t byte() { return at_ < size_ ? bytes_[at_++] : 0; }
    /* A number in [0, bound). */
    unsigned below(unsigned bound) { return bound == 0 ? 0 : byte() % bound; }
    /* Up to max bytes, as a string (may hold any byte). */
    std::string take(size_t max)
    {
        size_t n = max < left() ? max : left();
        std::string out(reinterpret_cast<const char *>(bytes_ + at_), n);
        at_ += n;
        return out;
    }
    /* A piece whose length is the next byte (bounded by what is left). */
    std::string piece() { return take(byte()); }
    std::string rest() { return take(left()); }

private:
    const uint8_t *bytes_;
    size_t size_;
    size_t at_ = 0;
};

/* The compatible JSON reader may end the process through an assertion when
 * a \u escape is split across the chunks it reads (kept on purpose and
 * documented): a failing byte drops the rest of its chunk, so a backslash
 * can meet a 'u' from a later chunk. Text holding a backslash is therefore
 * read in one chunk only. */
constexpr size_t kReaderChunkBytes = 1024;
inline bool HoldsUnicodeEscape(const std::string &text) { return text.find('\\') != std::string::npos; }

/* A byte-form string of the bytes as they are (invalid UTF-8 included). */
inline LUMStringRef BytesString(const std::string &bytes)
{
    return LUMStringCreateWithBytes(nullptr, reinterpret_cast<const UInt8 *>(bytes.data()), static_cast<LUMIndex>(bytes.size()),
                                    kLUMStringEncodingUTF8);
}

/* A unit-form string of the bytes taken two at a time. */
inline LUMStringRef UnitString(const std::string &bytes)
{
    std::vector<UniChar> units(bytes.size() / 2);
    for (size_t i = 0; i < units.size(); i++)
        units[i] = static_cast<UniChar>(static_cast<uint8_t>(bytes[2 * i]) | static_cast<uint8_t>(bytes[2 * i + 1]) << 8);
    return LUMStringCreateWithCharacters(nullptr, units.data(), static_cast<LUMIndex>(units.size()));
}

/* The units of a string. */
inline std::u16string Units(LUMStringRef str)
{
    LUMIndex length = LUMStringGetLength(str);
    std::vector<UniChar> units(static_cast<size_t>(length) + 1);
    LUMStringGetCharacters(str, LUMRangeMake(0, length), units.data());
    return std::u16string(units.begin(), units.begin() + length);
}

} // namespace lumfuzz

#endif
