/* LUMBenchJSON.cpp — reading and writing the usual JSON documents beside
 * cJSON, jansson and json-c, each library building its own tree from the
 * same bytes (and printing its own tree of the same document, unformatted);
 * also an object of 100,000 keys and a string of a megabyte. Families are
 * named JSONRead_<library>/<document> and JSONWrite_<library>/<document>
 * (lumbase: the compatible reader and writer; lumjson: the standard ones);
 * scripts/bench prints MB/s and the ratios. Part of LumBase; MIT licence. */
#include <LumBase.h>

#include "LUMBench.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#ifdef LUM_BENCH_HAVE_LIBCJSON
#include <cjson/cJSON.h>
#endif
#ifdef LUM_BENCH_HAVE_JANSSON
#include <jansson.h>
#endif

const std::string &lumbench::Document(const std::string &name)
{
    static std::string keys, string, canada, citm, twitter;
    if (name == "keys100k") {
        if (keys.empty()) {
            keys = "{";
            for (int i = 0; i < 100000; i++) keys += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
            keys += "}";
        }
        return keys;
    }
    if (name == "string1mb") {
        if (string.empty()) string = "[\"" + std::string(1 << 20, 'x') + "\"]";
        return string;
    }
    std::string &text = name == "canada" ? canada : (name == "citm_catalog" ? citm : twitter);
    if (text.empty()) {
        std::ifstream in(std::string(LUM_BENCH_CORPUS) + "/" + name + ".json", std::ios::binary);
        std::stringstream bytes;
        bytes << in.rdbuf();
        text = bytes.str();
    }
    return text;
}

namespace {

using lumbench::Document;

void JSONRead_lumbase(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    LUMDataRef data = LUMDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8 *>(text.data()),
                                                   static_cast<LUMIndex>(text.size()), kLUMAllocatorNull);
    for (auto _ : state) {
        LUMPropertyListRef plist = LUMPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr);
        benchmark::DoNotOptimize(plist);
        LUMRelease(plist);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    LUMRelease(data);
}

void JSONWrite_lumbase(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(text.data()), static_cast<LUMIndex>(text.size()));
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

/* The standard JSON functions: JSONRead_lumjson and JSONWrite_lumjson. */
void JSONRead_lumjson(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    LUMDataRef data = LUMDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8 *>(text.data()),
                                                   static_cast<LUMIndex>(text.size()), kLUMAllocatorNull);
    for (auto _ : state) {
        LUMPropertyListRef plist = LUMJSONCreateWithData(nullptr, data, 0, nullptr);
        if (plist == nullptr) state.SkipWithError("not read");
        benchmark::DoNotOptimize(plist);
        LUMRelease(plist);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
    LUMRelease(data);
}

void JSONWrite_lumjson(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    LUMDataRef data = LUMDataCreate(nullptr, reinterpret_cast<const UInt8 *>(text.data()), static_cast<LUMIndex>(text.size()));
    LUMPropertyListRef plist = LUMJSONCreateWithData(nullptr, data, 0, nullptr);
    int64_t written = 0;
    for (auto _ : state) {
        LUMDataRef json = LUMJSONCreateData(nullptr, plist, 0, nullptr);
        written += LUMDataGetLength(json);
        LUMRelease(json);
    }
    state.SetBytesProcessed(written);
    LUMRelease(plist);
    LUMRelease(data);
}

#ifdef LUM_BENCH_HAVE_LIBCJSON
void JSONRead_cjson(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    for (auto _ : state) {
        cJSON *tree = cJSON_ParseWithLength(text.data(), text.size());
        benchmark::DoNotOptimize(tree);
        cJSON_Delete(tree);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
void JSONWrite_cjson(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    cJSON *tree = cJSON_ParseWithLength(text.data(), text.size());
    int64_t written = 0;
    for (auto _ : state) {
        char *out = cJSON_PrintUnformatted(tree);
        written += static_cast<int64_t>(strlen(out));
        cJSON_free(out);
    }
    state.SetBytesProcessed(written);
    cJSON_Delete(tree);
}
#endif

#ifdef LUM_BENCH_HAVE_JANSSON
void JSONRead_jansson(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    for (auto _ : state) {
        json_t *tree = json_loadb(text.data(), text.size(), 0, nullptr);
        benchmark::DoNotOptimize(tree);
        json_decref(tree);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
void JSONWrite_jansson(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    json_t *tree = json_loadb(text.data(), text.size(), 0, nullptr);
    int64_t written = 0;
    for (auto _ : state) {
        char *out = json_dumps(tree, JSON_COMPACT);
        written += static_cast<int64_t>(strlen(out));
        free(out);
    }
    state.SetBytesProcessed(written);
    json_decref(tree);
}
#endif

} // namespace

LUM_JSON_BENCH(lumbase);
LUM_JSON_BENCH(lumjson);
#ifdef LUM_BENCH_HAVE_LIBCJSON
LUM_JSON_BENCH(cjson);
#endif
#ifdef LUM_BENCH_HAVE_JANSSON
LUM_JSON_BENCH(jansson);
#endif
