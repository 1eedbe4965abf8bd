/* LUMBench.cpp — the core's operations beside their peers: object creation
 * beside malloc and free, formatting beside snprintf, dictionary and set
 * lookups beside GLib's GHashTable, constant strings, and long byte-form
 * strings beside the same text in unit form. Each comparison is one
 * benchmark family with a "lumbase" variant and one per peer; scripts/bench
 * prints the ratios. Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#ifdef LUM_BENCH_HAVE_GLIB_2_0
#include <glib.h>
#endif

namespace {

/* ---- Objects beside malloc and free ---------------------------------------- */

void NumberCreate_lumbase(benchmark::State &state)
{
    int32_t value = 42;
    for (auto _ : state) {
        LUMNumberRef n = LUMNumberCreate(nullptr, kLUMNumberSInt32Type, &value);
        benchmark::DoNotOptimize(n);
        LUMRelease(n);
    }
}
void StringCreate_lumbase(benchmark::State &state)
{
    for (auto _ : state) {
        LUMStringRef s = LUMStringCreateWithCString(nullptr, "hello", kLUMStringEncodingUTF8);
        benchmark::DoNotOptimize(s);
        LUMRelease(s);
    }
}
void DataCreate_lumbase(benchmark::State &state)
{
    const UInt8 bytes[16] = {1, 2, 3};
    for (auto _ : state) {
        LUMDataRef d = LUMDataCreate(nullptr, bytes, sizeof(bytes));
        benchmark::DoNotOptimize(d);
        LUMRelease(d);
    }
}
/* The peer: malloc and free of the same bytes (object and contents). */
void MallocFree(benchmark::State &state, size_t first, size_t second)
{
    for (auto _ : state) {
        void *a = malloc(first);
        void *b = second > 0 ? malloc(second) : nullptr;
        benchmark::DoNotOptimize(a);
        benchmark::DoNotOptimize(b);
        free(b);
        free(a);
    }
}
void NumberCreate_malloc(benchmark::State &state) { MallocFree(state, 40, 0); }
void StringCreate_malloc(benchmark::State &state) { MallocFree(state, 64, 6); }
void DataCreate_malloc(benchmark::State &state) { MallocFree(state, 64, 16); }

/* ---- Formatting beside snprintf -------------------------------------------- */

/* An object argument, made when the benchmark runs (after start-up). */
struct ObjectText {
    const char *text;
};
template <typename T>
T resolve(T value) { return value; }
LUMStringRef resolve(ObjectText object) { return LUMSTR(object.text); }

template <typename... Args>
void Format_resolved(benchmark::State &state, const char *format, Args... args);
template <typename... Args>
void Format_lumbase(benchmark::State &state, const char *format, Args... args)
{
    Format_resolved(state, format, resolve(args)...); // objects made once, as a caller has them
}
template <typename... Args>
void Format_resolved(benchmark::State &state, const char *format, Args... args)
{
    LUMStringRef formatString = LUMSTR(format);
    char buffer[256];
    for (auto _ : state) {
        LUMStringRef s = LUMStringCreateWithFormat(nullptr, nullptr, formatString, args...);
        LUMStringGetCString(s, buffer, sizeof(buffer), kLUMStringEncodingUTF8);
        benchmark::DoNotOptimize(buffer);
        LUMRelease(s);
    }
}
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <typename... Args>
void Format_snprintf(benchmark::State &state, const char *format, Args... args)
{
    char buffer[256];
    for (auto _ : state) {
        // The format is opaque to the compiler, so that snprintf really runs.
        benchmark::DoNotOptimize(format);
        snprintf(buffer, sizeof(buffer), format, args...);
        benchmark::DoNotOptimize(buffer);
    }
}
#pragma GCC diagnostic pop

/* ---- Lookups beside GHashTable ---------------------------------------------- */

std::vector<std::string> KeyTexts(int count)
{
    std::vector<std::string> texts;
    for (int i = 0; i < count; i++) texts.push_back("key" + std::to_string(i * 7919));
    return texts;
}

void DictionaryGet_lumbase(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    std::vector<LUMStringRef> keys;
    for (const std::string &text : KeyTexts(count)) {
        keys.push_back(LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8));
        LUMDictionarySetValue(d, keys.back(), kLUMNull);
    }
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(LUMDictionaryGetValue(d, keys[i++ % keys.size()]));
    for (LUMStringRef k : keys) LUMRelease(k);
    LUMRelease(d);
}

void SetContains_lumbase(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    LUMMutableSetRef set = LUMSetCreateMutable(nullptr, 0, &kLUMTypeSetCallBacks);
    std::vector<LUMStringRef> keys;
    for (const std::string &text : KeyTexts(count)) {
        keys.push_back(LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8));
        LUMSetAddValue(set, keys.back());
    }
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(LUMSetContainsValue(set, keys[i++ % keys.size()]));
    for (LUMStringRef k : keys) LUMRelease(k);
    LUMRelease(set);
}

#ifdef LUM_BENCH_HAVE_GLIB_2_0
void HashLookup(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    GHashTable *table = g_hash_table_new(g_str_hash, g_str_equal);
    std::vector<std::string> texts = KeyTexts(count);
    for (const std::string &text : texts) g_hash_table_insert(table, const_cast<char *>(text.c_str()), table);
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(g_hash_table_lookup(table, texts[i++ % texts.size()].c_str()));
    g_hash_table_destroy(table);
}
void DictionaryGet_ghashtable(benchmark::State &state) { HashLookup(state); }
void SetContains_ghashtable(benchmark::State &state) { HashLookup(state); }
#endif

/* ---- Constant strings ------------------------------------------------------- */

void ConstantAfterThousand_lumbase(benchmark::State &state)
{
    static std::vector<std::string> texts = KeyTexts(1000); // live for the process, as LUMSTR needs
    for (const std::string &text : texts) LUMSTR(text.c_str());
    for (auto _ : state) benchmark::DoNotOptimize(LUMSTR("hello after a thousand"));
}

/* ---- Long byte-form strings beside unit form --------------------------------- */

LUMStringRef MegabyteText(bool unitForm)
{
    std::string text;
    while (text.size() < (1u << 20)) text += "abababababc\xC3\xA9";
    LUMStringRef bytes = LUMStringCreateWithCString(nullptr, text.c_str(), kLUMStringEncodingUTF8);
    if (!unitForm) return bytes;
    LUMStringRef units = LUMStringCreateMutableCopy(nullptr, 0, bytes);
    LUMRelease(bytes);
    return units;
}

void Pass(benchmark::State &state, bool unitForm)
{
    LUMStringRef text = MegabyteText(unitForm);
    LUMIndex length = LUMStringGetLength(text);
    for (auto _ : state) {
        LUMStringInlineBuffer buffer;
        LUMStringInitInlineBuffer(text, &buffer, LUMRangeMake(0, length));
        unsigned sum = 0;
        for (LUMIndex i = 0; i < length; i++) sum += LUMStringGetCharacterFromInlineBuffer(&buffer, i);
        benchmark::DoNotOptimize(sum);
    }
    LUMRelease(text);
}
void Find(benchmark::State &state, bool unitForm)
{
    LUMStringRef text = MegabyteText(unitForm);
    for (auto _ : state) benchmark::DoNotOptimize(LUMStringFind(text, LUMSTR("ababababababc"), 0));
    LUMRelease(text);
}
void BytePass_lumbase(benchmark::State &state) { Pass(state, false); }
void BytePass_unitform(benchmark::State &state) { Pass(state, true); }
void ByteFind_lumbase(benchmark::State &state) { Find(state, false); }
void ByteFind_unitform(benchmark::State &state) { Find(state, true); }

} // namespace

int main(int argc, char **argv)
{
    LUMInitialize(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

BENCHMARK(NumberCreate_lumbase);
BENCHMARK(NumberCreate_malloc);
BENCHMARK(StringCreate_lumbase);
BENCHMARK(StringCreate_malloc);
BENCHMARK(DataCreate_lumbase);
BENCHMARK(DataCreate_malloc);
BENCHMARK_CAPTURE(Format_lumbase, d, "%d", 123456);
BENCHMARK_CAPTURE(Format_snprintf, d, "%ld", 123456L);
BENCHMARK_CAPTURE(Format_lumbase, x, "%x", 0xBEEF);
BENCHMARK_CAPTURE(Format_snprintf, x, "%lx", 0xBEEFL);
BENCHMARK_CAPTURE(Format_lumbase, s, "%s", "text");
BENCHMARK_CAPTURE(Format_snprintf, s, "%s", "text");
BENCHMARK_CAPTURE(Format_lumbase, object, "%@", ObjectText{"object"});
BENCHMARK_CAPTURE(Format_snprintf, object, "%s", "object");
BENCHMARK_CAPTURE(Format_lumbase, f, "%5.2f", 3.14159);
BENCHMARK_CAPTURE(Format_snprintf, f, "%5.2f", 3.14159);
BENCHMARK_CAPTURE(Format_lumbase, g, "%g", 2.5e-7);
BENCHMARK_CAPTURE(Format_snprintf, g, "%g", 2.5e-7);
BENCHMARK_CAPTURE(Format_lumbase, six, "%d %x %s %5.2f %g %d", 1, 255, "text", 3.14159, 0.5, -7);
BENCHMARK_CAPTURE(Format_snprintf, six, "%ld %lx %s %5.2f %g %ld", 1L, 255L, "text", 3.14159, 0.5, -7L);
BENCHMARK(DictionaryGet_lumbase)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(SetContains_lumbase)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
#ifdef LUM_BENCH_HAVE_GLIB_2_0
BENCHMARK(DictionaryGet_ghashtable)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(SetContains_ghashtable)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
#endif
BENCHMARK(ConstantAfterThousand_lumbase);
BENCHMARK(BytePass_lumbase)->Unit(benchmark::kMillisecond);
BENCHMARK(BytePass_unitform)->Unit(benchmark::kMillisecond);
BENCHMARK(ByteFind_lumbase)->Unit(benchmark::kMillisecond);
BENCHMARK(ByteFind_unitform)->Unit(benchmark::kMillisecond);
