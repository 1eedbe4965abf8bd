/* search_fuzz.cpp — find, prefix, suffix, comparison, replace and split of
 * arbitrary strings, compared with a plain reference over their units.
 * Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

#include <algorithm>

namespace {

char16_t Upper(char16_t u) { return (u >= 'a' && u <= 'z') ? static_cast<char16_t>(u - 0x20) : u; }

int ReferenceCompare(const std::u16string &a, const std::u16string &b, bool caseInsensitive)
{
    for (size_t i = 0; i < a.size() && i < b.size(); i++) {
        char16_t x = caseInsensitive ? Upper(a[i]) : a[i], y = caseInsensitive ? Upper(b[i]) : b[i];
        if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    lumfuzz::Input input(bytes, size);
    bool unitForm = input.below(2) == 1;
    std::string patternBytes = input.take(input.below(12));
    std::string textBytes = input.rest();
    LUMStringRef text = unitForm ? lumfuzz::UnitString(textBytes) : lumfuzz::BytesString(textBytes);
    LUMStringRef pattern = lumfuzz::BytesString(patternBytes);
    std::u16string t = lumfuzz::Units(text), p = lumfuzz::Units(pattern);

    // Finding, forwards and backwards (the whole range; a longer pattern
    // "matches" without a range by contract, so only shorter ones are checked).
    if (p.size() <= t.size()) {
        LUMRange found = LUMStringFind(text, pattern, 0);
        size_t at = t.find(p);
        LUMIndex expected = at == std::u16string::npos ? kLUMNotFound : static_cast<LUMIndex>(at);
        if (found.location != expected) lumfuzz::Finding("find differs");
        found = LUMStringFind(text, pattern, kLUMCompareBackwards);
        at = t.rfind(p);
        expected = at == std::u16string::npos ? kLUMNotFound : static_cast<LUMIndex>(at);
        if (found.location != expected) lumfuzz::Finding("backwards find differs");
    }
    bool prefix = p.size() <= t.size() && std::equal(p.begin(), p.end(), t.begin());
    bool suffix = p.size() <= t.size() && std::equal(p.rbegin(), p.rend(), t.rbegin());
    if (LUMStringHasPrefix(text, pattern) != prefix) lumfuzz::Finding("prefix differs");
    if (LUMStringHasSuffix(text, pattern) != suffix) lumfuzz::Finding("suffix differs");
    if (LUMStringCompare(text, pattern, 0) != ReferenceCompare(t, p, false)) lumfuzz::Finding("compare differs");
    if (LUMStringCompare(text, pattern, kLUMCompareCaseInsensitive) != ReferenceCompare(t, p, true))
        lumfuzz::Finding("case-insensitive compare differs");

    // Replacing a range with the pattern.
    LUMMutableStringRef edited = LUMStringCreateMutableCopy(nullptr, 0, text);
    size_t location = t.empty() ? 0 : input.below(256) % (t.size() + 1);
    size_t length = std::min<size_t>(t.size() - location, p.size());
    LUMStringReplace(edited, LUMRangeMake(static_cast<LUMIndex>(location), static_cast<LUMIndex>(length)), pattern);
    std::u16string replaced = t;
    replaced.replace(location, length, p);
    if (lumfuzz::Units(edited) != replaced) lumfuzz::Finding("replace differs");
    LUMRelease(edited);

    // Splitting, within its contract: a non-empty separator found at most
    // once, in a text at least as long as it, whose rest after the separator
    // is empty or again at least as long (a shorter rest "matches" without a
    // range, and the piece length that follows ends in the assertion).
    size_t first = p.empty() ? std::u16string::npos : t.find(p);
    bool once = first == std::u16string::npos || t.find(p, first + p.size()) == std::u16string::npos;
    size_t rest = first == std::u16string::npos ? 0 : t.size() - (first + p.size());
    if (!p.empty() && p.size() <= t.size() && once && (rest == 0 || rest >= p.size())) {
        LUMArrayRef pieces = LUMStringCreateArrayBySeparatingStrings(text, pattern);
        LUMIndex expected = first == std::u16string::npos ? 1 : 2;
        if (LUMArrayGetCount(pieces) != expected) lumfuzz::Finding("split count differs");
        LUMRelease(pieces);
    }
    LUMRelease(text);
    LUMRelease(pattern);
    return 0;
}
