/* json_check.c — reads a JSON document from standard input with the
 * library's reader and checks it is an object holding the given key (and,
 * optionally, value). Prints the document's description.
 *
 *   json_check key [expected-value]
 *
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <stdio.h>

int main(int argc, char **argv)
{
    LUMMutableDataRef input;
    UInt8 buffer[4096];
    size_t n;
    LUMPropertyListRef document;
    LUMStringRef key, expected;
    LUMTypeRef value;
    int ok;

    if (argc < 2 || !LUMInitialize(1, argv)) return 2;
    input = LUMDataCreateMutable(NULL, 0);
    while ((n = fread(buffer, 1, sizeof(buffer), stdin)) > 0) LUMDataAppendBytes(input, buffer, (LUMIndex)n);
    document = LUMPropertyListCreateWithData(NULL, input, 0, NULL, NULL);
    LUMShow(document);
    key = LUMStringCreateWithCString(NULL, argv[1], kLUMStringEncodingUTF8);
    ok = LUMPropertyListIsValid(document, kLUMPropertyListJSONFormat);
    value = ok ? LUMDictionaryGetValue((LUMDictionaryRef)document, key) : NULL;
    ok = ok && value != NULL;
    if (ok && argc > 2) {
        expected = LUMStringCreateWithCString(NULL, argv[2], kLUMStringEncodingUTF8);
        ok = LUMEqual(value, expected);
        LUMRelease(expected);
    }
    printf("%s\n", ok ? "json_check: ok" : "json_check: FAILED");
    LUMRelease(key);
    LUMRelease(document);
    LUMRelease(input);
    return ok ? 0 : 1;
}
