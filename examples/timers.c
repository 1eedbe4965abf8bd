/* timers.c — a repeating timer and a one-shot timer on the run loop; the
 * loop runs until the fifth tick stops it.
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <stdio.h>

static int ticks = 0;

static void tick(LUMRunLoopTimerRef timer, void *info)
{
    LUMDateFormatterRef formatter = (LUMDateFormatterRef)info;
    LUMStringRef now = LUMDateFormatterCreateStringWithAbsoluteTime(NULL, formatter, LUMAbsoluteTimeGetCurrent());
    ticks++;
    LUMPrint(LUMSTR("tick %d at %@ (repeats every %.1f s)\n"), ticks, now, LUMRunLoopTimerGetInterval(timer));
    LUMRelease(now);
    if (ticks == 5) LUMRunLoopStop(LUMRunLoopGetCurrent());
}

static void once(LUMRunLoopTimerRef timer, void *info)
{
    (void)info;
    LUMPrint(LUMSTR("one-shot timer fired; repeats: %s\n"), LUMRunLoopTimerDoesRepeat(timer) ? "yes" : "no");
}

int main(int argc, char **argv)
{
    LUMDateFormatterRef formatter;
    LUMRunLoopTimerContext context = {0, NULL, NULL, NULL, NULL};
    LUMRunLoopTimerRef repeating, oneShot;
    LUMRunLoopRunResult result;

    if (!LUMInitialize(argc, argv)) return 1;
    formatter = LUMDateFormatterCreate(NULL, NULL, 0, 0);
    LUMDateFormatterSetFormat(formatter, LUMSTR("HH:mm:ss"));
    context.info = formatter;
    repeating = LUMRunLoopTimerCreate(NULL, LUMAbsoluteTimeGetCurrent() + 0.2, 0.2, 0, 0, tick, &context);
    oneShot = LUMRunLoopTimerCreate(NULL, LUMAbsoluteTimeGetCurrent() + 0.5, 0.0, 0, 0, once, NULL);
    LUMRunLoopAddTimer(LUMRunLoopGetCurrent(), repeating, kLUMRunLoopDefaultMode);
    LUMRunLoopAddTimer(LUMRunLoopGetCurrent(), oneShot, kLUMRunLoopCommonModes);

    result = LUMRunLoopRun();
    LUMPrint(LUMSTR("run loop returned %d (2: stopped); one-shot still valid: %s\n"), result,
             LUMRunLoopTimerIsValid(oneShot) ? "yes" : "no");

    LUMRunLoopTimerInvalidate(repeating);
    LUMRelease(repeating);
    LUMRelease(oneShot);
    LUMRelease(formatter);
    return 0;
}
