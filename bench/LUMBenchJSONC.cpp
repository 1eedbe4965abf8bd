/* LUMBenchJSONC.cpp — json-c's side of the JSON comparison (its names clash
 * with jansson's, so it has a file of its own). Part of LumBase; MIT licence. */
#include "LUMBench.h"

#include <cstring>

#ifdef LUM_BENCH_HAVE_JSON_C
#include <json-c/json.h>

namespace {

using lumbench::Document;

void JSONRead_jsonc(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    for (auto _ : state) {
        json_tokener *tokener = json_tokener_new_ex(JSON_TOKENER_DEFAULT_DEPTH);
        json_object *tree = json_tokener_parse_ex(tokener, text.data(), static_cast<int>(text.size()));
        benchmark::DoNotOptimize(tree);
        json_object_put(tree);
        json_tokener_free(tokener);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
void JSONWrite_jsonc(benchmark::State &state, const char *name)
{
    const std::string &text = Document(name);
    json_object *tree = json_tokener_parse(text.c_str());
    int64_t written = 0;
    for (auto _ : state) {
        const char *out = json_object_to_json_string_ext(tree, JSON_C_TO_STRING_PLAIN);
        written += static_cast<int64_t>(strlen(out));
    }
    state.SetBytesProcessed(written);
    json_object_put(tree);
}

} // namespace

LUM_JSON_BENCH(jsonc);
#endif
