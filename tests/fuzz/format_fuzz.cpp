/* format_fuzz.cpp — the formatting engine over format text built from the
 * fuzzer's bytes and one fixed, well-typed argument list. Every conversion
 * names its argument's position and a conversion of that argument's type;
 * widths and precisions are short literals or come from the int arguments;
 * at most ten '%' in all (more is an assertion by contract).
 * Part of LumBase; MIT licence. */
#include "FuzzSupport.h"

namespace {

/* Arguments 1 to 7: int, C string, object, int, long, pointer, double (the
 * double last, so that no unused position before it is fetched as a word). */
const char *const kIntegerConversions = "diouxX";
const char *const kDoubleConversions = "eEfFgGaA";
const char *const kSkipped = "cnjztqLCS";
const char *const kFlags = "-+ #0";

std::string Conversion(lumfuzz::Input &input)
{
    static const int kPositions[] = {1, 2, 3, 4, 5, 6, 7};
    int position = kPositions[input.below(7)];
    std::string out = "%" + std::to_string(position) + "$";
    for (unsigned n = input.below(3); n > 0; n--) out += kFlags[input.below(5)];
    switch (input.below(3)) { // width
    case 1: out += std::to_string(input.below(40) + 1); break;
    case 2: out += input.below(2) ? "*1$" : "*4$"; break;
    default: break;
    }
    switch (input.below(3)) { // precision
    case 1: out += "." + std::to_string(input.below(30)); break;
    case 2: out += input.below(2) ? ".*1$" : ".*4$"; break;
    default: break;
    }
    if (input.below(4) == 0) out += kSkipped[input.below(9)]; // skipped, not an error
    switch (position) {
    case 1:
    case 4:
        out += std::string(input.below(4), 'h') + kIntegerConversions[input.below(6)];
        break;
    case 5: out += std::string(input.below(2) + 1, 'l') + kIntegerConversions[input.below(6)]; break;
    case 2: out += 's'; break;
    case 3: out += '@'; break;
    case 6: out += 'p'; break;
    default: out += kDoubleConversions[input.below(8)]; break;
    }
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    lumfuzz::Start();
    lumfuzz::Input input(bytes, size);
    std::string format;
    int percents = 0;
    while (!input.empty()) {
        unsigned kind = input.below(4);
        if (kind == 0 && percents + 2 <= 10) {
            format += "%%";
            percents += 2;
        } else if (kind == 1 && percents + 1 <= 10) {
            format += Conversion(input);
            percents++;
        } else {
            std::string literal = input.take(input.below(8));
            // ASCII only: an overlong UTF-8 sequence could decode to '%'.
            for (char c : literal) {
                if (c != '%' && c > 0) format += c;
            }
        }
    }
    if (percents < 10 && size % 5 == 0) format += "%"; // a conversion cut short by the end
    LUMStringRef formatString = lumfuzz::BytesString(format);
    LUMStringRef object = LUMSTR("object");
    int value = 42;
    LUMStringRef result = LUMStringCreateWithFormat(nullptr, nullptr, formatString, value, "text", object, -7, 123456789L,
                                                    static_cast<const void *>(&value), -2.5);
    LUMMutableStringRef appended = LUMStringCreateMutable(nullptr, 0);
    LUMStringAppendFormat(appended, nullptr, formatString, value, "text", object, -7, 123456789L, static_cast<const void *>(&value), -2.5);
    if (!LUMEqual(result, appended)) lumfuzz::Finding("create and append differ");
    LUMRelease(appended);
    LUMRelease(result);
    LUMRelease(formatString);
    return 0;
}
