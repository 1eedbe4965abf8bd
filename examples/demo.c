/* demo.c — a first look at LumBase: strings, formatting with %@, numbers of
 * the C library's kinds, collections and their descriptions.
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

int main(int argc, char **argv)
{
    LUMStringRef greeting;
    LUMMutableDictionaryRef info;
    LUMMutableArrayRef names;
    LUMMutableStringRef sentence;

    if (!LUMInitialize(argc, argv)) return 1;

    greeting = LUMStringCreateWithCString(NULL, "Hello from LumBase", kLUMStringEncodingUTF8);
    LUMPrint(LUMSTR("%@!\n"), greeting);
    LUMPrint(LUMSTR("integers %d, %5d|, %-5d|, %x, %o; %d%%\n"), 42, 42, 42, 255, 8, 100);
    LUMPrint(LUMSTR("doubles %f, %.2f, %e, %g\n"), 3.14159, 3.14159, 12345.678, 0.5);
    LUMPrint(LUMSTR("positions: %2$@ comes after %1$d\n"), 7, LUMSTR("this text"));

    names = LUMArrayCreateMutable(NULL, 0, &kLUMTypeArrayCallBacks);
    LUMArrayAppendValue(names, LUMSTR("alpha"));
    LUMArrayAppendValue(names, LUMSTR("beta"));
    info = LUMDictionaryCreateMutable(NULL, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    LUMDictionarySetValue(info, LUMSTR("greeting"), greeting);
    LUMDictionarySetValue(info, LUMSTR("names"), names);
    LUMPrint(LUMSTR("array: %@\n"), names);
    LUMPrint(LUMSTR("dictionary: %@\n"), info);
    LUMPrint(LUMSTR("null: %@\nboolean: %@\n"), kLUMNull, kLUMBooleanTrue);

    sentence = LUMStringCreateMutableCopy(NULL, 0, greeting);
    LUMStringReplace(sentence, LUMRangeMake(0, 5), LUMSTR("Goodbye"));
    LUMStringAppendFormat(sentence, NULL, LUMSTR(" (%d characters)"), (int)LUMStringGetLength(sentence));
    LUMShow(sentence);

    /* Data files come from the main bundle: Resources beside the program. */
    {
        LUMURLRef url = LUMBundleCopyResourceURL(LUMBundleGetMain(), LUMSTR("demo"), LUMSTR("json"), NULL);
        LUMDataRef bytes = NULL;
        if (LUMURLCreateDataAndPropertiesFromResource(NULL, url, &bytes, NULL, NULL, NULL)) {
            LUMPropertyListRef document = LUMPropertyListCreateWithData(NULL, bytes, 0, NULL, NULL);
            LUMPrint(LUMSTR("Resources/demo.json: %@\n"), document);
            LUMRelease(document);
        } else {
            LUMPrint(LUMSTR("no Resources/demo.json beside the program (%@)\n"), url);
        }
        LUMRelease(bytes);
        LUMRelease(url);
    }
    {
        LUMTimeZoneRef berlin = LUMTimeZoneCreateWithName(NULL, LUMSTR("Europe/Berlin"), 0);
        LUMDateFormatterRef formatter = LUMDateFormatterCreate(NULL, NULL, 0, 0);
        LUMStringRef when;
        LUMDateFormatterSetFormat(formatter, LUMSTR("yyyy-MM-dd HH:mm:ss"));
        LUMDateFormatterSetProperty(formatter, kLUMDateFormatterTimeZone, berlin);
        when = LUMDateFormatterCreateStringWithAbsoluteTime(NULL, formatter, LUMAbsoluteTimeGetCurrent());
        LUMPrint(LUMSTR("now in %@: %@ (UTC%+d h)\n"), LUMTimeZoneGetName(berlin), when,
                 (int)(LUMTimeZoneGetSecondsFromGMT(berlin, LUMAbsoluteTimeGetCurrent()) / 3600));
        LUMRelease(when);
        LUMRelease(formatter);
        LUMRelease(berlin);
    }

    LUMRelease(sentence);
    LUMRelease(info);
    LUMRelease(names);
    LUMRelease(greeting);
    return 0;
}
