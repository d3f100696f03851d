// Helpers shared by the unit tests: private temporary directories, files,
// and a log opened inside them so that reports can be inspected.
#ifndef KELM_TESTUTIL_H
#define KELM_TESTUTIL_H

#include <string>
#include <vector>

// A directory under the system's temporary folder, removed on destruction.
struct TempDir {
    std::string path;
    TempDir();
    ~TempDir();
    std::string file(const std::string& name) const { return path + "/" + name; }
};

std::string read_text(const std::string& path);
void write_text(const std::string& path, const std::string& text);

// Opens the engine log at the path (no session attached).
void open_test_log(const std::string& path);

// Runs a shell command and returns its standard output; the exit status is
// stored in *status when given.
std::string run_command(const std::string& command, int* status = nullptr);

// One entry of a cab built for a test: component, name and contents, or
// the file the contents are read from when source is set.
struct CabEntry {
    std::string component;
    std::string name;
    std::string data;
    std::string source = {}; // a file whose bytes replace data, when given
};

// Writes a cab file holding the entries in order; fails the test if the
// writer refuses.
void write_cab(const std::string& path, const std::vector<CabEntry>& entries);

// True when a line of the log text reports the message as an error.
bool log_reports_error(const std::string& log, const std::string& message);

#endif
