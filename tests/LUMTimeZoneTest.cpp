/* LUMTimeZoneTest.cpp — the compiled zone table and its lookup rules, with
 * the system's own zone data (localtime_r under TZ) as the oracle.
 * Part of LumBase; MIT licence. */
#include "support/LUMTestSupport.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <time.h>

using namespace lumtest;

namespace {

LUMAbsoluteTime At(int y, int m, int d, int h = 0)
{
    LUMGregorianDate date = {y, static_cast<int8_t>(m), static_cast<int8_t>(d), static_cast<int8_t>(h), 0, 0.0};
    return LUMGregorianDateGetAbsoluteTime(date, nullptr);
}

// Instants outside a 32-bit time_t, which timegm cannot give on every
// platform: 2060-01-01 and 1900-01-01 00:00 UTC.
constexpr LUMAbsoluteTime k2060 = 2840140800.0 - 978307200.0;
constexpr LUMAbsoluteTime k1900 = -2208988800.0 - 978307200.0;

LUMTimeZoneRef Zone(const char *name) { return LUMTimeZoneCreateWithName(nullptr, LUMSTR(name), false); }

/* The release the table was generated from, read from its header. */
std::string TableRelease()
{
    std::ifstream in(std::string(LUM_TEST_SOURCE_DIR) + "/src/LUMTimeZoneData.inc");
    std::string line;
    while (std::getline(in, line)) {
        size_t at = line.find("tz data release ");
        if (at != std::string::npos) return line.substr(at + 16, line.find(' ', at + 16) - at - 16);
    }
    return "";
}

std::string SystemRelease()
{
    std::ifstream in("/usr/share/zoneinfo/tzdata.zi");
    std::string word, version;
    in >> word >> word >> version; // "# version 2025b"
    return version;
}

} // namespace

TEST(LUMTimeZone, NamesAreExactAndCaseSensitive)
{
    LUMTimeZoneRef berlin = Zone("Europe/Berlin");
    ASSERT_NE(berlin, nullptr);
    EXPECT_EQ(Text(LUMTimeZoneGetName(berlin)), "Europe/Berlin");
    EXPECT_EQ(Zone("europe/berlin"), nullptr);
    EXPECT_EQ(Zone("Nowhere/Atall"), nullptr);
    LUMRelease(berlin);
}

TEST(LUMTimeZone, BerlinOffsetsAroundItsRecords)
{
    LUMTimeZoneRef berlin = Zone("Europe/Berlin");
    EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(berlin, At(2010, 7, 1)), 7200.0);
    EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(berlin, At(2010, 1, 1)), 3600.0);
    EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(berlin, k2060), 0.0); // past the last record
    // Before the second record the first applies: it is a summer-time record.
    EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(berlin, At(2000, 1, 1)), 7200.0);
    EXPECT_TRUE(LUMTimeZoneIsDaylightSavingTime(berlin, At(2010, 7, 1)));
    EXPECT_FALSE(LUMTimeZoneIsDaylightSavingTime(berlin, At(2010, 1, 1)));
    EXPECT_EQ(LUMTimeZoneGetDaylightSavingTimeOffset(berlin, At(2010, 7, 1)), 3600.0);
    EXPECT_EQ(LUMTimeZoneGetDaylightSavingTimeOffset(berlin, At(2010, 1, 1)), 0.0);
    // The table's records for Berlin: 2000-03-26 01:00 UTC to 2050-10-30 01:00 UTC.
    EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(berlin, 1572397200.0 - 1), 7200.0);
    EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(berlin, 1572397200.0), 0.0);
    EXPECT_EQ(At(2000, 3, 26, 1), -24274800.0);
    LUMRelease(berlin);
}

TEST(LUMTimeZone, ZonesWithoutRecentRecordsGiveZero)
{
    for (const char *name : {"UTC", "Etc/UTC", "Etc/GMT", "Africa/Lagos", "Asia/Tokyo", "Asia/Kolkata"}) {
        LUMTimeZoneRef tz = Zone(name);
        ASSERT_NE(tz, nullptr) << name;
        for (LUMAbsoluteTime t : {At(1970, 1, 1), At(2000, 6, 1), At(2024, 3, 5), k2060})
            EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(tz, t), 0.0) << name;
        LUMRelease(tz);
    }
    LUMTimeZoneRef tokyo = Zone("Asia/Tokyo"); // between its records it has a real offset
    EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(tokyo, k1900), 32400.0);
    LUMRelease(tokyo);
}

TEST(LUMTimeZone, NextTransitionIsTheArgument)
{
    LUMTimeZoneRef berlin = Zone("Europe/Berlin");
    for (LUMAbsoluteTime t : {-1e12, 0.0, At(2010, 5, 5), k2060 + 315532800.0})
        EXPECT_EQ(LUMTimeZoneGetNextDaylightSavingTimeTransition(berlin, t), t);
    LUMRelease(berlin);
}

TEST(LUMTimeZone, KnownNamesAreTheTableInOrder)
{
    LUMArrayRef names = LUMTimeZoneCopyKnownNames();
    ASSERT_EQ(LUMArrayGetCount(names), 547);
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(names, 0))), "Africa/Abidjan");
    EXPECT_EQ(Text(static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(names, 546))), "Zulu");
    std::ifstream list(std::string(LUM_TEST_SOURCE_DIR) + "/tools/tz/zone-names.txt");
    std::string line;
    for (LUMIndex i = 0; std::getline(list, line); i++) {
        ASSERT_LT(i, 547);
        LUMStringRef name = static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(names, i));
        EXPECT_EQ(Text(name), line);
        LUMTimeZoneRef tz = LUMTimeZoneCreateWithName(nullptr, name, false);
        EXPECT_NE(tz, nullptr) << line;
        LUMRelease(tz);
    }
    LUMRelease(names);
}

TEST(LUMTimeZone, AliasesShareTheirZonesRecords)
{
    LUMTimeZoneRef eastern = Zone("US/Eastern"), newYork = Zone("America/New_York");
    for (LUMAbsoluteTime t = At(2001, 1, 1); t < At(2037, 12, 1); t += 86400.0 * 13)
        ASSERT_EQ(LUMTimeZoneGetSecondsFromGMT(eastern, t), LUMTimeZoneGetSecondsFromGMT(newYork, t));
    LUMTimeZoneRef removed = Zone("Canada/East-Saskatchewan"), regina = Zone("America/Regina");
    ASSERT_NE(removed, nullptr);
    EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(removed, At(1950, 1, 1)), LUMTimeZoneGetSecondsFromGMT(regina, At(1950, 1, 1)));
    for (LUMTypeRef tz : {eastern, newYork, removed, regina}) LUMRelease(tz);
}

TEST(LUMTimeZone, DefaultIsUTCUntilSet)
{
    LUMTimeZoneRef current = LUMTimeZoneCopyDefault();
    EXPECT_EQ(Text(LUMTimeZoneGetName(current)), "UTC");
    LUMTimeZoneRef berlin = Zone("Europe/Berlin");
    LUMTimeZoneSetDefault(berlin);
    LUMTimeZoneRef now = LUMTimeZoneCopyDefault();
    EXPECT_EQ(now, berlin);
    EXPECT_EQ(LUMGetRetainCount(berlin), 3);
    LUMTimeZoneSetDefault(current);
    EXPECT_EQ(LUMGetRetainCount(berlin), 2);
    for (LUMTypeRef tz : {now, berlin, current}) LUMRelease(tz);
    EXPECT_TRUE(DiesWithAssertion([] { LUMTimeZoneSetDefault(nullptr); }, "_LUMTypeCheckValid(tz, LUMTimeZoneGetTypeID())",
                                  "LUMTimeZoneSetDefault", "src/LUMTimeZone", 322));
}

TEST(LUMTimeZone, UnimplementedOperationsAreFatal)
{
    EXPECT_TRUE(DiesWithFatal([] { LUMTimeZoneCopySystem(); }, "Not yet implemented", "__LUMTimeZoneCopySystem",
                              "src/LUMTimeZone", 149));
    EXPECT_TRUE(DiesWithFatal([] { LUMTimeZoneCopyAbbreviation(LUMTimeZoneCopyDefault(), 0.0); }, "Not yet implemented",
                              "__LUMTimeZoneCopyAbbreviation", "src/LUMTimeZone", 126));
}

TEST(LUMTimeZone, ArgumentsAreAsserted)
{
    EXPECT_TRUE(DiesWithAssertion([] { LUMTimeZoneCreateWithName(nullptr, LUMSTR("UTC"), true); }, "!tryAbbrev",
                                  "LUMTimeZoneCreateWithName", "src/LUMTimeZone", 258));
    EXPECT_TRUE(DiesWithAssertion([] { LUMTimeZoneCreateWithName(nullptr, nullptr, false); },
                                  "_LUMTypeCheckValid(name, LUMStringGetTypeID())", "LUMTimeZoneCreateWithName", "src/LUMTimeZone", 257));
    LUMTimeZoneRef notZone = static_cast<LUMTimeZoneRef>(static_cast<const void *>(LUMSTR("x")));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMTimeZoneGetSecondsFromGMT(notZone, 0); }, "_LUMTypeCheckValid(tz, LUMTimeZoneGetTypeID())",
                                  "LUMTimeZoneGetSecondsFromGMT", "src/LUMTimeZone", 308));
    EXPECT_TRUE(DiesWithAssertion([&] { LUMTimeZoneGetName(notZone); }, "_LUMTypeCheckValid(tz, LUMTimeZoneGetTypeID())",
                                  "LUMTimeZoneGetName", "src/LUMTimeZone", 294));
}

TEST(LUMTimeZone, TableIsReadOnlyData)
{
    // The names are constant objects: retain and release leave them alone.
    LUMTimeZoneRef tz = Zone("Europe/Paris");
    LUMStringRef name = LUMTimeZoneGetName(tz);
    EXPECT_EQ(LUMGetAllocator(name), _kLUMAllocatorConstant);
    EXPECT_EQ(LUMGetRetainCount(name), 1);
    LUMRelease(tz);
}

TEST(LUMTimeZone, AgreesWithTheSystemZoneData)
{
    std::string table = TableRelease(), system = SystemRelease();
    ASSERT_FALSE(table.empty());
    if (system.empty()) GTEST_SKIP() << "the system has no tzdata.zi to name its release";
    // With newer system data only instants before the table's release year
    // are compared; later differences are printed, not failed.
    LUMAbsoluteTime limit = At(2038, 1, 1);
    if (system != table) limit = At(std::atoi(table.substr(0, 4).c_str()), 1, 1);
    LUMArrayRef names = LUMTimeZoneCopyKnownNames();
    int zonesChecked = 0, instantsChecked = 0;
    std::ostringstream changedLater;
    const char *savedTZ = getenv("TZ");
    std::string saved = savedTZ != nullptr ? savedTZ : "";
    for (LUMIndex i = 0; i < LUMArrayGetCount(names); i++) {
        LUMStringRef name = static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(names, i));
        std::string zoneName = Text(name);
        if (zoneName == "Canada/East-Saskatchewan") continue; // gone from today's data
        setenv("TZ", zoneName.c_str(), 1);
        tzset();
        // Zones that observe daylight saving today.
        bool observes = false;
        for (int month : {1, 7}) {
            time_t probe = static_cast<time_t>(At(2025, month, 15) + 978307200.0);
            struct tm local;
            localtime_r(&probe, &local);
            observes = observes || local.tm_isdst > 0;
        }
        if (!observes) continue;
        LUMTimeZoneRef tz = LUMTimeZoneCreateWithName(nullptr, name, false);
        zonesChecked++;
        bool laterDiffers = false;
        // The table keeps this zone's transitions from 2000 on, and only
        // instants after its second record get a real offset: find the
        // second change of offset after 2000-01-01 in the system's data.
        LUMAbsoluteTime start = At(2000, 1, 1);
        int changes = 0;
        long previous = 0;
        for (LUMAbsoluteTime t = start; changes < 3 && t < At(2037, 12, 31); t += 3 * 3600.0) {
            time_t unix = static_cast<time_t>(t + 978307200.0);
            struct tm local;
            localtime_r(&unix, &local);
            long key = local.tm_gmtoff * 2 + (local.tm_isdst > 0);
            if (t > At(2000, 1, 1) && key != previous) {
                changes++;
                start = t + 86400.0;
            }
            if (changes == 2) break;
            previous = key;
        }
        // From there to 2037, every 5 days and 7 hours.
        for (LUMAbsoluteTime t = start; t < At(2037, 12, 31); t += 5 * 86400.0 + 7 * 3600.0) {
            time_t unix = static_cast<time_t>(t + 978307200.0);
            struct tm local;
            localtime_r(&unix, &local);
            bool agree = LUMTimeZoneGetSecondsFromGMT(tz, t) == static_cast<double>(local.tm_gmtoff) &&
                         LUMTimeZoneIsDaylightSavingTime(tz, t) == (local.tm_isdst > 0);
            if (t < limit) {
                ASSERT_TRUE(agree) << zoneName << " at " << t << ": " << LUMTimeZoneGetSecondsFromGMT(tz, t) << " vs "
                                   << local.tm_gmtoff;
                instantsChecked++;
            } else if (!agree) {
                laterDiffers = true;
            }
        }
        if (laterDiffers) changedLater << " " << zoneName;
        LUMRelease(tz);
    }
    if (savedTZ != nullptr) setenv("TZ", saved.c_str(), 1);
    else unsetenv("TZ");
    tzset();
    LUMRelease(names);
    EXPECT_GT(zonesChecked, 100);
    if (!changedLater.str().empty())
        printf("zones whose rules changed after tz data %s (system %s):%s\n", table.c_str(), system.c_str(), changedLater.str().c_str());
    printf("%d zones, %d instants compared (table %s, system %s)\n", zonesChecked, instantsChecked, table.c_str(), system.c_str());
}

namespace {

/* A zone as the system's compiled TZif file (64-bit part) gives it. */
struct SystemZone {
    struct Type {
        int32_t utoff;
        bool isdst;
        std::string abbr;
    };
    std::vector<int64_t> times;
    std::vector<Type> typeAt; // the type that holds from times[i] on
    Type initial;             // before the first transition
    std::string footer;

    /* The offset and daylight flag in force at a Unix time. */
    const Type &At(int64_t unix) const
    {
        const Type *type = &initial;
        for (size_t i = 0; i < times.size() && times[i] <= unix; i++) type = &typeAt[i];
        return *type;
    }
};

int64_t BigEndian(const unsigned char *p, int bytes)
{
    uint64_t value = 0;
    for (int i = 0; i < bytes; i++) value = value << 8 | p[i];
    if (bytes == 4) return static_cast<int32_t>(static_cast<uint32_t>(value));
    return static_cast<int64_t>(value);
}

bool ReadSystemZone(const std::string &name, SystemZone &zone)
{
    std::ifstream in("/usr/share/zoneinfo/" + name, std::ios::binary);
    std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (data.size() < 44 || data.compare(0, 4, "TZif") != 0 || data[4] < '2') return false;
    auto bytes = reinterpret_cast<const unsigned char *>(data.data());
    auto counts = [&](size_t at, int64_t c[6]) {
        for (int i = 0; i < 6; i++) c[i] = BigEndian(bytes + at + 20 + 4 * i, 4);
    };
    int64_t c[6]; // isutcnt, isstdcnt, leapcnt, timecnt, typecnt, charcnt
    counts(0, c);
    size_t at = 44 + c[3] * 5 + c[4] * 6 + c[5] + c[2] * 8 + c[1] + c[0];
    counts(at, c);
    at += 44;
    std::vector<int> indices;
    for (int64_t i = 0; i < c[3]; i++) zone.times.push_back(BigEndian(bytes + at + 8 * i, 8));
    at += 8 * c[3];
    for (int64_t i = 0; i < c[3]; i++) indices.push_back(bytes[at + i]);
    at += c[3];
    std::vector<SystemZone::Type> types;
    size_t chars = at + 6 * c[4];
    for (int64_t i = 0; i < c[4]; i++) {
        const unsigned char *t = bytes + at + 6 * i;
        types.push_back({static_cast<int32_t>(BigEndian(t, 4)), t[4] != 0, std::string(data.c_str() + chars + t[5])});
    }
    at = chars + c[5] + c[2] * 12 + c[1] + c[0];
    size_t footerEnd = data.find('\n', at + 1);
    zone.footer = data.substr(at + 1, footerEnd - at - 1);
    for (int index : indices) zone.typeAt.push_back(types[index]);
    zone.initial = types[0];
    return true;
}

} // namespace

TEST(LUMTimeZone, ZonesWithoutDaylightSavingEndAtTheirLastRealChange)
{
    std::string table = TableRelease(), system = SystemRelease();
    if (system.empty() || system != table) GTEST_SKIP() << "the system's tz data is not the table's release";
    constexpr int64_t kEndOf32BitTime = 2147483647, kEnd2050 = 2556144000;
    constexpr double kSince1970 = 978307200.0;
    LUMArrayRef names = LUMTimeZoneCopyKnownNames();
    int zonesChecked = 0, endingZones = 0, daylightZones = 0;
    for (LUMIndex i = 0; i < LUMArrayGetCount(names); i++) {
        LUMStringRef name = static_cast<LUMStringRef>(LUMArrayGetValueAtIndex(names, i));
        std::string zoneName = Text(name);
        // A name gone from today's data answers as the zone it was an alias of.
        std::string systemName = zoneName == "Canada/East-Saskatchewan" ? "America/Regina" : zoneName;
        SystemZone zone;
        ASSERT_TRUE(ReadSystemZone(systemName, zone)) << zoneName;
        if (zone.footer.find(',') != std::string::npos) { // daylight saving today: the test above
            daylightZones++;
            continue;
        }
        // The records the table keeps: the explicit changes before 2051,
        // without a closing placeholder that repeats the record before it.
        std::vector<int64_t> records;
        for (size_t k = 0; k < zone.times.size() && zone.times[k] < kEnd2050; k++) {
            const SystemZone::Type &type = zone.typeAt[k];
            bool placeholder = zone.times[k] == kEndOf32BitTime && k > 0 && type.utoff == zone.typeAt[k - 1].utoff &&
                               type.isdst == zone.typeAt[k - 1].isdst && type.abbr == zone.typeAt[k - 1].abbr;
            if (!placeholder) records.push_back(zone.times[k]);
        }
        LUMTimeZoneRef tz = LUMTimeZoneCreateWithName(nullptr, name, false);
        zonesChecked++;
        auto expectSystem = [&](int64_t unix) {
            const SystemZone::Type &type = zone.At(unix);
            EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(tz, static_cast<double>(unix) - kSince1970), static_cast<double>(type.utoff))
                << zoneName << " at " << unix;
            EXPECT_EQ(LUMTimeZoneIsDaylightSavingTime(tz, static_cast<double>(unix) - kSince1970), type.isdst) << zoneName << " at " << unix;
        };
        auto expectZero = [&](int64_t unix) {
            EXPECT_EQ(LUMTimeZoneGetSecondsFromGMT(tz, static_cast<double>(unix) - kSince1970), 0.0) << zoneName << " at " << unix;
        };
        if (records.size() >= 2) {
            // Between the second record and the last real change: the
            // system's offset, checked in every interval and just before the end.
            for (size_t k = 0; k + 1 < records.size(); k++) expectSystem(records[k] + (records[k + 1] - records[k]) / 2);
            expectSystem(records[1] - 1);
            expectSystem(records.back() - 1);
            // From the last real change on: 0.0, also through 2038 and later.
            expectZero(records.back());
            expectZero(records.back() + 86400);
            if (records.back() < kEndOf32BitTime - 1) {
                expectZero(kEndOf32BitTime - 1);
                expectZero(kEndOf32BitTime + 86400);
            }
            if (records.back() < kEndOf32BitTime - 86400 * 365) endingZones++;
        } else {
            expectZero(0);
            expectZero(kEndOf32BitTime - 1);
        }
        LUMRelease(tz);
    }
    LUMRelease(names);
    EXPECT_GT(zonesChecked, 300);
    EXPECT_EQ(zonesChecked + daylightZones, 547); // every name, here or in the test above
    EXPECT_GT(endingZones, 150);
    printf("%d zones without daylight saving compared, %d with a last change before 2037\n", zonesChecked, endingZones);
}
