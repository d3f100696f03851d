// Small shared helpers: regular expressions, strings, files, processes, and
// the line and token readers behind the engine's small text formats.
// Functions returning char* hand over memory the caller frees with free().
#ifndef KELM_UTILS_H
#define KELM_UTILS_H

#include <regex.h>

#include <cstdint>
#include <string>
#include <vector>

// Regular expressions (POSIX; flag 1 selects extended syntax).
regex_t* get_regex(const char* pattern, int flags);
void free_regex(regex_t** regex);
// 1 on a match, 0 on none, -1 on error.
int regmatch(regex_t* regex, const char* text, int eflags);
// One record per group plus the whole match, then an end mark with both
// offsets -1; null on no match or error. Free with free_regmatch.
regmatch_t* get_regmatch(regex_t* regex, const char* text, int eflags);
void free_regmatch(regmatch_t** matches);

// Strings.
char* get_string(const char* format, ...) __attribute__((format(printf, 1, 2)));
void free_string(char** text);
void* get_more_memory(void* pointer, size_t size);
char* get_basename(const char* path);
char* get_dirname(const char* path);
std::string getExtension(const std::string& name);
std::string stringFromInteger(int64_t number);
int64_t integerFromString(const std::string& text);
void* castStringToEnvPointer(const std::string& text);
std::string trimSpaces(const std::string& text);
// 1 when the text holds only white space or nothing.
int string_is_empty(const char* text);
// Newlines and "<br>" become one blank each.
std::string remove_newlines(const std::string& text);
std::string replaceAllSubstrings(const std::string& text, const std::string& what, const std::string& with);

// Files.
bool exists(const char* path);
bool is_file(const char* path);
bool is_dir(const char* path);
int64_t file_size(const char* path);
int remove_file(const char* path, bool ignore_missing);
int remove_dir(const char* path);
int write_file(const char* path, const char* text);
// Empty user: a copy of HOME; otherwise the password database's home; or null.
char* get_user_home(const char* user);
std::string get_arch(void);
char* path(const char* text);
// Deletes the empty directories of a tree; keeps any directory holding files.
int remove_dir_if_empty(const char* path);
// Beware: opening a regular file with "w+" empties it.
int is_writable(const char* path);

// Processes.
// Runs "program" arguments through system(); returns the exit status.
int execute_args(const char* program, const char* arguments);
// All the command wrote to standard output; the empty string on failure.
std::string get_command_output(const char* command);

// Text readers.
// The next line of an in-memory buffer, cut in place; null at the end.
char* get_next_line(char* buffer, int size, int* position);
// Splits a line at a delimiter; null for an empty or comment line. The
// caller frees each piece and the array.
char** parse_ini_line(const char* line, int* count, char delimiter);
void free_ini_pieces(char** pieces, int count);
std::vector<std::string> splitStringIntoTokens(const std::string& text, const std::string& separator, bool keep_empty);
std::vector<std::string> readContentOfTextFile(const std::string& path);
// The whole file, NUL-terminated, or null.
char* get_file(const char* path, bool quiet);
// "$(command)" runs the command; anything else is read as a file's path.
std::string get_file_or_command(const char* text);

// A name wrapped to the terminal's width with the size right-aligned on its
// first line.
std::string get_component_name_with_size(const std::string& name, const std::string& size, int reserve);

// The terminal's columns from TIOCGWINSZ on standard output, 0 when it is no
// terminal.
int get_terminal_columns(void);

#endif
