/* LUMBench.cpp — benchmarks of the JSON reader and writer over the usual
 * documents, the formatting engine, dictionary lookups and run-loop passes.
 * Part of LumBase; MIT licence. */
#include <LumBase.h>

#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

LUMDataRef Corpus(const char *name)
{
    std::ifstream in(std::string(LUM_BENCH_CORPUS) + "/" + name, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    std::string bytes = text.str();
    return LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(bytes.data()), static_cast<LUMIndex>(bytes.size()));
}

void ReadJSON(benchmark::State &state, const char *name)
{
    LUMDataRef data = Corpus(name);
    if (LUMDataGetLength(data) == 0) state.SkipWithError("corpus not found");
    for (auto _ : state) {
        LUMPropertyListRef plist = LUMPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
        benchmark::DoNotOptimize(plist);
        LUMRelease(plist);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * LUMDataGetLength(data));
    LUMRelease(data);
}

void WriteJSON(benchmark::State &state, const char *name)
{
    LUMDataRef data = Corpus(name);
    LUMPropertyListRef plist = LUMPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
    int64_t written = 0;
    for (auto _ : state) {
        LUMDataRef json = LUMPropertyListCreateData(nullptr, plist, kLUMPropertyListJSONFormat, 0, nullptr);
        written += LUMDataGetLength(json);
        LUMRelease(json);
    }
    state.SetBytesProcessed(written);
    LUMRelease(plist);
    LUMRelease(data);
}

void Format(benchmark::State &state)
{
    LUMStringRef name = LUMSTR("LumBase");
    for (auto _ : state) {
        LUMStringRef s = LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("%@ %d %5.2f %s %x"), name, 42, 3.14159, "text", 255);
        benchmark::DoNotOptimize(s);
        LUMRelease(s);
    }
}

void DictionaryLookup(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    LUMMutableDictionaryRef d = LUMDictionaryCreateMutable(nullptr, 0, &kLUMTypeDictionaryKeyCallBacks, &kLUMTypeDictionaryValueCallBacks);
    std::vector<LUMStringRef> keys;
    for (int i = 0; i < count; i++) {
        keys.push_back(LUMStringCreateWithFormat(nullptr, nullptr, LUMSTR("key%d"), i));
        LUMDictionarySetValue(d, keys.back(), kLUMNull);
    }
    int i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(LUMDictionaryGetValue(d, keys[static_cast<size_t>(i++ % count)]));
    for (LUMStringRef k : keys) LUMRelease(k);
    LUMRelease(d);
}

void RunLoopPass(benchmark::State &state)
{
    LUMRunLoopSourceContext context = {};
    context.perform = [](void *) {};
    LUMRunLoopSourceRef source = LUMRunLoopSourceCreate(nullptr, 0, &context);
    LUMRunLoopAddSource(LUMRunLoopGetCurrent(), source, kLUMRunLoopDefaultMode);
    for (auto _ : state) {
        LUMRunLoopSourceSignal(source);
        LUMRunLoopRunInMode(kLUMRunLoopDefaultMode, 0.0, true);
    }
    LUMRunLoopSourceInvalidate(source);
    LUMRelease(source);
}

} // namespace

BENCHMARK_CAPTURE(ReadJSON, canada, "canada.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadJSON, citm_catalog, "citm_catalog.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadJSON, twitter, "twitter.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WriteJSON, citm_catalog, "citm_catalog.json")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(WriteJSON, twitter, "twitter.json")->Unit(benchmark::kMillisecond);
BENCHMARK(Format);
BENCHMARK(DictionaryLookup)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(RunLoopPass);

int main(int argc, char **argv)
{
    LUMInitialize(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
