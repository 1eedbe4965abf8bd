/* LUMBench.h — what the benchmark files share: the JSON documents and the
 * registration of one library's JSON benchmarks. Part of LumBase; MIT licence. */
#ifndef LUMBASE_BENCH_H
#define LUMBASE_BENCH_H

#include <benchmark/benchmark.h>

#include <string>

namespace lumbench {
/* The bytes of a benchmark document: canada, citm_catalog, twitter (from the
 * shared corpus), keys100k (an object of 100,000 keys) or string1mb. */
const std::string &Document(const std::string &name);
} // namespace lumbench

#define LUM_JSON_BENCH(library)                                                                        \
    BENCHMARK_CAPTURE(JSONRead_##library, canada, "canada")->Unit(benchmark::kMillisecond);              \
    BENCHMARK_CAPTURE(JSONRead_##library, citm_catalog, "citm_catalog")->Unit(benchmark::kMillisecond);  \
    BENCHMARK_CAPTURE(JSONRead_##library, twitter, "twitter")->Unit(benchmark::kMillisecond);            \
    BENCHMARK_CAPTURE(JSONRead_##library, keys100k, "keys100k")->Unit(benchmark::kMillisecond);          \
    BENCHMARK_CAPTURE(JSONRead_##library, string1mb, "string1mb")->Unit(benchmark::kMillisecond);        \
    BENCHMARK_CAPTURE(JSONWrite_##library, canada, "canada")->Unit(benchmark::kMillisecond);             \
    BENCHMARK_CAPTURE(JSONWrite_##library, citm_catalog, "citm_catalog")->Unit(benchmark::kMillisecond); \
    BENCHMARK_CAPTURE(JSONWrite_##library, twitter, "twitter")->Unit(benchmark::kMillisecond)

#endif
