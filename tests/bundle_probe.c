/* bundle_probe.c — prints what the main bundle made of its command line:
 * the executable, the resources directory and the resource img.png, all
 * resolved. The tests run it with different command lines.
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <stdio.h>

static void show(const char *label, LUMURLRef url)
{
    UInt8 path[1024];
    if (!LUMURLGetFileSystemRepresentation(url, 1, path, (LUMIndex)sizeof(path))) path[0] = '\0';
    printf("%s=%s\n", label, (const char *)path);
}

int main(int argc, char **argv)
{
    LUMBundleRef bundle;
    LUMURLRef image;
    LUMURLRef resources;

    if (!LUMInitialize(argc, argv)) return 1;
    bundle = LUMBundleGetMain();
    image = LUMBundleCopyResourceURL(bundle, LUMSTR("img"), LUMSTR("png"), NULL);
    resources = LUMURLGetBaseURL(image);
    show("res", resources);
    show("img", image);
    LUMRelease(image);
    return 0;
}
