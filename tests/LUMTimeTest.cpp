/* LUMTimeTest.cpp — absolute time, Gregorian dates, the monotonic clock and
 * date objects. The C library's timegm and gmtime are the oracles; the wall
 * clock and /proc/uptime are steered through the test executable's
 * stand-ins for gettimeofday and open.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <cmath>
#include <sys/time.h>
#include <time.h>

using namespace lumtest;

namespace {

LUMGregorianDate Date(int32_t y, int m, int d, int h, int min, double s)
{
    LUMGregorianDate date = {y, static_cast<int8_t>(m), static_cast<int8_t>(d), static_cast<int8_t>(h), static_cast<int8_t>(min), s};
    return date;
}

double UptimeSeconds()
{
    FILE *f = fopen("/proc/uptime", "r");
    double uptime = -1;
    if (f != nullptr) {
        if (fscanf(f, "%lf", &uptime) != 1) uptime = -1;
        fclose(f);
    }
    return uptime;
}

} // namespace

TEST(LUMAbsoluteTime, CurrentTimeIsTheWallClockSince2001)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    double expected = static_cast<double>(now.tv_sec) + now.tv_nsec / 1e9 - 978307200.0;
    EXPECT_NEAR(LUMAbsoluteTimeGetCurrent(), expected, 0.5);
    EXPECT_EQ(kLUMAbsoluteTimeIntervalSince1970, 978307200.0);
}

TEST(LUMAbsoluteTime, GregorianReferenceDates)
{
    EXPECT_EQ(LUMGregorianDateGetAbsoluteTime(Date(2001, 1, 1, 0, 0, 0.0), nullptr), 0.0);
    EXPECT_EQ(LUMGregorianDateGetAbsoluteTime(Date(1970, 1, 1, 0, 0, 0.0), nullptr), -978307200.0);
    EXPECT_EQ(LUMGregorianDateGetAbsoluteTime(Date(2024, 3, 5, 14, 7, 59.9), nullptr),
              LUMGregorianDateGetAbsoluteTime(Date(2024, 3, 5, 14, 7, 59.0), nullptr));
    // Out-of-range fields roll over as timegm rolls them.
    EXPECT_EQ(LUMGregorianDateGetAbsoluteTime(Date(2023, 2, 29, 0, 0, 0), nullptr),
              LUMGregorianDateGetAbsoluteTime(Date(2023, 3, 1, 0, 0, 0), nullptr));
}

TEST(LUMAbsoluteTime, GregorianDateOfAnInstantDropsTheFraction)
{
    LUMGregorianDate date = LUMAbsoluteTimeGetGregorianDate(0.5, nullptr);
    EXPECT_EQ(date.year, 2001);
    EXPECT_EQ(date.month, 1);
    EXPECT_EQ(date.day, 1);
    EXPECT_EQ(date.hour, 0);
    EXPECT_EQ(date.minute, 0);
    EXPECT_EQ(date.second, 0.0);
    // Before 1970 the truncation rounds toward 1970: -0.5 s before 1970 is 1970.
    date = LUMAbsoluteTimeGetGregorianDate(-978307200.5, nullptr);
    EXPECT_EQ(date.year, 1970);
    EXPECT_EQ(date.second, 0.0);
}

TEST(LUMAbsoluteTime, GregorianConversionsAgreeWithTheCLibrary)
{
    // Every 7 hours and 13 minutes from 1971 to 2037, both directions.
    for (int64_t unix = 31536000; unix < 2145916800; unix += 7 * 3600 + 13 * 60 + 7) {
        time_t t = static_cast<time_t>(unix);
        struct tm fields;
        gmtime_r(&t, &fields);
        LUMGregorianDate date = LUMAbsoluteTimeGetGregorianDate(static_cast<double>(unix) - 978307200.0, nullptr);
        ASSERT_EQ(date.year, fields.tm_year + 1900);
        ASSERT_EQ(date.month, fields.tm_mon + 1);
        ASSERT_EQ(date.day, fields.tm_mday);
        ASSERT_EQ(date.hour, fields.tm_hour);
        ASSERT_EQ(date.minute, fields.tm_min);
        ASSERT_EQ(date.second, fields.tm_sec);
        ASSERT_EQ(LUMGregorianDateGetAbsoluteTime(date, nullptr), static_cast<double>(timegm(&fields)) - 978307200.0);
    }
}

TEST(LUMAbsoluteTime, GregorianConversionsHonourAZone)
{
    LUMTimeZoneRef berlin = LUMTimeZoneCreateWithName(nullptr, LUMSTR("Europe/Berlin"), false);
    LUMAbsoluteTime noonUTC = LUMGregorianDateGetAbsoluteTime(Date(2010, 7, 1, 12, 0, 0), nullptr);
    EXPECT_EQ(LUMGregorianDateGetAbsoluteTime(Date(2010, 7, 1, 14, 0, 0), berlin), noonUTC);
    LUMGregorianDate local = LUMAbsoluteTimeGetGregorianDate(noonUTC, berlin);
    EXPECT_EQ(local.hour, 14);
    local = LUMAbsoluteTimeGetGregorianDate(LUMGregorianDateGetAbsoluteTime(Date(2010, 1, 1, 12, 0, 0), nullptr), berlin);
    EXPECT_EQ(local.hour, 13);
    LUMRelease(berlin);
}

TEST(LUMMachTime, IntervalArithmetic)
{
    LUMMachTime t = LUMMachTimeGetCurrent();
    EXPECT_EQ(LUMMachTimeGetInterval(t, t), 0.0);
    EXPECT_EQ(LUMMachTimeGetRelativeWithInterval(t, -0.0000015), t - 1);
    EXPECT_EQ(LUMMachTimeGetRelativeWithInterval(t, 2.5), t + 2500000);
    EXPECT_EQ(LUMMachTimeGetInterval(t + 1500000, t), 1.5);
    EXPECT_EQ(_LUMRunLoopTimerGetTicks(1.5), 1500000000);
    EXPECT_EQ(_LUMRunLoopTimerGetTicks(-0.0000000015), -1);
}

TEST(LUMMachTime, TicksCountFromBoot)
{
    double uptime = UptimeSeconds();
    if (uptime < 0) GTEST_SKIP() << "/proc/uptime is not readable here";
    LUMMachTime ticks = LUMMachTimeGetCurrent();
    EXPECT_NEAR(static_cast<double>(ticks) / 1e6, uptime, 1.0);
    LUMMachTime later = LUMMachTimeGetCurrent();
    EXPECT_GE(later, ticks);
}

TEST(LUMMachTime, SettingTheClockBackReanchorsOnceWithAWarning)
{
    ChildResult result = RunInChild([] {
        double uptime = UptimeSeconds();
        LUMMachTimeGetCurrent();
        lumtest_clock_offset_us = -1000000;
        LUMMachTime first = LUMMachTimeGetCurrent();
        LUMMachTime second = LUMMachTimeGetCurrent();
        printf("%d %d", std::fabs(static_cast<double>(first) / 1e6 - uptime) < 1.0, second >= first);
    });
    EXPECT_EQ(result.err, "\n\nWARNING: Reinitializing LUMMachTime values...\n\n");
    EXPECT_EQ(result.out, "1 1");
}

TEST(LUMMachTime, AJumpOfMoreThanFiveSecondsCountsAsAClockChange)
{
    ChildResult result = RunInChild([] {
        LUMMachTime before = LUMMachTimeGetCurrent();
        lumtest_clock_offset_us = 4000000; // within the five seconds: taken as time passing
        LUMMachTime within = LUMMachTimeGetCurrent();
        fprintf(stdout, "%d ", within - before >= 4000000);
        lumtest_clock_offset_us = 10000000; // six more seconds: a clock change
        LUMMachTime after = LUMMachTimeGetCurrent();
        fprintf(stdout, "%d", after - within < 1000000);
    });
    EXPECT_EQ(result.out, "1 1");
    EXPECT_EQ(result.err, "\n\nWARNING: Reinitializing LUMMachTime values...\n\n");
}

TEST(LUMMachTime, UnreadableUptimeKeepsTheOldBaseOrStartsAtZero)
{
    ChildResult result = RunInChild([] {
        lumtest_uptime_mode = 1;
        LUMMachTime before = LUMMachTimeGetCurrent();
        _LUMMachTimeInitializeValues(LUMAbsoluteTimeGetCurrent(), false); // keeps the base
        LUMMachTime kept = LUMMachTimeGetCurrent();
        _LUMMachTimeInitializeValues(LUMAbsoluteTimeGetCurrent(), true);  // ticks from now
        LUMMachTime restarted = LUMMachTimeGetCurrent();
        printf("%d %d", kept - before < 1000000 && kept >= before, restarted < 1000000);
    });
    EXPECT_EQ(result.out, "1 1");
    EXPECT_EQ(result.exitStatus, 0);
}

TEST(LUMMachTime, EmptyUptimeIsFatal)
{
    EXPECT_TRUE(DiesWithFatal([] {
        lumtest_uptime_mode = 2;
        _LUMMachTimeInitializeValues(LUMAbsoluteTimeGetCurrent(), true);
    }, "Unable to read system uptime", "_LUMMachTimeInitializeValues", "src/LUMMachTime", 63));
}

TEST(LUMDate, CompareAndIntervals)
{
    LUMDateRef a = LUMDateCreate(nullptr, 100.0);
    LUMDateRef b = LUMDateCreate(nullptr, 100.0);
    LUMDateRef c = LUMDateCreate(nullptr, 250.5);
    EXPECT_EQ(LUMDateCompare(a, b), 0);
    EXPECT_EQ(LUMDateCompare(a, c), -1);
    EXPECT_EQ(LUMDateCompare(c, a), 1);
    EXPECT_EQ(LUMDateGetTimeIntervalSinceDate(c, a), 150.5);
    EXPECT_EQ(LUMDateGetAbsoluteTime(c), 250.5);
    EXPECT_FALSE(LUMEqual(a, b)); // no equality callback: identity only
    EXPECT_EQ(TakeText(LUMCopyDescription(a)), CFormat("<%p:LUMDate retainCount=1>", static_cast<const void *>(a)));
    LUMRelease(a);
    LUMRelease(b);
    LUMRelease(c);
}

TEST(LUMDate, AccessorsAssertDates)
{
    LUMDateRef date = LUMDateCreate(nullptr, 1.0);
    LUMDateRef notDate = static_cast<LUMDateRef>(static_cast<const void *>(LUMSTR("x")));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDateGetAbsoluteTime(notDate); }, "_LUMTypeCheckValid(date, LUMDateGetTypeID())",
                                  "LUMDateGetAbsoluteTime", "src/LUMDate"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDateGetTimeIntervalSinceDate(date, notDate); },
                                  "_LUMTypeCheckValid(refDate, LUMDateGetTypeID())", "LUMDateGetTimeIntervalSinceDate", "src/LUMDate"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDateCompare(notDate, date); }, "_LUMTypeCheckValid(leftDate, LUMDateGetTypeID())",
                                  "LUMDateCompare", "src/LUMDate"));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMDateCompare(date, notDate); }, "_LUMTypeCheckValid(rightDate, LUMDateGetTypeID())",
                                  "LUMDateCompare", "src/LUMDate"));
    LUMRelease(date);
}
