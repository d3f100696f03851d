// Cab and archive speed against the system's own tools, in one run:
// opening a cab of 10,000 entries, extracting a 200 MB entry against cp of
// the same bytes, and unpacking a 200 MB tar.gz against tar -xzf. The ratios
// are printed at the end. Build with -DKELM_BENCH=ON and run
// build/bench/bench_store (the Release build type gives fair numbers).
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "compress.h"
#include "log.h"
#include "session.h"
#include "store.h"

namespace
{

const int64_t BIG = 200LL << 20;
const int SMALL_ENTRIES = 10000;

std::string g_dir;

std::string path(const std::string& name)
{
    return g_dir + "/" + name;
}

void run(const std::string& command)
{
    if (system(command.c_str()) != 0) {
        fprintf(stderr, "bench_store: \"%s\" failed\n", command.c_str());
        exit(1);
    }
}

// 200 MB of text-like bytes that compress about as well as program files.
void write_big_file(const std::string& name)
{
    FILE* out = fopen(name.c_str(), "wb");
    std::vector<char> block(1 << 20);
    uint64_t state = 88172645463325252ULL;
    for (int64_t left = BIG; left > 0; left -= (int64_t)block.size()) {
        for (char& c : block) {
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            c = (char)("etaoinshrdlu_.,\n0123456789ABCDEF"[state % 32]);
        }
        fwrite(block.data(), 1, block.size(), out);
    }
    fclose(out);
}

void setup(void)
{
    char dir[] = "/tmp/kelm-bench-store-XXXXXX";
    g_dir = mkdtemp(dir);
    log_disable();

    // A cab of 10,000 small entries, as a package's layer of many files.
    std::vector<std::string> names;
    for (int i = 0; i < SMALL_ENTRIES; i++)
        names.push_back("lib/module" + std::to_string(i) + ".so");
    std::vector<cab_entry_src_t> entries(SMALL_ENTRIES);
    std::string data(64, 'x');
    for (int i = 0; i < SMALL_ENTRIES; i++) {
        cab_entry_src_t& e = entries[(size_t)i];
        e = cab_entry_src_t{};
        e.component = "core;tools";
        e.name = names[(size_t)i].c_str();
        e.install_name = "${installdir}/lib/module.so";
        e.install_uid = "root";
        e.group_id = "root";
        e.attrs = "0644";
        e.data = data.data();
        e.data_size = (int64_t)data.size();
    }
    if (store_write_cab_file(path("many.cab").c_str(), entries.data(), SMALL_ENTRIES, false, nullptr, 0) != 0)
        exit(1);

    // One 200 MB entry behind a small one (the entry with index 0 is never
    // extracted).
    write_big_file(path("big.bin"));
    std::string big = path("big.bin");
    cab_entry_src_t pair[2] = {};
    pair[0].component = "_internal_";
    pair[0].name = "product.ini";
    pair[0].data = "A=1\n";
    pair[0].data_size = 4;
    pair[1].component = "core";
    pair[1].name = "big.bin";
    pair[1].source = big.c_str();
    pair[1].cksum = "";
    if (store_write_cab_file(path("big.cab").c_str(), pair, 2, false, nullptr, 0) != 0)
        exit(1);

    run("tar --format=ustar -C " + g_dir + " -czf " + path("big.tgz") + " big.bin");
    mkdir(path("engine").c_str(), 0755);
    mkdir(path("tar").c_str(), 0755);
}

void BM_OpenCab10k(benchmark::State& state)
{
    for (auto _ : state) {
        cab_t cab;
        if (store_read_header(nullptr, &cab, path("many.cab").c_str()) != 0)
            state.SkipWithError("open failed");
        benchmark::DoNotOptimize(cab.items);
        store_release(&cab);
    }
    state.counters["entries"] = SMALL_ENTRIES;
}

// The same with the engine's log on, which takes one line per entry.
void BM_OpenCab10kLogged(benchmark::State& state)
{
    log_init(nullptr, path("bench.log").c_str());
    for (auto _ : state) {
        cab_t cab;
        store_read_header(nullptr, &cab, path("many.cab").c_str());
        store_release(&cab);
    }
    log_disable();
}

void BM_ExtractEntry200MB(benchmark::State& state)
{
    session_t session;
    store_read_header(&session, &session.cab, path("big.cab").c_str());
    std::string out = path("extracted.bin");
    for (auto _ : state)
        if (store_file_extract(&session, &session.cab, "core", "big.bin", out.c_str()) != 0)
            state.SkipWithError("extract failed");
    state.SetBytesProcessed(state.iterations() * BIG);
}

void BM_CpBaseline200MB(benchmark::State& state)
{
    std::string command = "cp " + path("big.bin") + " " + path("copied.bin");
    for (auto _ : state)
        run(command);
    state.SetBytesProcessed(state.iterations() * BIG);
}

void BM_DecompressTgz200MB(benchmark::State& state)
{
    for (auto _ : state)
        if (decompress_file(path("big.tgz").c_str(), path("engine").c_str()) != 0)
            state.SkipWithError("decompress failed");
    state.SetBytesProcessed(state.iterations() * BIG);
}

void BM_TarXzfBaseline200MB(benchmark::State& state)
{
    std::string command = "tar -C " + path("tar") + " -xzf " + path("big.tgz");
    for (auto _ : state)
        run(command);
    state.SetBytesProcessed(state.iterations() * BIG);
}

BENCHMARK(BM_OpenCab10k)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OpenCab10kLogged)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExtractEntry200MB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_CpBaseline200MB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_DecompressTgz200MB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_TarXzfBaseline200MB)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// Prints as usual and keeps each benchmark's time per iteration.
struct RatioReporter : benchmark::ConsoleReporter {
    std::map<std::string, double> seconds;
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            seconds[run.benchmark_name()] = run.GetAdjustedRealTime() / 1000.0;
    }
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    setup();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto time = [&reporter](const char* prefix) {
        for (auto& [name, seconds] : reporter.seconds)
            if (name.rfind(prefix, 0) == 0)
                return seconds;
        return 0.0;
    };
    double extract = time("BM_ExtractEntry200MB"), cp = time("BM_CpBaseline200MB");
    double untar = time("BM_DecompressTgz200MB"), tar = time("BM_TarXzfBaseline200MB");
    printf("\nopening a cab of %d entries: %.1f ms (log off), %.1f ms (log on)\n", SMALL_ENTRIES,
           time("BM_OpenCab10k/") * 1000, time("BM_OpenCab10kLogged") * 1000);
    if (cp > 0)
        printf("extracting a 200 MB entry: %.2fx the time of cp\n", extract / cp);
    if (tar > 0)
        printf("decompress_file of a 200 MB tar.gz: %.2fx the time of tar -xzf\n", untar / tar);
    run("rm -rf " + g_dir);
    return 0;
}
