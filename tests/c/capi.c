/* capi.c — a C99 user of LumBase: proves the headers are C and that the
 * formatting basics give the documented texts.
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <stdio.h>
#include <string.h>

static int failures = 0;

static void expect(LUMStringRef str, const char *expected)
{
    char buffer[256];
    LUMStringGetCString(str, buffer, (LUMIndex)sizeof(buffer), kLUMStringEncodingUTF8);
    if (strcmp(buffer, expected) != 0) {
        printf("expected \"%s\", got \"%s\"\n", expected, buffer);
        failures++;
    }
    LUMRelease(str);
}

int main(int argc, char **argv)
{
    LUMStringRef name;
    LUMMutableDictionaryRef dictionary;

    if (!LUMInitialize(argc, argv)) {
        printf("LUMInitialize failed\n");
        return 1;
    }
    name = LUMStringCreateWithCString(NULL, "LumBase", kLUMStringEncodingUTF8);
    expect(LUMStringCreateWithFormat(NULL, NULL, LUMSTR("%@"), name), "LumBase");
    expect(LUMStringCreateWithFormat(NULL, NULL, LUMSTR("%d%%"), 5), "5%");
    expect(LUMStringCreateWithFormat(NULL, NULL, LUMSTR("%5.2f"), 3.14159), " 3.14");
    expect(LUMStringCreateWithFormat(NULL, NULL, LUMSTR("%2$@ %1$d"), 3, name), "LumBase 3");

    dictionary = LUMDictionaryCreateMutable(NULL, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    LUMDictionarySetValue(dictionary, LUMSTR("name"), name);
    if (LUMDictionaryGetValue(dictionary, LUMSTR("name")) != name || LUMGetRetainCount(name) != 2) {
        printf("dictionary lookup failed\n");
        failures++;
    }
    LUMRelease(dictionary);
    if (LUMGetRetainCount(name) != 1) failures++;
    LUMRelease(name);

    if (failures == 0) printf("all C API checks passed\n");
    return failures == 0 ? 0 : 1;
}
