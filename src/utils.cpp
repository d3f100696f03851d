// Shared helpers: regular expressions, strings, files, processes and text
// readers. Each reports through the log and returns a neutral value.
#include "utils.h"

#include <dirent.h>
#include <libgen.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "env.h"
#include "log.h"

regex_t* get_regex(const char* pattern, int flags)
{
    if (!pattern) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    regex_t* regex = (regex_t*)calloc(1, sizeof(regex_t));
    if (!regex)
        return nullptr;
    if (regcomp(regex, pattern, flags) != 0) {
        free(regex);
        return nullptr;
    }
    return regex;
}

void free_regex(regex_t** regex)
{
    if (!regex || !*regex)
        return;
    regfree(*regex);
    free(*regex);
    *regex = nullptr;
}

static void report_regex_error(regex_t* regex, int rc)
{
    char message[256];
    regerror(rc, regex, message, sizeof message);
    error("Regular expression matching error: %s\n", message);
}

int regmatch(regex_t* regex, const char* text, int eflags)
{
    if (!regex || !text) {
        LOG_NULL_PARAM();
        return -1;
    }
    int rc = regexec(regex, text, 0, nullptr, eflags);
    if (rc == 0)
        return 1;
    if (rc == REG_NOMATCH)
        return 0;
    report_regex_error(regex, rc);
    return -1;
}

regmatch_t* get_regmatch(regex_t* regex, const char* text, int eflags)
{
    if (!regex || !text) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    size_t count = regex->re_nsub + 1;
    regmatch_t* matches = (regmatch_t*)calloc(count + 1, sizeof(regmatch_t));
    if (!matches)
        return nullptr;
    int rc = regexec(regex, text, count, matches, eflags);
    if (rc != 0) {
        if (rc != REG_NOMATCH)
            report_regex_error(regex, rc);
        free(matches);
        return nullptr;
    }
    matches[count].rm_so = -1;
    matches[count].rm_eo = -1;
    return matches;
}

void free_regmatch(regmatch_t** matches)
{
    if (!matches)
        return;
    free(*matches);
    *matches = nullptr;
}

char* get_string(const char* format, ...)
{
    if (!format) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    va_list args;
    va_start(args, format);
    int size = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (size < 0) {
        error("Unexpected error: Can't detect buffer size\n");
        return nullptr;
    }
    char* text = (char*)malloc(size + 1);
    if (!text) {
        error("%s:%d: allocation of parameter failed", __FILE__, __LINE__);
        return nullptr;
    }
    va_start(args, format);
    int written = vsnprintf(text, size + 1, format, args);
    va_end(args);
    if (written < 0 || written > size) {
        error("Unexpected error: Can't format string\n");
        free(text);
        return nullptr;
    }
    return text;
}

void free_string(char** text)
{
    if (!text) {
        LOG_NULL_PARAM();
        return;
    }
    free(*text);
    *text = nullptr;
}

void* get_more_memory(void* pointer, size_t size)
{
    void* grown = realloc(pointer, size);
    if (!grown)
        error("Can't allocate memory\n");
    return grown;
}

char* get_basename(const char* path)
{
    if (!path) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    char* copy = strdup(path);
    char* result = strdup(basename(copy));
    free(copy);
    return result;
}

char* get_dirname(const char* path)
{
    if (!path) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    char* copy = strdup(path);
    char* result = strdup(dirname(copy));
    free(copy);
    return result;
}

std::string getExtension(const std::string& name)
{
    size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

std::string stringFromInteger(int64_t number)
{
    return std::to_string(number);
}

int64_t integerFromString(const std::string& text)
{
    return atoll(text.c_str());
}

void* castStringToEnvPointer(const std::string& text)
{
    return (void*)(intptr_t)atoll(text.c_str());
}

std::string trimSpaces(const std::string& text)
{
    size_t start = 0, end = text.size();
    while (start < end && isspace((unsigned char)text[start]))
        start++;
    while (end > start && isspace((unsigned char)text[end - 1]))
        end--;
    return text.substr(start, end - start);
}

int string_is_empty(const char* text)
{
    print_log("string_is_empty: %s", text ? text : "(null)");
    int empty = 1;
    for (const char* c = text; c && *c; c++) {
        if (!isspace((unsigned char)*c)) {
            empty = 0;
            break;
        }
    }
    print_log("string_is_empty: returns %d", empty);
    return empty;
}

std::string remove_newlines(const std::string& text)
{
    print_log("remove_newlines: got [%s]", text.c_str());
    std::string result = replaceAllSubstrings(replaceAllSubstrings(text, "\n", " "), "<br>", " ");
    print_log("remove_newlines: return [%s]", result.c_str());
    return result;
}

std::string replaceAllSubstrings(const std::string& text, const std::string& what, const std::string& with)
{
    if (what.empty())
        return text;
    std::string result;
    result.reserve(text.size());
    size_t from = 0;
    for (size_t at; (at = text.find(what, from)) != std::string::npos; from = at + what.size()) {
        result.append(text, from, at - from);
        result += with;
    }
    result.append(text, from, std::string::npos);
    return result;
}

bool exists(const char* path)
{
    struct stat st;
    return path && stat(path, &st) == 0;
}

bool is_file(const char* path)
{
    struct stat st;
    return path && stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

bool is_dir(const char* path)
{
    struct stat st;
    return path && stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

int64_t file_size(const char* path)
{
    if (!path) {
        error("file_size: path is NULL");
        return -1;
    }
    struct stat st;
    if (stat(path, &st) != 0) {
        error("Can't stat file \"%s\": %s\n", path, strerror(errno));
        return -1;
    }
    return st.st_size;
}

int remove_file(const char* path, bool ignore_missing)
{
    if (!path) {
        LOG_NULL_PARAM();
        return -1;
    }
    if (unlink(path) == 0 || (ignore_missing && errno == ENOENT))
        return 0;
    error("Can't delete file \"%s\": %s\n", path, strerror(errno));
    return -1;
}

int remove_dir(const char* path)
{
    if (!path) {
        LOG_NULL_PARAM();
        return -1;
    }
    DIR* dir = opendir(path);
    if (!dir) {
        error("Can't delete directory \"%s\": %s\n", path, strerror(errno));
        return -1;
    }
    int rc = 0;
    while (struct dirent* entry = readdir(dir)) {
        if (!strcmp(entry->d_name, ".") || !strcmp(entry->d_name, ".."))
            continue;
        std::string child = std::string(path) + "/" + entry->d_name;
        struct stat st;
        if (lstat(child.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
            if (remove_dir(child.c_str()) != 0)
                rc = -1;
        } else if (unlink(child.c_str()) != 0) {
            error("Can't delete file \"%s\": %s\n", child.c_str(), strerror(errno));
            rc = -1;
        }
    }
    closedir(dir);
    if (rmdir(path) != 0) {
        error("Can't delete directory \"%s\": %s\n", path, strerror(errno));
        rc = -1;
    }
    return rc;
}

int write_file(const char* path, const char* text)
{
    if (!path || !text) {
        LOG_NULL_PARAM();
        return -1;
    }
    FILE* file = fopen(path, "w");
    if (!file) {
        error("Can't write file \"%s\": %s\n", path, strerror(errno));
        return -1;
    }
    size_t length = strlen(text);
    bool ok = fwrite(text, 1, length, file) == length;
    if (fclose(file) != 0)
        ok = false;
    if (!ok) {
        error("Can't write file \"%s\": %s\n", path, strerror(errno));
        return -1;
    }
    return 0;
}

char* get_user_home(const char* user)
{
    if (!user || !*user) {
        const char* home = getenv("HOME");
        return home ? strdup(home) : nullptr;
    }
    struct passwd* entry = getpwnam(user);
    return entry && entry->pw_dir ? strdup(entry->pw_dir) : nullptr;
}

std::string get_arch(void)
{
    struct utsname name;
    if (uname(&name) != 0) {
        error("Can't get machine hardware name: %s\n", strerror(errno));
        return "";
    }
    return name.machine;
}

char* path(const char* text)
{
    return text ? strdup(text) : nullptr;
}

int remove_dir_if_empty(const char* path)
{
    if (!path) {
        LOG_NULL_PARAM();
        return -1;
    }
    DIR* dir = opendir(path);
    if (!dir) {
        error("remove_dir_if_empty: can't delete directory \"%s\": %s\n", path, strerror(errno));
        return -1;
    }
    while (struct dirent* entry = readdir(dir)) {
        if (!strcmp(entry->d_name, ".") || !strcmp(entry->d_name, ".."))
            continue;
        std::string child = std::string(path) + "/" + entry->d_name;
        struct stat st;
        if (lstat(child.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
            remove_dir_if_empty(child.c_str());
    }
    closedir(dir);
    return rmdir(path);
}

int is_writable(const char* path)
{
    if (is_file(path)) {
        FILE* file = fopen(path, "w+");
        if (!file)
            return 0;
        fclose(file);
        return 1;
    }
    struct stat st;
    if (path && stat(path, &st) == 0)
        return (st.st_mode & S_IWUSR) ? 1 : 0;
    return 0;
}

int execute_args(const char* program, const char* arguments)
{
    if (!program) {
        error("execute_args: executable name is null");
        return -1;
    }
    std::string command = std::string("\"") + program + "\"";
    if (arguments)
        command += std::string(" ") + arguments;
    int rc = system(command.c_str());
    print_log("execute_args: return code is %d", rc);
    return rc >> 8;
}

std::string get_command_output(const char* command)
{
    if (!command) {
        error("get_command_output: command is NULL");
        return "";
    }
    fflush(nullptr);
    FILE* pipe = popen(command, "r");
    if (!pipe) {
        error("get_command_output: cannot execute command '%s'.", command);
        return "";
    }
    std::string output;
    char buffer[1024];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, got);
    pclose(pipe);
    return output;
}

char* get_next_line(char* buffer, int size, int* position)
{
    if (!buffer || !position || *position >= size)
        return nullptr;
    char* start = buffer + *position;
    for (int i = *position; i < size; i++) {
        if (buffer[i] == '\n') {
            buffer[i] = '\0';
            *position = i + 1;
            return start;
        }
        if (buffer[i] == '\r' && i + 1 < size && buffer[i + 1] == '\n') {
            buffer[i] = buffer[i + 1] = '\0';
            *position = i + 2;
            return start;
        }
    }
    *position = size;
    return start;
}

char** parse_ini_line(const char* line, int* count, char delimiter)
{
    if (count)
        *count = 0;
    if (!line || !count) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    print_log("parse_ini_line: got line %s", line);
    if (!*line || *line == '#') {
        print_log("parse_ini_line: line is empty or comment");
        return nullptr;
    }
    int capacity = 10, found = 0;
    char** pieces = (char**)malloc(capacity * sizeof(char*));
    if (!pieces) {
        error("%s:%d: allocation of parameter failed", __FILE__, __LINE__);
        return nullptr;
    }
    size_t length = strlen(line), at = 0;
    while (at < length) {
        const char* end = strchr(line + at, delimiter);
        size_t piece = end ? (size_t)(end - (line + at)) : length - at;
        if (found == capacity) {
            capacity += 10;
            char** grown = (char**)realloc(pieces, capacity * sizeof(char*));
            if (!grown) {
                error("%s:%d: allocation of parameter failed", __FILE__, __LINE__);
                free_ini_pieces(pieces, found);
                return nullptr;
            }
            pieces = grown;
        }
        pieces[found] = strndup(line + at, piece);
        print_log("parse_ini_line: found component is %s", pieces[found]);
        found++;
        at += piece + 1;
    }
    *count = found;
    return pieces;
}

void free_ini_pieces(char** pieces, int count)
{
    if (!pieces)
        return;
    for (int i = 0; i < count; i++)
        free(pieces[i]);
    free(pieces);
}

std::vector<std::string> splitStringIntoTokens(const std::string& text, const std::string& separator, bool keep_empty)
{
    std::vector<std::string> tokens;
    if (text.empty())
        return tokens;
    if (separator.empty()) {
        tokens.push_back(text);
        return tokens;
    }
    size_t from = 0;
    while (true) {
        size_t at = text.find(separator, from);
        std::string piece = text.substr(from, at == std::string::npos ? std::string::npos : at - from);
        if (!piece.empty() || keep_empty)
            tokens.push_back(piece);
        if (at == std::string::npos)
            break;
        from = at + separator.size();
    }
    return tokens;
}

std::vector<std::string> readContentOfTextFile(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path);
    if (!in) {
        error("readContentOfTextFile: cannot read content of file %s", path.c_str());
        return lines;
    }
    std::string line;
    while (std::getline(in, line))
        lines.push_back(line);
    return lines;
}

char* get_file(const char* path, bool quiet)
{
    if (!path) {
        if (!quiet)
            LOG_NULL_PARAM();
        return nullptr;
    }
    FILE* file = fopen(path, "rb");
    if (!file) {
        if (!quiet)
            error("Can't read file \"%s\": %s\n", path, strerror(errno));
        return nullptr;
    }
    struct stat st;
    long size = 0;
    if (fstat(fileno(file), &st) == 0)
        size = st.st_size;
    if (size > 1073741824L && !quiet)
        error("Can't read file \"%s\": %s\n", path, "File too big");
    char* content = (char*)malloc(size + 1);
    if (!content) {
        error("%s:%d: allocation of parameter failed", __FILE__, __LINE__);
        fclose(file);
        return nullptr;
    }
    size_t got = fread(content, 1, size, file);
    content[got] = '\0';
    if (fclose(file) != 0) {
        if (!quiet)
            error("Can't close file \"%s\": %s\n", path, strerror(errno));
        free(content);
        return nullptr;
    }
    return content;
}

std::string get_file_or_command(const char* text)
{
    if (!text) {
        LOG_NULL_PARAM();
        return "";
    }
    size_t length = strlen(text);
    if (length > 3 && !strncmp(text, "$(", 2) && text[length - 1] == ')') {
        char* command = strndup(text + 2, length - 3);
        char* decoded = env_replace_tags(command);
        std::string output = get_command_output(decoded);
        if (decoded != command)
            free(decoded);
        free(command);
        return output;
    }
    char* content = get_file(text, true);
    std::string result = content ? content : "";
    free(content);
    return result;
}

int get_terminal_columns(void)
{
    struct winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
        return 0;
    return size.ws_col;
}

std::string get_component_name_with_size(const std::string& name, const std::string& size, int reserve)
{
    int columns = get_terminal_columns();
    if (columns > 80 || columns < 10)
        columns = 80;
    const int base_limit = columns - reserve;
    std::string out, line;
    bool first = true;
    int limit = base_limit;
    size_t last_break = std::string::npos;

    auto finish_line = [&](bool last) {
        if (first) {
            int width = limit + reserve - (int)line.size();
            char padded[4200];
            snprintf(padded, sizeof padded, "%*s", width > 0 ? width : 0, size.c_str());
            line += padded;
            first = false;
        }
        out += line;
        if (!last)
            out += "\n";
        line.clear();
        limit = base_limit;
        last_break = std::string::npos;
    };

    for (size_t i = 0; i < name.size(); i++) {
        unsigned char c = name[i];
        if (c == '\n') {
            finish_line(false);
            continue;
        }
        if (c >= 0xF0)
            limit += 3;
        else if (c >= 0xE0)
            limit += 1;
        else if (c >= 0xC0)
            limit += 1;
        else if (c > 0x7F && (c & 0xC0) != 0x80)
            print_log("unknown char");
        if ((int)line.size() >= limit && (c & 0xC0) != 0x80) {
            bool next_newline = i + 1 < name.size() && name[i + 1] == '\n';
            if (c == ' ' || next_newline) {
                if (c != ' ')
                    line += (char)c;
                finish_line(false);
                if (next_newline)
                    i++;
                continue;
            }
            if (last_break != std::string::npos && last_break > 0) {
                std::string rest = line.substr(last_break + 1);
                line.erase(last_break);
                finish_line(false);
                line = rest;
            } else {
                finish_line(false);
            }
        }
        if (c == ' ')
            last_break = line.size();
        line += (char)c;
    }
    finish_line(true);
    return out;
}
