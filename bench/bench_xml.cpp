// Parsing speed and peak memory of the XML parser against libxml2's xmllint
// on the same generated documents, in one run:
//   sequence_10MB  a sequence-like document of many small nested elements
//   texts_1MB      a string-table-like document of long element texts
// Both sides read the file, build a tree and free it. xmllint is timed by its
// own "--timing --repeat" report, so its process start-up is not counted;
// peak memory is the maximum resident set of a separate process that only
// reads and parses the one document (this program re-run with --rss, or
// xmllint --noout), next to the same process on an empty document.
//
//   bash scripts/build.sh build-bench -DKELM_BENCH=ON -DKELM_TESTS=OFF -DCMAKE_BUILD_TYPE=Release
//   ./build-bench/bench/bench_xml
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "log.h"
#include "utils.h"
#include "xml.h"

namespace
{

std::string bench_dir;
std::map<std::string, std::string> bench_files; // document name -> path
std::map<std::string, double> bench_speed;      // "kelm/" or "xmllint/" + document name -> MB/s

std::string make_sequence(size_t target)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- generated sequence -->\n"
                       "<sequence id=\"install\" version=\"2\">\n";
    for (int n = 0; text.size() < target; n++) {
        std::string i = std::to_string(n);
        text += "  <step id=\"step_" + i + "\" condition=\"${KELM_MODE} == install\" action=\"welcome_" + i +
                "\">\n"
                "    <action id=\"a_" +
                i + "\" type=\"dialog\" dialog=\"dlg_" + i +
                "\">\n"
                "      <set property=\"PROP_" +
                i + "\" value=\"value " + i +
                "\"/>\n"
                "      <next action=\"a_" +
                std::to_string(n + 1) +
                "\" condition=\"EXIT_CODE == 0\"/>\n"
                "      <next action=\"_back_\" condition=\"HANDLE == BACK\"/>\n"
                "    </action>\n"
                "    <title>Step " +
                i + "</title>\n  </step>\n";
    }
    text += "</sequence>\n";
    return text;
}

std::string make_texts(size_t target)
{
    static const char* words[] = {"install", "the", "product", "components", "into",   "directory,", "please",
                                  "review",  "and", "confirm", "license",    "terms;", "disk",       "space"};
    std::string text = "<?xml version=\"1.0\"?>\n<strings lang=\"en\">\n";
    unsigned seed = 7;
    for (int n = 0; text.size() < target; n++) {
        text += "<string name=\"msg_" + std::to_string(n) + "\">";
        size_t length = 2000 + (n * 977) % 6000;
        size_t begin = text.size();
        while (text.size() - begin < length) {
            seed = seed * 1103515245 + 12345;
            text += words[(seed >> 16) % (sizeof words / sizeof *words)];
            text += (seed >> 8) % 11 == 0 ? "\n" : " ";
        }
        text += "</string>\n";
    }
    text += "</strings>\n";
    return text;
}

double seconds_since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Reads, parses and frees one file, as each round of xmllint does.
void BM_kelm(benchmark::State& state, const std::string& name)
{
    const std::string& path = bench_files[name];
    int64_t bytes = file_size(path.c_str());
    double total = 0;
    for (auto _ : state) {
        auto start = std::chrono::steady_clock::now();
        char* text = get_file(path.c_str(), true);
        document_t document;
        if (!text || xml_parse(text, &document) != 0) {
            state.SkipWithError("parse failed");
            free(text);
            break;
        }
        xml_free(&document);
        free(text);
        double took = seconds_since(start);
        total += took;
        state.SetIterationTime(took);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
    if (total > 0)
        bench_speed["kelm/" + name] = state.iterations() * bytes / total / 1048576.0;
}

// xmllint reads, parses and frees the file 100 times in one process and
// reports the time taken; one iteration here is one of those rounds.
void BM_xmllint(benchmark::State& state, const std::string& name)
{
    const std::string& path = bench_files[name];
    int64_t bytes = file_size(path.c_str());
    std::string command = "xmllint --timing --repeat --noout '" + path + "' 2>&1";
    double total = 0;
    for (auto _ : state) {
        std::string report = get_command_output(command.c_str());
        const char* at = strstr(report.c_str(), " iterations took ");
        int rounds = 0;
        long ms = 0;
        while (at && at > report.c_str() && at[-1] >= '0' && at[-1] <= '9')
            at--;
        if (!at || sscanf(at, "%d iterations took %ld ms", &rounds, &ms) != 2 || rounds <= 0) {
            state.SkipWithError(("xmllint failed: " + report).c_str());
            break;
        }
        double took = ms / 1000.0 / rounds;
        total += took;
        state.SetIterationTime(took);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
    if (total > 0)
        bench_speed["xmllint/" + name] = state.iterations() * bytes / total / 1048576.0;
}

std::string self_path;

// Peak resident set, in KiB, of a process running the program with two
// arguments. It is started from a fresh copy of this program (--measure), so
// that the large memory of this one doesn't count towards the child's peak.
long peak_rss_kib(const std::string& program, const std::string& first, const std::string& second)
{
    std::string command = "'" + self_path + "' --measure '" + program + "' '" + first + "' '" + second + "'";
    std::string output = get_command_output(command.c_str());
    return output.empty() ? -1 : atol(output.c_str());
}

// Run with --measure: start the program, wait for it, print its peak.
int measure(char** argv)
{
    pid_t child = fork();
    if (child == 0) {
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(null, 2);
        execvp(argv[0], argv);
        _exit(127);
    }
    int status = 0;
    struct rusage usage;
    if (child < 0 || wait4(child, &status, 0, &usage) < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return 1;
    printf("%ld\n", usage.ru_maxrss);
    return 0;
}

void BM_peak_rss(benchmark::State& state, const std::string& name)
{
    const std::string& path = bench_files[name];
    const std::string& empty = bench_files["empty"];
    double doc_mb = file_size(path.c_str()) / 1048576.0;
    long kelm = 0, kelm_idle = 0, lint = 0, lint_idle = 0;
    for (auto _ : state) {
        kelm = peak_rss_kib(self_path, "--rss", path);
        kelm_idle = peak_rss_kib(self_path, "--rss", empty);
        lint = peak_rss_kib("xmllint", "--noout", path);
        lint_idle = peak_rss_kib("xmllint", "--noout", empty);
    }
    state.counters["doc_MB"] = doc_mb;
    state.counters["kelm_MB"] = kelm / 1024.0;
    state.counters["kelm_over_idle_MB"] = (kelm - kelm_idle) / 1024.0;
    state.counters["xmllint_MB"] = lint / 1024.0;
    state.counters["xmllint_over_idle_MB"] = (lint - lint_idle) / 1024.0;
}

// Run with --rss: read and parse one file, nothing else.
int rss_probe(const char* path)
{
    char* text = get_file(path, true);
    document_t document;
    if (!text || xml_parse(text, &document) != 0)
        return 1;
    return 0;
}

std::string write_document(const std::string& name, const std::string& text)
{
    std::string path = bench_dir + "/" + name + ".xml";
    write_file(path.c_str(), text.c_str());
    return path;
}

} // namespace

int main(int argc, char** argv)
{
    log_disable();
    if (argc == 3 && strcmp(argv[1], "--rss") == 0)
        return rss_probe(argv[2]);
    if (argc > 2 && strcmp(argv[1], "--measure") == 0)
        return measure(argv + 2);
    char* self = realpath("/proc/self/exe", nullptr);
    self_path = self ? self : argv[0];
    free(self);

    char templ[] = "/tmp/kelm-bench-xml-XXXXXX";
    if (!mkdtemp(templ)) {
        perror("mkdtemp");
        return 1;
    }
    bench_dir = templ;
    bench_files["sequence_10MB"] = write_document("sequence_10MB", make_sequence(10 << 20));
    bench_files["texts_1MB"] = write_document("texts_1MB", make_texts(1 << 20));
    bench_files["empty"] = write_document("empty", "<a/>\n");

    for (const char* name : {"sequence_10MB", "texts_1MB"}) {
        std::string document(name);
        benchmark::RegisterBenchmark(("kelm_parse/" + document).c_str(), BM_kelm, document)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("xmllint_parse/" + document).c_str(), BM_xmllint, document)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("peak_rss/" + document).c_str(), BM_peak_rss, document)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    for (const char* name : {"sequence_10MB", "texts_1MB"}) {
        double ours = bench_speed[std::string("kelm/") + name], theirs = bench_speed[std::string("xmllint/") + name];
        if (ours > 0 && theirs > 0)
            printf("%-14s kelm %8.1f MB/s   xmllint %8.1f MB/s   ratio %.2f\n", name, ours, theirs, ours / theirs);
    }
    execute_args("rm", ("-rf '" + bench_dir + "'").c_str());
    return 0;
}
