#include "testutil.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "log.h"
#include "store.h"

TempDir::TempDir()
{
    char templ[] = "/tmp/kelm-test-XXXXXX";
    path = mkdtemp(templ);
}

TempDir::~TempDir()
{
    std::string command = "rm -rf '" + path + "'";
    if (system(command.c_str()) != 0)
        fprintf(stderr, "could not remove %s\n", path.c_str());
}

std::string read_text(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

void write_text(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary);
    out << text;
}

void open_test_log(const std::string& path)
{
    log_init(nullptr, path.c_str());
}

std::string run_command(const std::string& command, int* status)
{
    fflush(nullptr);
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    char buffer[4096];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, got);
    int rc = pclose(pipe);
    if (status)
        *status = WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    return output;
}

void write_cab(const std::string& path, const std::vector<CabEntry>& entries)
{
    std::vector<cab_entry_src_t> sources(entries.size());
    for (size_t i = 0; i < entries.size(); i++) {
        sources[i] = {};
        sources[i].component = entries[i].component.c_str();
        sources[i].name = entries[i].name.c_str();
        sources[i].data = entries[i].data.c_str();
        sources[i].data_size = (int64_t)entries[i].data.size();
        if (!entries[i].source.empty())
            sources[i].source = entries[i].source.c_str();
    }
    char message[256] = "";
    ASSERT_EQ(store_write_cab_file(path.c_str(), sources.data(), (int)sources.size(), false, message, sizeof message),
              0)
        << message;
}

bool log_reports_error(const std::string& log, const std::string& message)
{
    for (size_t at = log.find(message); at != std::string::npos; at = log.find(message, at + 1)) {
        size_t start = log.rfind('\n', at);
        start = start == std::string::npos ? 0 : start;
        if (log.substr(start, at - start).find(" - ERROR: ") != std::string::npos)
            return true;
    }
    return false;
}
