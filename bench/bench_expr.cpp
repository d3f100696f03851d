// Expansion of dialog texts and evaluation of conditions against a session
// of 300 properties. Baselines in the same run: copying the text, and one
// property lookup.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "cond.h"
#include "env.h"
#include "log.h"

namespace
{

// A session shaped like a real one: engine settings, answers, and string
// table entries whose texts refer to other properties.
session_t* bench_session()
{
    static session_t* session = nullptr;
    if (session)
        return session;
    session = new session_t;
    log_disable();
    env_set_string(session, "PRODUCT_NAME", "Orvan Studio");
    env_set_string(session, "PRODUCT_VERSION", "2024.1.0");
    env_set_string(session, "INSTALL_DIR", "/opt/orvan/studio_2024");
    env_set_string(session, "KELM_MODE", "install");
    env_set_string(session, "ARCH", "x86_64");
    env_set_string(session, "LANG", "en_US.UTF-8");
    env_set_string(session, "DISK_REQUIRED", "2.4 GB");
    env_set_string(session, "welcome_title", "Welcome to the ${PRODUCT_NAME} ${PRODUCT_VERSION} installation");
    env_set_string(session, "next_hint", "Press &quot;Enter&quot; to continue or &lt;q&gt; to quit.");
    for (int i = 0; i < 293; i++) {
        std::string number = std::to_string(i);
        if (i % 3 == 0)
            env_set_string(session, "dialog_text_" + number, "Line " + number + " of the ${PRODUCT_NAME} wizard");
        else if (i % 3 == 1)
            env_set_string(session, "COMPONENT_" + number + "_SELECTED", i % 2 ? "1" : "0");
        else
            env_set_string(session, "prop_" + number, "value number " + number);
    }
    return session;
}

const char* const dialog_texts[] = {
    // 0: plain text, nothing to replace.
    "Please read the following license agreement carefully before you continue.",
    // 1: a title with two references.
    "${PRODUCT_NAME} ${PRODUCT_VERSION} will be installed into ${INSTALL_DIR}.",
    // 2: a string-table key whose value refers further.
    "${welcome_title}",
    // 3: entities and a quoted whole.
    "\"${next_hint} (&lt;Esc&gt; goes back)\"",
    // 4: a longer paragraph with several references.
    "The installation of ${PRODUCT_NAME} requires ${DISK_REQUIRED} of free space in ${INSTALL_DIR}. "
    "Components selected: ${COMPONENT_1_SELECTED}, ${COMPONENT_4_SELECTED}, ${COMPONENT_7_SELECTED}. "
    "${dialog_text_3} ${dialog_text_6} Architecture ${ARCH}, language ${LANG}.",
};

void BM_CopyTextBaseline(benchmark::State& state)
{
    const char* text = dialog_texts[state.range(0)];
    for (auto _ : state) {
        char* copy = strdup(text);
        benchmark::DoNotOptimize(copy);
        free(copy);
    }
}
BENCHMARK(BM_CopyTextBaseline)->DenseRange(0, 4);

void BM_LookupBaseline(benchmark::State& state)
{
    session_t* session = bench_session();
    for (auto _ : state)
        benchmark::DoNotOptimize(env_get_string(session, "INSTALL_DIR"));
}
BENCHMARK(BM_LookupBaseline);

void BM_ExpandDialogText(benchmark::State& state)
{
    session_t* session = bench_session();
    const char* text = dialog_texts[state.range(0)];
    for (auto _ : state) {
        char* expanded = expand_operand(session, text);
        benchmark::DoNotOptimize(expanded);
        free(expanded);
    }
}
BENCHMARK(BM_ExpandDialogText)->DenseRange(0, 4);

const char* const condition_terms[] = {
    "${KELM_MODE} = install", "AND ${ARCH} -eq x86_64",      "OR ${PRODUCT_VERSION} >= 2023.4",
    "AND NOT ${SILENT} = 1",  "AND ${INSTALL_DIR} << /opt/", "XOR ${LANG} =~ ^en_",
};

std::string condition_of(int terms)
{
    std::string text;
    for (int i = 0; i < terms; i++)
        text += std::string(i ? " " : "") + condition_terms[i];
    return text;
}

void BM_ExistsBaseline(benchmark::State& state)
{
    session_t* session = bench_session();
    for (auto _ : state)
        benchmark::DoNotOptimize(env_exists(session, "KELM_MODE"));
}
BENCHMARK(BM_ExistsBaseline);

void BM_Condition(benchmark::State& state)
{
    session_t* session = bench_session();
    std::string text = condition_of((int)state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(cond_is_true(text.c_str(), session));
}
BENCHMARK(BM_Condition)->DenseRange(1, 6);

// The engine logs every step of an evaluation; the same work with the log
// written (to /dev/null) shows what that costs.
void BM_WithLog(benchmark::State& state)
{
    session_t* session = bench_session();
    log_init(nullptr, "/dev/null");
    std::string text = condition_of(3);
    for (auto _ : state) {
        if (state.range(0) == 0) {
            char* expanded = expand_operand(session, dialog_texts[1]);
            benchmark::DoNotOptimize(expanded);
            free(expanded);
        } else {
            benchmark::DoNotOptimize(cond_is_true(text.c_str(), session));
        }
    }
    log_disable();
}
BENCHMARK(BM_WithLog)->Arg(0)->Arg(1);

} // namespace

BENCHMARK_MAIN();
