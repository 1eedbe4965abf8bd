/* LUMRunLoopTest.cpp — the run loop, its modes, sources and timers. Every
 * test runs in its own process, so each starts with a fresh loop. Timings
 * are short and asserted with wide slack; order and counts are exact.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"
#include "LUMRunLoopPrivate.h"

#include <cmath>
#include <cstdlib>
#include <regex>
#include <unistd.h>

using namespace lumtest;

namespace {

std::vector<std::string> gEvents;

struct Recorder {
    explicit Recorder(const char *n) : name(n) {}
    std::string name;
    int performs = 0;
    int schedules = 0;
    int cancels = 0;
    int releases = 0;
    std::vector<std::string> cancelModes;
};

void recordPerform(void *info)
{
    auto *r = static_cast<Recorder *>(info);
    r->performs++;
    gEvents.push_back(r->name);
}
void recordSchedule(void *info, LUMRunLoopRef, LUMStringRef) { static_cast<Recorder *>(info)->schedules++; }
void recordCancel(void *info, LUMRunLoopRef, LUMStringRef mode)
{
    auto *r = static_cast<Recorder *>(info);
    r->cancels++;
    r->cancelModes.push_back(Text(mode));
}
void recordRelease(const void *info) { const_cast<Recorder *>(static_cast<const Recorder *>(info))->releases++; }

LUMRunLoopSourceRef NewSource(Recorder *recorder, LUMIndex order, LUMIndex version = 0)
{
    LUMRunLoopSourceContext context = {version, recorder, nullptr, recordRelease, nullptr, nullptr, nullptr,
                                       recordSchedule, recordCancel, recordPerform};
    return LUMRunLoopSourceCreate(nullptr, order, &context);
}

struct TimerLog {
    explicit TimerLog(const char *n) : name(n) {}
    std::string name;
    int fires = 0;
    bool stopLoop = false;
};

void timerFired(LUMRunLoopTimerRef, void *info)
{
    auto *log = static_cast<TimerLog *>(info);
    log->fires++;
    gEvents.push_back(log->name);
    if (log->stopLoop) LUMRunLoopStop(LUMRunLoopGetCurrent());
}

LUMRunLoopTimerRef NewTimer(TimerLog *log, LUMTimeInterval fromNow, LUMTimeInterval interval, LUMIndex order = 0)
{
    LUMRunLoopTimerContext context = {0, log, nullptr, nullptr, nullptr};
    return LUMRunLoopTimerCreate(nullptr, LUMAbsoluteTimeGetCurrent() + fromNow, interval, 0, order, timerFired, &context);
}

LUMRunLoopRef RL() { return LUMRunLoopGetCurrent(); }

} // namespace

TEST(LUMRunLoop, UnknownModeFinishesAndIsNotCreated)
{
    LUMStringRef mode = LUMSTR("never used");
    EXPECT_EQ(LUMRunLoopRunInMode(mode, 1.0, false), kLUMRunLoopRunResultFinished);
    LUMArrayRef modes = LUMRunLoopCopyAllModes(RL());
    EXPECT_EQ(LUMArrayGetCount(modes), 2);
    LUMRelease(modes);
}

TEST(LUMRunLoop, FreshLoopHasTheCommonAndTheDefaultMode)
{
    LUMArrayRef modes = LUMRunLoopCopyAllModes(RL());
    ASSERT_EQ(LUMArrayGetCount(modes), 2);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(modes, 0))), "__kLUMRunLoopCommonModes__");
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(modes, 1))), "__kLUMRunLoopDefaultMode__");
    LUMRelease(modes);
    EXPECT_EQ(RL(), LUMRunLoopGetMain());
    EXPECT_EQ(LUMGetRetainCount(RL()), 1);
    EXPECT_EQ(Text(kLUMRunLoopDefaultMode), "__kLUMRunLoopDefaultMode__");
    EXPECT_EQ(Text(kLUMRunLoopCommonModes), "__kLUMRunLoopCommonModes__");
    EXPECT_EQ(Text(__kLUMRunLoopAllModes), "__kLUMRunLoopAllModes__");
}

TEST(LUMRunLoop, EmptyModeFinishes)
{
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 1.0, false), kLUMRunLoopRunResultFinished);
    EXPECT_EQ(LUMRunLoopRun(), kLUMRunLoopRunResultFinished);
}

TEST(LUMRunLoop, ZeroSecondsMakesExactlyOnePass)
{
    Recorder a("a"), b("b");
    LUMRunLoopSourceRef sa = NewSource(&a, 0), sb = NewSource(&b, 0);
    LUMRunLoopAddSource(RL(), sa, kLUMRunLoopDefaultMode);
    LUMRunLoopAddSource(RL(), sb, kLUMRunLoopDefaultMode);
    LUMRunLoopSourceSignal(sa);
    LUMRunLoopSourceSignal(sb);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false), kLUMRunLoopRunResultTimedOut);
    EXPECT_EQ(a.performs + b.performs, 1); // one object per pass
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, -1.0, true), kLUMRunLoopRunResultHandledObject);
    EXPECT_EQ(a.performs + b.performs, 2);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false), kLUMRunLoopRunResultTimedOut);
    EXPECT_EQ(a.performs + b.performs, 2);
    LUMRunLoopSourceInvalidate(sa);
    LUMRunLoopSourceInvalidate(sb);
    LUMRelease(sa);
    LUMRelease(sb);
}

TEST(LUMRunLoop, WaitingSourcesAreTakenBeforeNewerOnesOfTheSameOrder)
{
    gEvents.clear();
    Recorder low("low"), waiting("waiting"), newer("newer");
    LUMRunLoopSourceRef sNewer = NewSource(&newer, 1); // first in the mode's set order
    LUMRunLoopSourceRef sLow = NewSource(&low, 0);
    LUMRunLoopSourceRef sWaiting = NewSource(&waiting, 1);
    for (LUMRunLoopSourceRef s : {sNewer, sLow, sWaiting}) LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
    LUMRunLoopSourceSignal(sLow);
    LUMRunLoopSourceSignal(sWaiting);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false); // low goes; waiting ages
    LUMRunLoopSourceSignal(sNewer);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false);
    EXPECT_EQ(gEvents, (std::vector<std::string>{"low", "waiting", "newer"}));
    for (LUMRunLoopSourceRef s : {sNewer, sLow, sWaiting}) {
        LUMRunLoopSourceInvalidate(s);
        LUMRelease(s);
    }
}

TEST(LUMRunLoop, TwoEqualSourcesNeedTwoPasses)
{
    gEvents.clear();
    Recorder a("a"), b("b");
    LUMRunLoopSourceRef sa = NewSource(&a, 3), sb = NewSource(&b, 3);
    LUMRunLoopAddSource(RL(), sa, kLUMRunLoopDefaultMode);
    LUMRunLoopAddSource(RL(), sb, kLUMRunLoopDefaultMode);
    LUMRunLoopSourceSignal(sb);
    LUMRunLoopSourceSignal(sa);
    LUMRunLoopSourceSignal(sa); // twice before performing: performed once
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true), kLUMRunLoopRunResultHandledObject);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true), kLUMRunLoopRunResultHandledObject);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true), kLUMRunLoopRunResultTimedOut);
    EXPECT_EQ(gEvents, (std::vector<std::string>{"a", "b"})); // a full tie goes to the first visited
    LUMRunLoopSourceInvalidate(sa);
    LUMRunLoopSourceInvalidate(sb);
    LUMRelease(sa);
    LUMRelease(sb);
}

TEST(LUMRunLoop, TimerWinsAFullTieWithASource)
{
    gEvents.clear();
    Recorder source("source");
    TimerLog timer("timer");
    LUMRunLoopSourceRef s = NewSource(&source, 0);
    LUMRunLoopTimerRef t = NewTimer(&timer, -1.0, 0.0, 0);
    LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
    LUMRunLoopAddTimer(RL(), t, kLUMRunLoopDefaultMode);
    LUMRunLoopSourceSignal(s);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    EXPECT_EQ(gEvents, (std::vector<std::string>{"timer", "source"}));
    LUMRunLoopSourceInvalidate(s);
    LUMRelease(s);
    LUMRelease(t);
}

TEST(LUMRunLoop, LowerOrderSourceBeatsATimer)
{
    gEvents.clear();
    Recorder source("source");
    TimerLog timer("timer");
    LUMRunLoopSourceRef s = NewSource(&source, -1);
    LUMRunLoopTimerRef t = NewTimer(&timer, -1.0, 0.0, 0);
    LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
    LUMRunLoopAddTimer(RL(), t, kLUMRunLoopDefaultMode);
    LUMRunLoopSourceSignal(s);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    EXPECT_EQ(gEvents, std::vector<std::string>{"source"});
    LUMRunLoopSourceInvalidate(s);
    LUMRunLoopTimerInvalidate(t);
    LUMRelease(s);
    LUMRelease(t);
}

TEST(LUMRunLoop, RepeatingTimerInThePastFiresOnceAndKeepsItsPhase)
{
    TimerLog log("late");
    const double interval = 0.2;
    LUMRunLoopTimerRef timer = NewTimer(&log, -3.5 * interval, interval);
    LUMMachTime created = timer->nextFireTicks;
    LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
    LUMMachTime before = LUMMachTimeGetCurrent();
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true), kLUMRunLoopRunResultHandledObject);
    LUMMachTime after = LUMMachTimeGetCurrent();
    EXPECT_EQ(log.fires, 1);
    // The next fire time is the first whole interval after the pass's time.
    double steps = static_cast<double>(timer->nextFireTicks - created) / (interval * 1e6);
    EXPECT_NEAR(steps, std::round(steps), 1e-6);
    EXPECT_EQ(std::round(steps), 4.0);
    EXPECT_GT(timer->nextFireTicks, before);
    EXPECT_LE(timer->nextFireTicks - static_cast<LUMMachTime>(interval * 1e6), after);
    EXPECT_TRUE(LUMRunLoopTimerIsValid(timer));
    EXPECT_GE(timer->lastFireTicks, before);
    LUMRunLoopTimerInvalidate(timer);
    LUMRelease(timer);
}

TEST(LUMRunLoop, OneShotTimerIsInvalidatedAndLeavesEveryMode)
{
    EXPECT_TRUE(PassesInChild([] { // the second mode stays made
        TimerLog log("once");
        LUMRunLoopTimerRef timer = NewTimer(&log, 0.02, 0.0);
        LUMStringRef other = LUMSTR("other mode");
        LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
        LUMRunLoopAddTimer(RL(), timer, other);
        EXPECT_EQ(LUMGetRetainCount(timer), 3);
        EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 2.0, false), kLUMRunLoopRunResultTimedOut);
        EXPECT_EQ(log.fires, 1);
        EXPECT_FALSE(LUMRunLoopTimerIsValid(timer));
        EXPECT_FALSE(LUMRunLoopContainsTimer(RL(), timer, kLUMRunLoopDefaultMode));
        EXPECT_FALSE(LUMRunLoopContainsTimer(RL(), timer, other));
        EXPECT_EQ(LUMGetRetainCount(timer), 1);
        EXPECT_FALSE(LUMRunLoopTimerDoesRepeat(timer));
        LUMRelease(timer);
        LUMRunLoopTimerRef negative = NewTimer(&log, 1.0, -2.0);
        EXPECT_FALSE(LUMRunLoopTimerDoesRepeat(negative));
        LUMRelease(negative);
    }));
}

TEST(LUMRunLoop, RunKeepsGoingUntilNothingIsValidOrStopped)
{
    TimerLog a("a");
    LUMRunLoopTimerRef timer = NewTimer(&a, 0.05, 0.0);
    LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
    EXPECT_EQ(LUMRunLoopRun(), kLUMRunLoopRunResultFinished); // fires, then nothing valid at the next slice
    EXPECT_EQ(a.fires, 1);
    LUMRelease(timer);

    TimerLog b("b");
    b.stopLoop = true;
    timer = NewTimer(&b, 0.05, 0.05);
    LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
    EXPECT_EQ(LUMRunLoopRun(), kLUMRunLoopRunResultStopped);
    EXPECT_EQ(b.fires, 1);
    LUMRunLoopTimerInvalidate(timer);
    LUMRelease(timer);
}

TEST(LUMRunLoop, StopTakesEffectAtTheEndOfThePass)
{
    Recorder r("r");
    LUMRunLoopSourceRef s = NewSource(&r, 0);
    LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
    LUMRunLoopStop(RL());
    // Entering a run clears an earlier request.
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false), kLUMRunLoopRunResultTimedOut);
    LUMRunLoopSourceInvalidate(s);
    LUMRelease(s);
}

TEST(LUMRunLoop, CommonModesRunInTheDefaultModeWithoutBeingCopied)
{
    // A common mode, once added, stays for the life of the process: the
    // body runs in a child so that the other tests keep a fresh loop when the
    // suite runs as one process.
    ChildResult result = RunInChild([] {
        Recorder r("r");
        LUMRunLoopSourceRef s = NewSource(&r, 0);
        LUMRunLoopAddSource(RL(), s, kLUMRunLoopCommonModes);
        printf("%d", LUMRunLoopContainsSource(RL(), s, kLUMRunLoopDefaultMode));
        LUMRunLoopRemoveSource(RL(), s, kLUMRunLoopDefaultMode);
        printf("%d", LUMRunLoopContainsSource(RL(), s, kLUMRunLoopCommonModes));
        LUMRunLoopSourceSignal(s);
        printf(" %d", LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true));
        printf(" %d ", r.performs);
        LUMStringRef custom = LUMSTR("custom");
        printf("%d", LUMRunLoopContainsSource(RL(), s, custom));
        LUMRunLoopAddCommonMode(RL(), custom);
        printf("%d", LUMRunLoopContainsSource(RL(), s, custom));
        printf("%d", LUMRunLoopContainsSource(RL(), s, __kLUMRunLoopAllModes));
        LUMRunLoopRemoveSource(RL(), s, __kLUMRunLoopAllModes);
        printf("%d", LUMRunLoopContainsSource(RL(), s, __kLUMRunLoopAllModes));
        printf(" %d", r.cancels);
        LUMRelease(s);
    });
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, "11 4 1 0110 1");
}

TEST(LUMRunLoop, AllModesWildcardAddsToEveryExistingMode)
{
    Recorder r("r");
    LUMRunLoopSourceRef s = NewSource(&r, 0);
    LUMRunLoopAddSource(RL(), s, __kLUMRunLoopAllModes);
    EXPECT_EQ(r.schedules, 2);
    LUMArrayRef modes = LUMRunLoopCopyAllModes(RL());
    EXPECT_EQ(LUMArrayGetCount(modes), 2); // the wildcard is never a mode itself
    LUMRelease(modes);
    LUMRunLoopSourceInvalidate(s);
    EXPECT_EQ(r.cancels, 2);
    LUMRelease(s);
}

TEST(LUMRunLoop, NextTimerFireDate)
{
    EXPECT_EQ(LUMRunLoopGetNextTimerFireDate(RL(), kLUMRunLoopDefaultMode), 0.0);
    EXPECT_EQ(LUMRunLoopGetNextTimerFireDate(RL(), LUMSTR("no such mode")), 0.0);
    TimerLog late("late"), soon("soon");
    LUMRunLoopTimerRef t1 = NewTimer(&late, 50.0, 0.0), t2 = NewTimer(&soon, 20.0, 0.0);
    LUMRunLoopAddTimer(RL(), t1, kLUMRunLoopDefaultMode);
    LUMRunLoopAddTimer(RL(), t2, kLUMRunLoopCommonModes);
    EXPECT_NEAR(LUMRunLoopGetNextTimerFireDate(RL(), kLUMRunLoopDefaultMode), LUMAbsoluteTimeGetCurrent() + 20.0, 0.5);
    LUMRunLoopTimerInvalidate(t2);
    EXPECT_NEAR(LUMRunLoopGetNextTimerFireDate(RL(), kLUMRunLoopDefaultMode), LUMAbsoluteTimeGetCurrent() + 50.0, 0.5);
    LUMRunLoopTimerInvalidate(t1);
    EXPECT_EQ(LUMRunLoopGetNextTimerFireDate(RL(), kLUMRunLoopDefaultMode), 0.0);
    LUMRelease(t1);
    LUMRelease(t2);
}

TEST(LUMRunLoop, WaitsInSelectSlicesOfAtMostATenthOfASecond)
{
    TimerLog log("t");
    LUMRunLoopTimerRef timer = NewTimer(&log, 0.35, 0.0);
    LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
    lumtest_select_calls = 0;
    LUMMachTime start = LUMMachTimeGetCurrent();
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 5.0, true), kLUMRunLoopRunResultHandledObject);
    double elapsed = LUMMachTimeGetInterval(LUMMachTimeGetCurrent(), start);
    EXPECT_GE(elapsed, 0.3);
    EXPECT_LT(elapsed, 0.35 * 5);
    EXPECT_GE(lumtest_select_calls, 4); // 0.35 s cannot be one slice
    EXPECT_LE(lumtest_select_last_timeout_us, 100000);
    LUMRelease(timer);
}

TEST(LUMRunLoop, FailingSelectEndsTheRunWithoutCleanUp)
{
    ChildResult result = RunInChild([] {
        TimerLog log("t");
        LUMRunLoopTimerRef timer = NewTimer(&log, 5.0, 0.0);
        LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
        lumtest_select_fails = 1;
        LUMRunLoopRunResult runResult = LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 1.0, false);
        printf("%d %d", runResult, LUMRunLoopIsWaiting(RL()));
    });
    EXPECT_EQ(result.out, "3 1");
    EXPECT_EQ(result.err, "select() failed: Bad file descriptor\n");
}

TEST(LUMRunLoop, WakeUpIsFatal)
{
    EXPECT_TRUE(DiesWithFatal([] { LUMRunLoopWakeUp(RL()); }, "NYI", "LUMRunLoopWakeUp", "src/LUMRunLoop", 829));
}

TEST(LUMRunLoop, ForeignObjectInAModeIsFatal)
{
    EXPECT_TRUE(DiesWithFatal([] {
        Recorder r("r");
        LUMRunLoopSourceRef s = NewSource(&r, 0);
        LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
        LUMRunLoopSourceSignal(s);
        s->base.typeID = LUMDateGetTypeID(); // no longer a source or a timer
        LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false);
    }, "Unexpected type ID", "__LUMRunLoopProcessOneObject", "src/LUMRunLoop", 583));
}

namespace {
void printBacktraceFromPerform(void *) { _LUMPrintBacktrace(); }
} // namespace

TEST(LUMRunLoop, BacktraceNamesTheObjectBeingHandled)
{
    ChildResult result = RunInChild([] {
        LUMRunLoopSourceContext context = {0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           printBacktraceFromPerform};
        LUMRunLoopSourceRef s = LUMRunLoopSourceCreate(nullptr, 0, &context);
        LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
        LUMRunLoopSourceSignal(s);
        fprintf(stderr, "%p", static_cast<void *>(s));
        LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false);
        fprintf(stderr, " %p", const_cast<void *>(_LUMRunLoopGetCurrentObject()));
    });
    EXPECT_EQ(result.out.rfind("RunLoopObject: " + result.err.substr(0, result.err.find(' ')) + "\nBacktrace:\n", 0), 0u)
        << result.out;
    EXPECT_EQ(result.err.substr(result.err.find(' ') + 1), CFormat("%p", static_cast<void *>(nullptr)));
}

TEST(LUMRunLoop, DebugSwitchLogsAddsAndSlowHandling)
{
    ChildResult result = RunInChild([] {
        setenv("LUMRunLoopDebug", "", 1);
        _LUMRunLoopInitializeModule(); // the switch is read at start-up
        LUMRunLoopSourceContext context = {0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           [](void *) { usleep(150000); }};
        LUMRunLoopSourceRef s = LUMRunLoopSourceCreate(nullptr, 0, &context);
        LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
        LUMRunLoopSourceSignal(s);
        LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false);
        fprintf(stdout, "%p", static_cast<void *>(s));
    });
    std::string source = result.out.substr(result.out.rfind('\n') + 1);
    std::string added = CFormat("<%s:LUMRunLoopSource retainCount=1>", source.c_str()); // described before the mode took it
    EXPECT_NE(result.err.find(": __LUMRunLoopAddSource(..., " + added + " (" + CFormat("<%p>", static_cast<void *>(nullptr)) +
                              "), __kLUMRunLoopDefaultMode__) called\n"), std::string::npos) << result.err;
    EXPECT_NE(result.out.find("RunLoopObject: (nil)\nBacktrace:\n0: 0x"), std::string::npos);
    std::regex slow(": __LUMRunLoopProcessOneObject\\(\\): obj <" + source +
                    ":LUMRunLoopSource retainCount=3> took 0\\.1[5-9][0-9]* seconds\n|took [0-9]+\\.[0-9]+ seconds\n");
    EXPECT_TRUE(std::regex_search(result.err, slow)) << result.err;
}

// ---- Sources -------------------------------------------------------------------

TEST(LUMRunLoopSource, NullRetainKeepsInfoAndReleaseStillRuns)
{
    Recorder r("r");
    LUMRunLoopSourceRef s = NewSource(&r, 7);
    LUMRunLoopSourceContext out;
    LUMRunLoopSourceGetContext(s, &out);
    EXPECT_EQ(out.info, &r);
    EXPECT_EQ(out.perform, recordPerform);
    EXPECT_EQ(LUMRunLoopSourceGetOrder(s), 7);
    EXPECT_TRUE(LUMRunLoopSourceIsValid(s));
    LUMRelease(s);
    EXPECT_EQ(r.releases, 1);
}

namespace {
int gInfoA = 0, gInfoB = 0;
const void *swapInfo(const void *) { return &gInfoB; }
} // namespace

TEST(LUMRunLoopSource, RetainResultReplacesInfo)
{
    LUMRunLoopSourceContext context = {0, &gInfoA, swapInfo, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    LUMRunLoopSourceRef s = LUMRunLoopSourceCreate(nullptr, 0, &context);
    LUMRunLoopSourceContext out;
    LUMRunLoopSourceGetContext(s, &out);
    EXPECT_EQ(out.info, &gInfoB);
    LUMRelease(s);
}

TEST(LUMRunLoopSource, AddingTwiceSchedulesOnce)
{
    Recorder r("r");
    LUMRunLoopSourceRef s = NewSource(&r, 0);
    LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
    LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
    EXPECT_EQ(r.schedules, 1);
    EXPECT_EQ(LUMGetRetainCount(s), 2);
    LUMRunLoopRemoveSource(RL(), s, kLUMRunLoopDefaultMode);
    EXPECT_EQ(r.cancels, 1);
    EXPECT_EQ(LUMGetRetainCount(s), 1);
    LUMRelease(s);
}

TEST(LUMRunLoopSource, InvalidationCancelsEveryModeLastAddedFirst)
{
    Recorder r("r");
    LUMRunLoopSourceRef s = NewSource(&r, 0);
    LUMRunLoopAddSource(RL(), s, LUMSTR("first mode"));
    LUMRunLoopAddSource(RL(), s, LUMSTR("second mode"));
    LUMRunLoopSourceInvalidate(s);
    EXPECT_EQ(r.cancels, 2);
    EXPECT_EQ(r.cancelModes, (std::vector<std::string>{"second mode", "first mode"}));
    EXPECT_FALSE(LUMRunLoopSourceIsValid(s));
    EXPECT_EQ(LUMGetRetainCount(s), 1);
    LUMRelease(s);
}

TEST(LUMRunLoopSource, InvalidatedBeforeThePassIsNotPerformed)
{
    Recorder r("r"), keep("keep");
    LUMRunLoopSourceRef s = NewSource(&r, 0), other = NewSource(&keep, 0);
    LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
    LUMRunLoopAddSource(RL(), other, kLUMRunLoopDefaultMode);
    LUMRunLoopSourceSignal(s);
    LUMRunLoopSourceInvalidate(s);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, false);
    EXPECT_EQ(r.performs, 0);
    LUMRunLoopSourceInvalidate(other);
    LUMRelease(s);
    LUMRelease(other);
}

TEST(LUMRunLoopSource, VersionOneSourceIsChosenButNotPerformed)
{
    Recorder r("r");
    LUMRunLoopSourceRef s = NewSource(&r, 0, 1);
    LUMRunLoopAddSource(RL(), s, kLUMRunLoopDefaultMode);
    EXPECT_EQ(r.schedules, 0); // only version 0 hears of scheduling
    LUMRunLoopSourceSignal(s);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true), kLUMRunLoopRunResultHandledObject);
    EXPECT_EQ(r.performs, 0);
    LUMRunLoopSourceInvalidate(s);
    EXPECT_EQ(r.cancels, 0);
    LUMRelease(s);
    EXPECT_EQ(r.releases, 1); // whatever the version
}

// ---- Timers --------------------------------------------------------------------

TEST(LUMRunLoopTimer, NullContextReadsAsZeros)
{
    LUMRunLoopTimerRef timer = LUMRunLoopTimerCreate(nullptr, LUMAbsoluteTimeGetCurrent(), 1.0, 0xFF, 4, nullptr, nullptr);
    LUMRunLoopTimerContext context;
    memset(&context, 0xAB, sizeof(context));
    LUMRunLoopTimerGetContext(timer, &context);
    EXPECT_EQ(context.version, 0);
    EXPECT_EQ(context.info, nullptr);
    EXPECT_EQ(context.retain, nullptr);
    EXPECT_EQ(context.release, nullptr);
    EXPECT_EQ(context.copyDescription, nullptr);
    EXPECT_EQ(timer->flags, 0u); // flags are ignored
    EXPECT_EQ(LUMRunLoopTimerGetOrder(timer), 4);
    EXPECT_EQ(LUMRunLoopTimerGetInterval(timer), 1.0);
    EXPECT_TRUE(LUMRunLoopTimerDoesRepeat(timer));
    EXPECT_EQ(TakeText(LUMCopyDescription(timer)),
              CFormat("<%p LUMRunLoopTimer retainCount=1 callBack=%p interval=1.000000>", static_cast<void *>(timer), nullptr));
    LUMRelease(timer);
}

namespace {
int gTimerReleases = 0;
int gTimerRetains = 0;
const void *countTimerRetain(const void *info)
{
    gTimerRetains++;
    return info;
}
void countTimerRelease(const void *) { gTimerReleases++; }
} // namespace

TEST(LUMRunLoopTimer, ContextReleaseIsCalledButRetainIsNot)
{
    LUMRunLoopTimerContext context = {0, &gInfoA, countTimerRetain, countTimerRelease, nullptr};
    LUMRunLoopTimerRef timer = LUMRunLoopTimerCreate(nullptr, 0.0, 0.0, 0, 0, nullptr, &context);
    EXPECT_EQ(gTimerRetains, 0);
    LUMRelease(timer);
    EXPECT_EQ(gTimerReleases, 1);
}

TEST(LUMRunLoopTimer, InvalidatedTimerTakesANewDateButNeverFires)
{
    TimerLog log("t");
    LUMRunLoopTimerRef timer = NewTimer(&log, 10.0, 0.5);
    LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
    LUMRunLoopTimerInvalidate(timer);
    LUMAbsoluteTime target = LUMAbsoluteTimeGetCurrent() + 0.01;
    LUMRunLoopTimerSetNextFireDate(timer, target);
    EXPECT_NEAR(LUMRunLoopTimerGetNextFireDate(timer), target, 0.01);
    LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode); // in a mode again, but invalid
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.1, false), kLUMRunLoopRunResultFinished);
    EXPECT_EQ(log.fires, 0);
    LUMRunLoopRemoveTimer(RL(), timer, kLUMRunLoopDefaultMode);
    LUMRelease(timer);
}

TEST(LUMRunLoopTimer, WallClockChangesMoveTheDateNotTheTimer)
{
    ChildResult result = RunInChild([] {
        TimerLog log("t");
        LUMRunLoopTimerRef timer = NewTimer(&log, 60.0, 0.0);
        LUMMachTime ticks = timer->nextFireTicks;
        LUMAbsoluteTime date = LUMRunLoopTimerGetNextFireDate(timer);
        lumtest_clock_offset_us = 3600LL * 1000000;
        LUMAbsoluteTime shifted = LUMRunLoopTimerGetNextFireDate(timer);
        printf("%d %d", timer->nextFireTicks == ticks, std::fabs(shifted - date - 3600.0) < 1.0);
        LUMRelease(timer);
    });
    EXPECT_EQ(result.out, "1 1");
    EXPECT_EQ(result.err, "\n\nWARNING: Reinitializing LUMMachTime values...\n\n");
}

TEST(LUMRunLoopTimer, RepeatingTimerKeepsFiring)
{
    TimerLog log("tick");
    LUMRunLoopTimerRef timer = NewTimer(&log, 0.02, 0.02);
    LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
    EXPECT_EQ(LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.3, false), kLUMRunLoopRunResultTimedOut);
    EXPECT_GE(log.fires, 3);   // 15 in theory; a loaded machine may skip
    EXPECT_LE(log.fires, 16);
    EXPECT_TRUE(LUMRunLoopTimerIsValid(timer));
    LUMRunLoopTimerInvalidate(timer);
    LUMRelease(timer);
}

namespace {

/* Retain counts seen from inside callbacks: exactly the owners' references (caller, modes), none hidden. */
LUMTypeRef gWatchedObject = nullptr;
std::vector<LUMIndex> gCountsSeen;

void performSeeingCount(void *) { gCountsSeen.push_back(LUMGetRetainCount(gWatchedObject)); }
void cancelSeeingCount(void *, LUMRunLoopRef, LUMStringRef) { gCountsSeen.push_back(LUMGetRetainCount(gWatchedObject)); }
void timerSeeingCount(LUMRunLoopTimerRef timer, void *) { gCountsSeen.push_back(LUMGetRetainCount(timer)); }

int gTimerInfoReleases = 0;
int gTimerCallsBeforeRelease = 0;
int gTimerCalls = 0;
void timerInfoRelease(const void *)
{
    gTimerInfoReleases++;
    gTimerCallsBeforeRelease = gTimerCalls;
}
void timerDroppingItself(LUMRunLoopTimerRef timer, void *)
{
    gTimerCalls++;
    LUMRunLoopTimerInvalidate(timer); // the modes held the last references
    EXPECT_EQ(gTimerInfoReleases, 0); // still alive until the handling is over
    LUMRunLoopStop(LUMRunLoopGetCurrent());
}

void performDroppingItself(void *info)
{
    LUMRunLoopSourceInvalidate(static_cast<LUMRunLoopSourceRef>(info));
}
void sourceInfoRelease(const void *) { gTimerInfoReleases++; }

} // namespace

TEST(LUMRunLoopSource, PerformSeesNoHiddenReference)
{
    LUMRunLoopSourceContext context = {0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, cancelSeeingCount,
                                       performSeeingCount};
    LUMRunLoopSourceRef source = LUMRunLoopSourceCreate(nullptr, 0, &context);
    gWatchedObject = source;
    gCountsSeen.clear();
    LUMRunLoopAddSource(RL(), source, kLUMRunLoopDefaultMode); // the caller's and the mode's
    LUMRunLoopSourceSignal(source);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    LUMRunLoopSourceInvalidate(source);
    EXPECT_EQ(gCountsSeen, std::vector<LUMIndex>({2, 2}));
    EXPECT_EQ(LUMGetRetainCount(source), 1);
    LUMRelease(source);
}

TEST(LUMRunLoopTimer, CallbackSeesNoHiddenReference)
{
    LUMRunLoopTimerRef timer = LUMRunLoopTimerCreate(nullptr, LUMAbsoluteTimeGetCurrent() - 1.0, 10.0, 0, 0, timerSeeingCount, nullptr);
    gCountsSeen.clear();
    LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    EXPECT_EQ(gCountsSeen, std::vector<LUMIndex>({2}));
    LUMRunLoopTimerInvalidate(timer);
    LUMRelease(timer);
}

TEST(LUMRunLoopTimer, RepeatingTimerThatDropsItsLastReferenceIsFreedAfterItsCallback)
{
    // Under the sanitizers this also shows that nothing reads the timer
    // after it is freed.
    EXPECT_TRUE(PassesInChild([] { // the second mode stays made
        LUMRunLoopTimerContext context = {0, nullptr, nullptr, timerInfoRelease, nullptr};
        LUMRunLoopTimerRef timer =
            LUMRunLoopTimerCreate(nullptr, LUMAbsoluteTimeGetCurrent() - 1.0, 5.0, 0, 0, timerDroppingItself, &context);
        LUMRunLoopAddTimer(RL(), timer, kLUMRunLoopDefaultMode);
        LUMRunLoopAddTimer(RL(), timer, LUMSTR("other"));
        LUMRelease(timer); // only the modes hold it now
        gTimerCalls = gTimerInfoReleases = gTimerCallsBeforeRelease = 0;
        LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
        EXPECT_EQ(gTimerCalls, 1);
        EXPECT_EQ(gTimerInfoReleases, 1);
        EXPECT_EQ(gTimerCallsBeforeRelease, 1);
    }));
}

TEST(LUMRunLoopSource, SourceThatDropsItsLastReferenceInItsPerformIsFreedAfterIt)
{
    LUMRunLoopSourceContext context = {0, nullptr, nullptr, sourceInfoRelease, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       performDroppingItself};
    LUMRunLoopSourceRef source = LUMRunLoopSourceCreate(nullptr, 0, &context);
    // The perform's info is the source itself, without a reference.
    ((__LUMRunLoopSource *)(source))->context.info = (void *)(source);
    LUMRunLoopAddSource(RL(), source, kLUMRunLoopDefaultMode);
    LUMRunLoopSourceSignal(source);
    LUMRelease(source);
    gTimerInfoReleases = 0;
    LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    EXPECT_EQ(gTimerInfoReleases, 1);
}
