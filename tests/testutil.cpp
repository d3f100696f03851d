#include "testutil.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "log.h"

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
