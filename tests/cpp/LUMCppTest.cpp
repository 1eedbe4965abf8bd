/* LUMCppTest.cpp — the C++ layer (LumBase.hpp), built as C++17 with
 * -fno-exceptions -fno-rtti. Every test runs with the library's
 * leak-checking allocator as the default and ends by asserting that no
 * block it handed out is still open. */
#include <LumBase.hpp>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

using namespace lum::literals;

static_assert(sizeof(lum::Ref<LUMStringRef>) == sizeof(void *));
static_assert(sizeof(lum::Ref<LUMMutableArrayRef>) == sizeof(void *));
static_assert(sizeof(lum::Ref<LUMTypeRef>) == sizeof(void *));
static_assert(std::is_nothrow_move_constructible_v<lum::Ref<LUMStringRef>>);
static_assert(!std::is_convertible_v<lum::Ref<LUMTypeRef>, lum::Ref<LUMStringRef>>, "no silent down-casts");

namespace {

class LeakChecked : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        // What the library makes once and keeps (the run loop and its
        // modes) is made before the leak checker starts.
        LUMRunLoopRef loop = LUMRunLoopGetCurrent();
        LUMRunLoopTimerRef warm = LUMRunLoopTimerCreate(nullptr, LUMAbsoluteTimeGetCurrent(), 0, 0, 0, nullptr, nullptr);
        LUMRunLoopAddTimer(loop, warm, kLUMRunLoopCommonModes);
        LUMRunLoopAddTimer(loop, warm, kLUMRunLoopDefaultMode);
        LUMRunLoopTimerInvalidate(warm);
        LUMRelease(warm);
    }
    void SetUp() override
    {
        previous_ = LUMAllocatorGetDefault();
        LUMRetain(previous_);
        checker_ = LUMTestCreateTestAllocator(kLUMAllocatorSystemDefault);
        LUMAllocatorSetDefault(checker_);
    }
    void TearDown() override
    {
        EXPECT_TRUE(LUMTestAllocatorCheckOpenAllocations(nullptr, checker_)) << "blocks left open";
        LUMAllocatorSetDefault(previous_);
        LUMRelease(previous_);
        LUMRelease(checker_);
    }

private:
    LUMAllocatorRef previous_ = nullptr;
    LUMAllocatorRef checker_ = nullptr;
};

int gDestroyed = 0;
/* Counts its destructions: captured state of callbacks. */
struct Tracker {
    bool live = true;
    Tracker() = default;
    Tracker(const Tracker &) = default;
    Tracker(Tracker &&other) noexcept : live(other.live) { other.live = false; }
    ~Tracker()
    {
        if (live) gDestroyed++;
    }
};

} // namespace

using Cpp = LeakChecked;

TEST_F(Cpp, RefAdoptsRetainsCopiesMovesAndReleases)
{
    auto owned = lum::adopt(LUMStringCreateWithCString(nullptr, "text", kLUMStringEncodingUTF8));
    EXPECT_EQ(LUMGetRetainCount(owned.get()), 1);
    {
        lum::Ref<LUMStringRef> copy = owned;
        EXPECT_EQ(LUMGetRetainCount(owned.get()), 2);
        lum::Ref<LUMStringRef> moved = std::move(copy);
        EXPECT_FALSE(copy);
        EXPECT_EQ(LUMGetRetainCount(owned.get()), 2);
        lum::Ref<LUMTypeRef> widened = moved;
        EXPECT_EQ(LUMGetRetainCount(owned.get()), 3);
    }
    EXPECT_EQ(LUMGetRetainCount(owned.get()), 1);
    auto array = lum::array({owned});
    auto borrowed = lum::retain(LUMArrayGetValueAtIndex(array.get(), 0));
    EXPECT_EQ(LUMGetRetainCount(owned.get()), 3);
    borrowed.reset();
    // Back to C: release() hands the reference over.
    LUMStringRef handed = lum::Ref<LUMStringRef>(owned).release();
    EXPECT_EQ(LUMGetRetainCount(owned.get()), 3);
    LUMRelease(handed);
    lum::Ref<LUMStringRef> assigned;
    assigned = owned;
    assigned = assigned; // self-assignment keeps the reference
    EXPECT_EQ(LUMGetRetainCount(owned.get()), 3);
}

TEST_F(Cpp, RefsCompareAndHashByValue)
{
    auto a = lum::string("key");
    auto b = lum::string("key");
    EXPECT_NE(a.get(), b.get());
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);
    EXPECT_TRUE(lum::Ref<LUMStringRef>() == lum::Ref<LUMStringRef>());
    EXPECT_FALSE(a == lum::Ref<LUMStringRef>());
    EXPECT_EQ(std::hash<lum::Ref<LUMStringRef>>()(a), std::hash<lum::Ref<LUMStringRef>>()(b));
    std::unordered_map<lum::Ref<LUMStringRef>, int> counts;
    counts[a]++;
    counts[b]++;
    counts[lum::string("other")]++;
    EXPECT_EQ(counts.size(), 2u);
    EXPECT_EQ(counts[a], 2);
    std::unordered_set<lum::Ref<LUMTypeRef>> numbers = {lum::number(1), lum::number(1), lum::number(2)};
    EXPECT_EQ(numbers.size(), 2u);
}

TEST_F(Cpp, StringsToAndFromUTF8)
{
    const char *text = "caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80";
    auto s = lum::string(text);
    EXPECT_EQ(LUMStringGetLength(s.get()), 9); // the astral character is two units
    EXPECT_EQ(lum::toString(s), text);
    EXPECT_EQ(lum::toString(lum::string("plain")), "plain");
    EXPECT_EQ(lum::toString(lum::string(std::string("a\0b", 3))), std::string("a\0b", 3));
    EXPECT_EQ(lum::toString(lum::string("bad \xC3( \xED\xA0\x80")), "bad \xEF\xBF\xBD( \xEF\xBF\xBD");
    const UniChar lone[] = {'x', 0xD800};
    EXPECT_EQ(lum::toString(lum::adopt(LUMStringCreateWithCharacters(nullptr, lone, 2))), "x\xEF\xBF\xBD");
    EXPECT_EQ(lum::toString(static_cast<LUMStringRef>(nullptr)), "");
    LUMStringRef constant = "hello"_lum;
    EXPECT_EQ(constant, LUMSTR("hello"));
    EXPECT_EQ(lum::toString(lum::format("%@ has %d items, %s", "list"_lum, 3, std::string("fine"))), "list has 3 items, fine");
    EXPECT_EQ(lum::toString(lum::format("%@/%@", s, lum::string("seven"))), std::string(text) + "/seven");
}

TEST_F(Cpp, CollectionsBuildFromInitializerListsAndIterate)
{
    auto list = lum::array({1, 2.5, "three", true, nullptr, lum::string("five")});
    ASSERT_EQ(LUMArrayGetCount(list.get()), 6);
    std::vector<std::string> seen;
    for (LUMTypeRef v : list) seen.push_back(lum::toString(lum::adopt(LUMCopyDescription(v))));
    EXPECT_EQ(seen.size(), 6u);
    EXPECT_EQ(seen[2], "three");
    EXPECT_EQ(lum::at<LUMNumberRef>(list, 0) != nullptr, true);
    EXPECT_EQ(lum::at<LUMStringRef>(list, 0), nullptr); // a number, not a string
    EXPECT_EQ(lum::at<LUMBooleanRef>(list, 3), kLUMBooleanTrue);
    EXPECT_EQ(lum::at<LUMNullRef>(list, 4), kLUMNull);

    auto settings = lum::dictionary({{"name", "lamp"}, {"port", 8080}, {"ratio", 0.75}, {"tags", lum::array({"a", "b"})}});
    EXPECT_EQ(lum::toString(lum::get<LUMStringRef>(settings, "name"_lum)), "lamp");
    EXPECT_EQ(lum::get<LUMStringRef>(settings, "port"_lum), nullptr);
    EXPECT_EQ(lum::get<LUMNumberRef>(settings, "missing"_lum), nullptr);
    EXPECT_EQ(lum::value<int>(lum::get<LUMNumberRef>(settings, "port"_lum)), 8080);
    std::map<std::string, std::string> pairs;
    for (auto [key, value] : lum::entries(settings)) pairs[lum::toString(lum::cast<LUMStringRef>(key))] = lum::toString(lum::adopt(LUMCopyDescription(value)));
    EXPECT_EQ(pairs.size(), 4u);
    EXPECT_EQ(pairs["name"], "lamp");
    int tags = 0;
    for (LUMTypeRef tag : lum::values(lum::get<LUMArrayRef>(settings, "tags"_lum))) tags += lum::cast<LUMStringRef>(tag) != nullptr;
    EXPECT_EQ(tags, 2);

    auto set = lum::adopt(LUMSetCreateMutable(nullptr, 0, &kLUMTypeSetCallBacks));
    LUMSetAddValue(set.get(), lum::number(1).get());
    LUMSetAddValue(set.get(), lum::number(2).get());
    int64_t sum = 0;
    for (LUMTypeRef v : lum::values(set)) sum += *lum::value<int64_t>(v);
    EXPECT_EQ(sum, 3);

    auto growing = lum::mutableArray({1});
    for (LUMTypeRef v : growing) {
        if (LUMArrayGetCount(growing.get()) < 4) LUMArrayAppendValue(growing.get(), v); // the count is read every step
    }
    EXPECT_EQ(LUMArrayGetCount(growing.get()), 4);
    auto editable = lum::mutableDictionary({{"a", 1}});
    LUMDictionarySetValue(editable.get(), "b"_lum, lum::number(2).get());
    EXPECT_EQ(lum::entries(editable).size(), 2u);
}

TEST_F(Cpp, NumbersToAndFromCppTypes)
{
    EXPECT_EQ(LUMNumberGetType(lum::number(int8_t{-3}).get()), kLUMNumberSInt32Type);
    EXPECT_EQ(LUMNumberGetType(lum::number(42).get()), kLUMNumberSInt32Type);
    EXPECT_EQ(LUMNumberGetType(lum::number(4000000000u).get()), kLUMNumberSInt64Type);
    EXPECT_EQ(LUMNumberGetType(lum::number(int64_t{1} << 40).get()), kLUMNumberSInt64Type);
    EXPECT_EQ(LUMNumberGetType(lum::number(0.5f).get()), kLUMNumberFloat32Type);
    EXPECT_EQ(LUMNumberGetType(lum::number(0.5).get()), kLUMNumberDoubleType);
    EXPECT_EQ(lum::value<uint32_t>(lum::number(4000000000u).get()), 4000000000u);
    EXPECT_EQ(lum::value<int>(lum::number(int64_t{1} << 40).get()), std::nullopt);  // does not fit
    EXPECT_EQ(lum::value<int>(lum::number(2.5).get()), std::nullopt);               // not exact
    EXPECT_EQ(lum::value<double>(lum::number(3).get()), 3.0);
    EXPECT_EQ(lum::value<unsigned>(lum::number(-1).get()), std::nullopt);
    EXPECT_EQ(lum::value<double>(lum::string("3").get()), std::nullopt);            // not a number
    EXPECT_EQ(lum::value<float>(lum::number(0.5f).get()), 0.5f);
}

TEST_F(Cpp, JSONErrorsAreValues)
{
    auto good = lum::readJSON(R"({"list": [1, 2.5, "x"], "ok": true})");
    ASSERT_TRUE(good) << good.message();
    EXPECT_EQ(good.message(), "");
    auto text = lum::writeJSON(good.value, kLUMJSONWritingSortedKeys);
    ASSERT_TRUE(text);
    EXPECT_EQ(text.value, R"({"list":[1,2.5,"x"],"ok":true})");

    auto bad = lum::readJSON("[1,\n2,\n x]");
    EXPECT_FALSE(bad);
    EXPECT_FALSE(bad.value);
    EXPECT_EQ(bad.code(), kLUMJSONErrorUnexpectedCharacter);
    EXPECT_EQ(bad.message(), "Unexpected character 'x' at line 3, column 2");

    double nan = std::numeric_limits<double>::quiet_NaN();
    auto unwritable = lum::writeJSON(lum::array({nan}));
    EXPECT_FALSE(unwritable);
    EXPECT_EQ(unwritable.value, "");
    EXPECT_EQ(unwritable.code(), kLUMJSONErrorInvalidValue);
}

TEST_F(Cpp, TimersCallLambdasAndDestroyWhatTheyCaptured)
{
    gDestroyed = 0;
    int fired = 0;
    {
        auto once = lum::timer(LUMAbsoluteTimeGetCurrent(), 0, [&fired, tracker = Tracker()] { fired++; });
        auto withTimer = lum::timer(LUMAbsoluteTimeGetCurrent(), 0, [&fired](LUMRunLoopTimerRef t) {
            fired += 10;
            EXPECT_FALSE(LUMRunLoopTimerDoesRepeat(t));
        });
        LUMRunLoopAddTimer(LUMRunLoopGetCurrent(), once.get(), kLUMRunLoopDefaultMode);
        LUMRunLoopAddTimer(LUMRunLoopGetCurrent(), withTimer.get(), kLUMRunLoopDefaultMode);
        LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.2, true);
        LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.2, true);
        EXPECT_EQ(fired, 11);
        EXPECT_EQ(gDestroyed, 0); // the timers still hold their lambdas
        LUMRunLoopTimerInvalidate(once.get());
        LUMRunLoopTimerInvalidate(withTimer.get());
    }
    EXPECT_EQ(gDestroyed, 1); // the captured tracker went with its timer
}

TEST_F(Cpp, SourcesCallLambdas)
{
    gDestroyed = 0;
    int performed = 0;
    {
        auto work = lum::source([&performed, tracker = Tracker()] { performed++; });
        LUMRunLoopAddSource(LUMRunLoopGetCurrent(), work.get(), kLUMRunLoopDefaultMode);
        LUMRunLoopSourceSignal(work.get());
        LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.1, true);
        EXPECT_EQ(performed, 1);
        LUMRunLoopSourceInvalidate(work.get());
    }
    EXPECT_EQ(gDestroyed, 1);
}

TEST_F(Cpp, SocketsCallLambdas)
{
    gDestroyed = 0;
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    std::string received;
    {
        auto s = lum::watch(lum::socket(fds[0], kLUMSocketDataCallBack,
                                        [&received, tracker = Tracker()](LUMSocketRef, LUMSocketCallBackType type, LUMDataRef, const void *data) {
                                            EXPECT_EQ(type, static_cast<LUMSocketCallBackType>(kLUMSocketDataCallBack));
                                            auto bytes = static_cast<LUMDataRef>(data);
                                            received.append(reinterpret_cast<const char *>(LUMDataGetBytePtr(bytes)),
                                                            static_cast<size_t>(LUMDataGetLength(bytes)));
                                        }));
        ASSERT_EQ(write(fds[1], "ping", 4), 4);
        for (int i = 0; i < 20 && received.size() < 4; i++) LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.05, true);
        EXPECT_EQ(received, "ping");
        LUMSocketInvalidate(s.get()); // closes fds[0]
    }
    close(fds[1]);
    EXPECT_EQ(gDestroyed, 1);
}
