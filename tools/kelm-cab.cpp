// kelm-cab: makes and inspects cabs, the container files of a kelm package.
// See docs/cab-tool.md for the manifest format and examples.
#include <dirent.h>
#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "env.h"
#include "file.h"
#include "log.h"
#include "store.h"
#include "xml.h"

static const char* const USAGE =
    "usage: kelm-cab create [-a] [-C dir] [-l log] OUT MANIFEST   write a cab from a manifest (\"-\": stdin)\n"
    "       kelm-cab tree [-a] [-l log] OUT DIR [field=value ...]  write a cab of every file below DIR\n"
    "       kelm-cab list [-l log] CAB                            all fields of every entry, tab-separated\n"
    "       kelm-cab extract [-c component] CAB NAME OUT          write one entry to OUT (\"-\": stdout)\n"
    "       kelm-cab extract -i INDEX CAB OUT                     the same, by index\n"
    "       kelm-cab verify [-l log] CAB                          check that every entry reads back\n"
    "       kelm-cab package [-C dir] [-l log] [-e engine] [-s dir] OUT ROOT_MANIFEST [CAB=MANIFEST ...]\n"
    "                                     lay out a package: launchers, engine, root cab and layer cabs\n"
    "  -a  append the cab to OUT (e.g. behind a program) instead of replacing OUT\n"
    "  -C  resolve relative sources against dir (default: the manifest's directory)\n"
    "  -l  write the engine's log to this file\n"
    "  -e  the engine to put into the package (default: kelm beside this tool)\n"
    "  -s  take install.sh and uninstall.sh from dir instead of the standard launchers\n";

// The engine's log goes to memory unless -l names a file, so that a failure
// can be shown with the engine's own words.
static char* g_log_text = nullptr;
static size_t g_log_size = 0;
static FILE* g_log_memory = nullptr;

static void tool_log_open(const char* path)
{
    if (path) {
        log_init(nullptr, path);
        return;
    }
    g_log_memory = open_memstream(&g_log_text, &g_log_size);
    if (g_log_memory) {
        _g_logging_state.stream = g_log_memory;
        _g_logging_state.ready = 1;
    }
}

static void tool_log_close(void)
{
    if (!g_log_memory)
        return;
    log_disable();
    fclose(g_log_memory);
    free(g_log_text);
    g_log_memory = nullptr;
    g_log_text = nullptr;
}

// The last line the engine logged, without its time stamp.
static std::string last_log_line(void)
{
    if (!g_log_memory)
        return "see the log";
    fflush(g_log_memory);
    std::string text(g_log_text ? g_log_text : "", g_log_size);
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    size_t start = text.rfind('\n');
    std::string line = text.substr(start == std::string::npos ? 0 : start + 1);
    size_t dash = line.find(" - ");
    if (dash != std::string::npos)
        line = line.substr(dash + 3);
    for (const char* level : {"ERROR: ", "WARN: "})
        if (line.compare(0, strlen(level), level) == 0)
            line = line.substr(strlen(level));
    if (line.compare(0, 2, ": ") == 0)
        line = line.substr(2);
    return line;
}

static int fail(const char* format, ...) __attribute__((format(printf, 1, 2)));
static int fail(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    fputs("kelm-cab: ", stderr);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
    return 1;
}

// Manifest entries.

// One entry as the manifest describes it; empty strings are absent fields.
struct manifest_entry_t {
    std::map<std::string, std::string> fields;
    std::string source; // file with the bytes, or empty
    bool has_content = false;
    std::string content; // inline bytes of a "data" line
    std::string where;   // manifest line, for messages
};

static const char* const FIELD_NAMES[] = {"component", "name",  "install_name", "target_name", "type",   "uid",
                                          "group",     "attrs", "cksum",        "condition",   "content"};

// Long field names of the table map to the manifest's short ones.
static std::string canonical_field(const std::string& name)
{
    if (name == "install_uid")
        return "uid";
    if (name == "group_id")
        return "group";
    for (const char* known : FIELD_NAMES)
        if (name == known)
            return name;
    return "";
}

// A word of a manifest line: its text, and the position of an unquoted '='.
struct word_t {
    std::string text;
    long equals = -1;
};

// Splits a line into words: blanks separate, '...' is literal, "..." knows
// the escapes \" \\ \n \t, and a backslash outside quotes takes the next
// character as it is. Returns false with a message on an open quote.
static bool split_words(const std::string& line, std::vector<word_t>* words, std::string* problem)
{
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r'))
            i++;
        if (i >= line.size())
            break;
        word_t word;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') {
            char c = line[i];
            if (c == '\'') {
                size_t end = line.find('\'', i + 1);
                if (end == std::string::npos) {
                    *problem = "unclosed quote '";
                    return false;
                }
                word.text += line.substr(i + 1, end - i - 1);
                i = end + 1;
            } else if (c == '"') {
                i++;
                while (i < line.size() && line[i] != '"') {
                    if (line[i] == '\\' && i + 1 < line.size()) {
                        char next = line[++i];
                        word.text += next == 'n' ? '\n' : next == 't' ? '\t' : next;
                    } else {
                        word.text += line[i];
                    }
                    i++;
                }
                if (i >= line.size()) {
                    *problem = "unclosed quote \"";
                    return false;
                }
                i++;
            } else if (c == '\\' && i + 1 < line.size()) {
                word.text += line[i + 1];
                i += 2;
            } else {
                if (c == '=' && word.equals < 0)
                    word.equals = (long)word.text.size();
                word.text += c;
                i++;
            }
        }
        words->push_back(word);
    }
    return true;
}

struct manifest_t {
    std::vector<manifest_entry_t> entries;
    std::string base; // directory that relative sources start from
};

static std::string join_path(const std::string& base, const std::string& path)
{
    if (path.empty() || path[0] == '/' || base.empty())
        return path;
    return base + "/" + path;
}

static std::string octal_mode(mode_t mode)
{
    char text[16];
    snprintf(text, sizeof text, "%04o", (unsigned)(mode & 07777));
    return text;
}

// Fields of a line over the defaults; false with a message on a bad field.
static bool apply_fields(const std::vector<word_t>& words, size_t first, std::map<std::string, std::string>* fields,
                         std::vector<std::string>* positional, std::string* problem)
{
    for (size_t i = first; i < words.size(); i++) {
        const word_t& word = words[i];
        if (word.equals <= 0) {
            positional->push_back(word.text);
            continue;
        }
        std::string name = canonical_field(word.text.substr(0, (size_t)word.equals));
        if (name.empty()) {
            *problem = "unknown field \"" + word.text.substr(0, (size_t)word.equals) + "\"";
            return false;
        }
        (*fields)[name] = word.text.substr((size_t)word.equals + 1);
    }
    return true;
}

static void add_tree_files(const std::string& root, const std::string& relative, std::vector<std::string>* files,
                           std::vector<std::string>* skipped)
{
    std::string directory = relative.empty() ? root : root + "/" + relative;
    DIR* dir = opendir(directory.c_str());
    if (!dir) {
        skipped->push_back(directory);
        return;
    }
    std::vector<std::string> names;
    while (struct dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        std::string child = relative.empty() ? name : relative + "/" + name;
        std::string full = root + "/" + child;
        struct stat link_st, st;
        if (lstat(full.c_str(), &link_st) != 0 || stat(full.c_str(), &st) != 0) {
            skipped->push_back(full);
            continue;
        }
        if (S_ISDIR(link_st.st_mode))
            add_tree_files(root, child, files, skipped);
        else if (S_ISREG(st.st_mode))
            files->push_back(child); // symbolic links to files are stored as files
        else
            skipped->push_back(full);
    }
}

// Adds a "tree" line's entries: every file below the directory, in byte
// order of the relative paths; name and install_name are prefixes.
static bool add_tree(manifest_t* manifest, const std::string& directory, std::map<std::string, std::string> fields,
                     const std::string& where, std::string* problem)
{
    struct stat st;
    if (stat(directory.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        *problem = "\"" + directory + "\" is not a directory";
        return false;
    }
    std::vector<std::string> files, skipped;
    add_tree_files(directory, "", &files, &skipped);
    for (const std::string& path : skipped)
        fprintf(stderr, "kelm-cab: %s: skipped %s (not a regular file)\n", where.c_str(), path.c_str());
    if (!fields.count("attrs"))
        fields["attrs"] = "auto";
    std::string name_prefix = fields.count("name") ? fields["name"] : "";
    std::string install_prefix = fields.count("install_name") ? fields["install_name"] : "";
    for (const std::string& relative : files) {
        manifest_entry_t entry;
        entry.fields = fields;
        entry.source = directory + "/" + relative;
        entry.where = where;
        entry.fields["name"] = name_prefix.empty() ? relative : name_prefix + "/" + relative;
        if (!install_prefix.empty())
            entry.fields["install_name"] = install_prefix + "/" + relative;
        manifest->entries.push_back(entry);
    }
    return true;
}

// Adds one manifest line: a keyword and its words (fields and arguments).
// "set" changes the defaults instead. False after printing a problem.
static bool add_manifest_line(manifest_t* manifest, std::map<std::string, std::string>* defaults,
                              const std::string& verb, const std::vector<word_t>& words, const std::string& where)
{
    std::map<std::string, std::string> fields = *defaults;
    std::vector<std::string> positional;
    std::string problem;
    if (!apply_fields(words, 0, verb == "set" ? defaults : &fields, &positional, &problem)) {
        fail("%s: %s", where.c_str(), problem.c_str());
        return false;
    }
    if (verb != "set" && verb != "file" && verb != "data" && verb != "empty" && verb != "link" && verb != "tree") {
        fail("%s: unknown keyword \"%s\" (expected set, file, data, empty, link or tree)", where.c_str(), verb.c_str());
        return false;
    }
    size_t wanted = verb == "file" || verb == "tree" ? 1 : 0;
    if (positional.size() != wanted) {
        fail("%s: \"%s\" takes %zu source(s), got %zu", where.c_str(), verb.c_str(), wanted, positional.size());
        return false;
    }
    if (verb == "set")
        return true;
    if (fields.count("content") && verb != "data") {
        fail("%s: content belongs to data entries only", where.c_str());
        return false;
    }
    if (verb == "tree") {
        if (add_tree(manifest, join_path(manifest->base, positional[0]), fields, where, &problem))
            return true;
        fail("%s: %s", where.c_str(), problem.c_str());
        return false;
    }
    manifest_entry_t entry;
    entry.where = where;
    entry.fields = fields;
    if (verb == "file") {
        entry.source = join_path(manifest->base, positional[0]);
        if (!entry.fields.count("name") || entry.fields["name"].empty()) {
            size_t slash = positional[0].rfind('/');
            entry.fields["name"] = slash == std::string::npos ? positional[0] : positional[0].substr(slash + 1);
        }
    } else if (verb == "data") {
        entry.has_content = true;
        entry.content = fields.count("content") ? fields["content"] : "";
        entry.fields.erase("content");
    } else if (verb == "link") {
        if (!entry.fields.count("name") || entry.fields["name"].empty())
            entry.fields["name"] = "N/A";
        if (!entry.fields.count("target_name") || entry.fields["target_name"].empty()) {
            fail("%s: a link needs target_name", where.c_str());
            return false;
        }
    }
    if ((verb == "data" || verb == "empty") && (!entry.fields.count("name") || entry.fields["name"].empty())) {
        fail("%s: \"%s\" needs a name", where.c_str(), verb.c_str());
        return false;
    }
    manifest->entries.push_back(entry);
    return true;
}

// Parses a line manifest. Returns false after printing the first problem.
static bool parse_line_manifest(const std::string& text, const std::string& file_name, manifest_t* manifest)
{
    std::map<std::string, std::string> defaults;
    size_t position = 0;
    int number = 0;
    while (position <= text.size()) {
        size_t end = text.find('\n', position);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(position, end - position);
        position = end + 1;
        number++;
        std::string where = file_name + ":" + std::to_string(number);
        size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#')
            continue;
        std::vector<word_t> words;
        std::string problem;
        if (!split_words(line, &words, &problem)) {
            fail("%s: %s", where.c_str(), problem.c_str());
            return false;
        }
        std::string verb = words[0].text;
        words.erase(words.begin());
        if (!add_manifest_line(manifest, &defaults, verb, words, where))
            return false;
    }
    return true;
}

// An attribute value or element text with the XML entities replaced.
static std::string xml_text(const char* raw, int32_t length)
{
    std::string copy(raw, length < 0 ? strlen(raw) : (size_t)length);
    char* text = strdup(copy.c_str());
    char* replaced = env_replace_tags(text);
    std::string result = replaced ? replaced : copy;
    if (replaced != text)
        free(replaced);
    free(text);
    return result;
}

// Parses an XML manifest: a <cab> root whose elements are the keywords of
// the line format, with fields as attributes, source= as the file or
// directory, and a data element's text as its content.
static bool parse_xml_manifest(const std::string& text, const std::string& file_name, manifest_t* manifest)
{
    document_t document;
    bool ok = xml_parse(text.c_str(), &document) == 0;
    if (!ok) {
        fail("%s: not a readable XML manifest: %s", file_name.c_str(), last_log_line().c_str());
    } else if (document.nodes_count != 1 || strcmp(document.nodes[0].name, "cab") != 0) {
        fail("%s: an XML manifest has one root element, <cab>", file_name.c_str());
        ok = false;
    }
    std::map<std::string, std::string> defaults;
    node_t* root = ok ? &document.nodes[0] : nullptr;
    for (int32_t i = 0; ok && i < root->childs_count; i++) {
        node_t* node = &root->childs[i];
        std::string verb = node->name;
        std::string where = file_name + ": <" + verb + "> #" + std::to_string(i + 1);
        std::vector<word_t> words;
        bool has_content = false;
        for (int32_t k = 0; k < node->keys_count; k++) {
            std::string name = node->keys[k].name;
            for (char& c : name)
                c = (char)tolower((unsigned char)c);
            std::string value = xml_text(node->keys[k].value ? node->keys[k].value : "", -1);
            word_t word;
            if (name == "source") {
                word.text = value;
            } else {
                word.text = name + "=" + value;
                word.equals = (long)name.size();
                has_content = has_content || name == "content";
            }
            words.push_back(word);
        }
        if (verb == "data" && !has_content && node->data && node->data_len > 0) {
            word_t word;
            word.text = "content=" + xml_text(node->data, node->data_len);
            word.equals = 7;
            words.push_back(word);
        }
        ok = add_manifest_line(manifest, &defaults, verb, words, where);
    }
    xml_free(&document);
    return ok;
}

// A manifest whose first non-blank character is '<' is XML; any other is
// the line format.
static bool parse_manifest(const std::string& text, const std::string& file_name, manifest_t* manifest)
{
    size_t first = text.find_first_not_of(" \t\r\n");
    if (first != std::string::npos && text[first] == '<')
        return parse_xml_manifest(text, file_name, manifest);
    return parse_line_manifest(text, file_name, manifest);
}

// Lookups by component (store_file_exists and friends) find an entry of a
// list such as "core;tools" only for some of its members; say which miss.
static void warn_unreachable_components(const std::string& where, const char* list)
{
    if (!list || !strchr(list, ';'))
        return;
    std::string text = list;
    for (size_t start = 0; start <= text.size();) {
        size_t end = text.find(';', start);
        if (end == std::string::npos)
            end = text.size();
        std::string member = text.substr(start, end - start);
        if (!member.empty() && !store_component_match(list, member.c_str()))
            fprintf(stderr,
                    "kelm-cab: %s: note: lookups by component \"%s\" won't find this entry of \"%s\" "
                    "(installing it by component works)\n",
                    where.c_str(), member.c_str(), list);
        start = end + 1;
    }
}

// Turns manifest entries into the writer's records. The strings stay in the
// manifest, which outlives the records.
static bool build_sources(manifest_t* manifest, std::vector<cab_entry_src_t>* sources)
{
    std::map<std::pair<std::string, std::string>, std::string> seen;
    for (manifest_entry_t& entry : manifest->entries) {
        auto& f = entry.fields;
        auto field = [&f](const char* name) -> const char* {
            auto it = f.find(name);
            return it == f.end() || it->second.empty() ? nullptr : it->second.c_str();
        };
        if (f.count("attrs") && f["attrs"] == "auto") {
            struct stat st;
            if (entry.source.empty() || stat(entry.source.c_str(), &st) != 0) {
                fail("%s: attrs=auto needs a readable source file", entry.where.c_str());
                return false;
            }
            f["attrs"] = octal_mode(st.st_mode);
        }
        if (field("attrs") && oct_string2dec(field("attrs")) < 0) {
            fail("%s: attrs \"%s\" is not an octal mode", entry.where.c_str(), field("attrs"));
            return false;
        }
        cab_entry_src_t source = {};
        source.component = field("component");
        source.name = field("name");
        source.install_name = field("install_name");
        source.target_name = field("target_name");
        source.install_uid = field("uid");
        source.group_id = field("group");
        source.attrs = field("attrs");
        source.condition = field("condition");
        // cksum= with no value leaves the field out; no cksum= computes it.
        source.cksum = f.count("cksum") ? f["cksum"].c_str() : nullptr;
        if (const char* type = field("type")) {
            char* end;
            long value = strtol(type, &end, 10);
            if (*end || value < INT32_MIN || value > INT32_MAX) {
                fail("%s: type \"%s\" is not a number", entry.where.c_str(), type);
                return false;
            }
            source.type = (int32_t)value;
        }
        if (!entry.source.empty()) {
            source.source = entry.source.c_str();
        } else if (entry.has_content) {
            source.data = entry.content.data();
            source.data_size = (int64_t)entry.content.size();
        }
        if (!source.component)
            fprintf(stderr, "kelm-cab: %s: entry \"%s\" has no component and can never be looked up\n",
                    entry.where.c_str(), source.name ? source.name : "");
        warn_unreachable_components(entry.where, source.component);
        auto key = std::make_pair(f["component"], f["name"]);
        if (seen.count(key) && f["name"] != "N/A")
            fprintf(stderr, "kelm-cab: %s: %s::%s repeats %s; lookups find the first one only\n", entry.where.c_str(),
                    key.first.c_str(), key.second.c_str(), seen[key].c_str());
        seen.emplace(key, entry.where);
        sources->push_back(source);
    }
    return true;
}

static bool read_stream(FILE* in, std::string* text)
{
    char block[65536];
    size_t got;
    while ((got = fread(block, 1, sizeof block, in)) > 0)
        text->append(block, got);
    return !ferror(in);
}

static int write_manifest_cab(const char* out, manifest_t* manifest, bool append)
{
    std::vector<cab_entry_src_t> sources;
    if (!build_sources(manifest, &sources))
        return 1;
    char message[4096] = "";
    if (store_write_cab_file(out, sources.data(), (int)sources.size(), append, message, sizeof message) != 0)
        return fail("%s: %s", out, message);
    return 0;
}

// Reads and parses a manifest ("-": standard input). Relative sources start
// from base, or from the manifest's directory when base is null. 0, or 1
// after a message.
static int load_manifest(const std::string& name, const char* base, manifest_t* manifest)
{
    std::string manifest_name = name;
    std::string text;
    if (manifest_name == "-") {
        if (!read_stream(stdin, &text))
            return fail("can't read the manifest from standard input");
        manifest_name = "<stdin>";
        manifest->base = ".";
    } else {
        FILE* in = fopen(manifest_name.c_str(), "rb");
        if (!in)
            return fail("can't open %s: %s", manifest_name.c_str(), strerror(errno));
        bool ok = read_stream(in, &text);
        fclose(in);
        if (!ok)
            return fail("can't read %s", manifest_name.c_str());
        size_t slash = manifest_name.rfind('/');
        manifest->base = slash == std::string::npos ? "." : manifest_name.substr(0, slash ? slash : 1);
    }
    if (base)
        manifest->base = base;
    return parse_manifest(text, manifest_name, manifest) ? 0 : 1;
}

static int command_create(int argc, char** argv)
{
    bool append = false;
    const char* base = nullptr;
    const char* log = nullptr;
    int option;
    while ((option = getopt(argc, argv, "aC:l:")) != -1) {
        if (option == 'a')
            append = true;
        else if (option == 'C')
            base = optarg;
        else if (option == 'l')
            log = optarg;
        else
            return 2;
    }
    if (argc - optind != 2) {
        fputs(USAGE, stderr);
        return 2;
    }
    tool_log_open(log);
    manifest_t manifest;
    if (load_manifest(argv[optind + 1], base, &manifest) != 0)
        return 1;
    return write_manifest_cab(argv[optind], &manifest, append);
}

static int command_tree(int argc, char** argv)
{
    bool append = false;
    const char* log = nullptr;
    int option;
    while ((option = getopt(argc, argv, "al:")) != -1) {
        if (option == 'a')
            append = true;
        else if (option == 'l')
            log = optarg;
        else
            return 2;
    }
    if (argc - optind < 2) {
        fputs(USAGE, stderr);
        return 2;
    }
    tool_log_open(log);
    std::vector<word_t> words;
    words.push_back({"tree", -1});
    words.push_back({argv[optind + 1], -1});
    for (int i = optind + 2; i < argc; i++) {
        word_t word;
        word.text = argv[i];
        const char* equals = strchr(argv[i], '=');
        word.equals = equals ? (long)(equals - argv[i]) : -1;
        words.push_back(word);
    }
    manifest_t manifest;
    std::map<std::string, std::string> fields;
    std::vector<std::string> positional;
    std::string problem;
    if (!apply_fields(words, 2, &fields, &positional, &problem))
        return fail("%s", problem.c_str());
    if (!positional.empty())
        return fail("unexpected argument \"%s\"", positional[0].c_str());
    if (!add_tree(&manifest, argv[optind + 1], fields, "tree", &problem))
        return fail("%s", problem.c_str());
    return write_manifest_cab(argv[optind], &manifest, append);
}

static int open_cab(const char* path, cab_t* cab)
{
    if (store_read_header(nullptr, cab, path) != 0) {
        store_release(cab); // a half-read table holds memory too
        fail("%s: not a readable cab: %s", path, last_log_line().c_str());
        return -1;
    }
    return 0;
}

// A field for the listing: tabs, newlines and backslashes escaped.
static std::string listed(const char* text)
{
    std::string out;
    for (const char* p = text ? text : ""; *p; p++) {
        if (*p == '\t')
            out += "\\t";
        else if (*p == '\n')
            out += "\\n";
        else if (*p == '\r')
            out += "\\r";
        else if (*p == '\\')
            out += "\\\\";
        else
            out += *p;
    }
    return out;
}

// The front of the commands that take "[-l log] CAB": parses the options,
// opens the log and the cab. Returns 0, or the exit status to end with.
static int open_cab_argument(int argc, char** argv, cab_t* cab, const char** path)
{
    const char* log = nullptr;
    int option;
    while ((option = getopt(argc, argv, "l:")) != -1) {
        if (option == 'l')
            log = optarg;
        else
            return 2;
    }
    if (argc - optind != 1) {
        fputs(USAGE, stderr);
        return 2;
    }
    tool_log_open(log);
    *path = argv[optind];
    return open_cab(*path, cab) != 0 ? 1 : 0;
}

static int command_list(int argc, char** argv)
{
    cab_t cab;
    const char* path;
    if (int status = open_cab_argument(argc, argv, &cab, &path))
        return status;
    printf("#index\tcomponent\tname\tinstall_name\ttarget_name\ttype\tinstall_size\tuid\tgroup\tattrs\tcksum\t"
           "store_size\tstore_offset\tcondition\n");
    for (int32_t i = 0; i <= cab.last_item; i++) {
        const cab_item_t* item = &cab.items[i];
        printf("%d\t%s\t%s\t%s\t%s\t%d\t%lld\t%s\t%s\t%s\t%s\t%lld\t%lld\t%s\n", i, listed(item->component).c_str(),
               listed(item->name).c_str(), listed(item->install_name).c_str(), listed(item->target_name).c_str(),
               item->type, (long long)item->install_size, listed(item->install_uid).c_str(),
               listed(item->group_id).c_str(), listed(item->attrs).c_str(), listed(item->cksum).c_str(),
               (long long)item->store_size, (long long)item->store_offset, listed(item->condition).c_str());
    }
    store_release(&cab);
    return 0;
}

static int stream_sink(const char* data, size_t size, void* context)
{
    return fwrite(data, 1, size, (FILE*)context) == size ? 0 : -1;
}

static int command_extract(int argc, char** argv)
{
    const char* component = nullptr;
    long index = -1;
    const char* log = nullptr;
    int option;
    while ((option = getopt(argc, argv, "c:i:l:")) != -1) {
        if (option == 'c')
            component = optarg;
        else if (option == 'i')
            index = strtol(optarg, nullptr, 10);
        else if (option == 'l')
            log = optarg;
        else
            return 2;
    }
    int wanted = index >= 0 ? 2 : 3;
    if (argc - optind != wanted) {
        fputs(USAGE, stderr);
        return 2;
    }
    tool_log_open(log);
    const char* cab_path = argv[optind];
    const char* out_path = argv[optind + wanted - 1];
    cab_t cab;
    if (open_cab(cab_path, &cab) != 0)
        return 1;
    const cab_item_t* item = nullptr;
    if (index >= 0) {
        if (index <= cab.last_item)
            item = &cab.items[index];
    } else {
        const char* name = argv[optind + 1];
        for (int32_t i = 0; i <= cab.last_item && !item; i++) {
            const cab_item_t* candidate = &cab.items[i];
            if (candidate->name && strcmp(candidate->name, name) == 0 &&
                (!component || store_component_match(candidate->component, component)))
                item = candidate;
        }
    }
    if (!item) {
        store_release(&cab);
        return fail("%s: no such entry", cab_path);
    }
    bool to_stdout = strcmp(out_path, "-") == 0;
    FILE* out = to_stdout ? stdout : fopen(out_path, "wb");
    if (!out) {
        store_release(&cab);
        return fail("can't create %s: %s", out_path, strerror(errno));
    }
    int rc = store_item_copy(&cab, item, stream_sink, out);
    if ((to_stdout ? fflush(out) : fclose(out)) != 0)
        rc = -1;
    if (rc == 0 && !to_stdout && item->attrs && oct_string2dec(item->attrs) > 0)
        file_set_attr(out_path, oct_string2dec(item->attrs));
    store_release(&cab);
    return rc == 0 ? 0 : fail("can't write %s", out_path);
}

static int cksum_sink(const char* data, size_t size, void* context)
{
    uint32_t* crc = (uint32_t*)context;
    *crc = store_cksum_update(*crc, (const unsigned char*)data, size);
    return 0;
}

static int command_verify(int argc, char** argv)
{
    cab_t cab;
    const char* path;
    if (int status = open_cab_argument(argc, argv, &cab, &path))
        return status;
    int problems = 0;
    for (int32_t i = 0; i <= cab.last_item; i++) {
        const cab_item_t* item = &cab.items[i];
        const char* name = item->name ? item->name : "(none)";
        int64_t size = (int32_t)(uint32_t)(uint64_t)item->install_size;
        if (size < 0 || size != item->install_size) {
            fprintf(stderr, "%s: entry %d (%s): size %lld can't be read\n", path, i, name,
                    (long long)item->install_size);
            problems++;
            continue;
        }
        int64_t available = store_item_available(&cab, item);
        if (available < size) {
            fprintf(stderr, "%s: entry %d (%s): the store holds %lld of its %lld bytes\n", path, i, name,
                    (long long)available, (long long)size);
            problems++;
            continue;
        }
        if (item->cksum) {
            uint32_t crc = 0;
            if (store_item_copy(&cab, item, cksum_sink, &crc) != 0) {
                fprintf(stderr, "%s: entry %d (%s): can't be read\n", path, i, name);
                problems++;
                continue;
            }
            std::string computed = std::to_string(store_cksum_finish(crc, (uint64_t)size));
            if (computed != item->cksum) {
                fprintf(stderr, "%s: entry %d (%s): cksum %s, the bytes give %s\n", path, i, name, item->cksum,
                        computed.c_str());
                problems++;
            }
        }
        if (item->attrs && oct_string2dec(item->attrs) < 0) {
            fprintf(stderr, "%s: entry %d (%s): attrs \"%s\" is not an octal mode; extraction fails\n", path, i, name,
                    item->attrs);
            problems++;
        }
    }
    if (cab.last_item >= 0 && cab.items[0].component && !strstr(cab.items[0].component, STORE_INTERNAL))
        fprintf(stderr,
                "%s: note: entry 0 (%s) belongs to \"%s\"; the entry with index 0 is never extracted or "
                "installed\n",
                path, cab.items[0].name ? cab.items[0].name : "(none)", cab.items[0].component);
    printf("%s: %d entries, %d problem(s)\n", path, cab.last_item + 1, problems);
    store_release(&cab);
    return problems ? 1 : 0;
}

// Package directories.

// The standard launchers. install.sh makes the temporary folder and the
// running marker beside it and hands over to the engine; uninstall.sh does
// the same in uninstall mode. Both pass their own arguments on.
static const char* const LAUNCHER_HEAD = R"SH(#!/bin/sh
# Launcher of a kelm package. It makes the engine's temporary folder and the
# running marker beside it, then starts the engine with the arguments given
# here. KELM_TMP_DIR chooses where both go (default: $TMPDIR, else /tmp). The
# engine removes the folder when it ends normally; after an interrupt or a
# fatal error this launcher does, unless --__keep_temp__ was given. The
# engine's log stays beside the folder.
here=$(cd "$(dirname "$0")" && pwd) || exit 2
engine="$here/pset/engine/kelm"
if [ ! -x "$engine" ]; then
    echo "Error: the installer engine $engine is missing." >&2
    exit 2
fi
base=${KELM_TMP_DIR:-${TMPDIR:-/tmp}}
user=$(id -un 2>/dev/null) || user=$USER
[ -n "$USER" ] || export USER="$user"
mkdir -p "$base" 2>/dev/null
temp=$(mktemp -d "$base/install.XXXXXX") || {
    echo "Error: can't create a temporary folder in $base." >&2
    exit 2
}
: >"$base/orvan.kelm.$user.running.marker"
keep=no
for argument in "$@"; do
    [ "$argument" = --__keep_temp__ ] && keep=yes
done
# The engine asks itself what an interrupt means; this shell only waits.
trap '' INT
)SH";

static const char* const LAUNCHER_TAIL = R"SH(status=$?
[ "$keep" = yes ] || rm -rf "$temp"
exit $status
)SH";

static const char* const INSTALL_RUN = "\"$engine\" --TEMP_FOLDER \"$temp\" \"$@\"\n";
static const char* const UNINSTALL_RUN = "\"$engine\" --TEMP_FOLDER \"$temp\" --KELM_MODE uninstall \"$@\"\n";

// Writes bytes to path with the mode; 0, or 1 after a message.
static int write_file_mode(const std::string& path, const std::string& bytes, mode_t mode)
{
    FILE* out = fopen(path.c_str(), "wb");
    if (!out)
        return fail("can't write %s: %s", path.c_str(), strerror(errno));
    bool ok = fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
    ok = fclose(out) == 0 && ok;
    if (!ok)
        return fail("can't write %s", path.c_str());
    if (chmod(path.c_str(), mode) != 0)
        return fail("can't set the mode of %s: %s", path.c_str(), strerror(errno));
    return 0;
}

static int copy_file_mode(const std::string& from, const std::string& to, mode_t mode)
{
    FILE* in = fopen(from.c_str(), "rb");
    if (!in)
        return fail("can't open %s: %s", from.c_str(), strerror(errno));
    std::string bytes;
    bool ok = read_stream(in, &bytes);
    fclose(in);
    if (!ok)
        return fail("can't read %s", from.c_str());
    return write_file_mode(to, bytes, mode);
}

static int make_dir(const std::string& path)
{
    if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST)
        return fail("can't create %s: %s", path.c_str(), strerror(errno));
    return 0;
}

// The engine built beside this tool.
static std::string engine_beside_tool(void)
{
    char self[4096];
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return "kelm";
    self[length] = '\0';
    std::string path = self;
    size_t slash = path.rfind('/');
    return (slash == std::string::npos ? std::string(".") : path.substr(0, slash)) + "/kelm";
}

static int command_package(int argc, char** argv)
{
    const char* base = nullptr;
    const char* log = nullptr;
    std::string engine = engine_beside_tool();
    const char* launchers = nullptr;
    int option;
    while ((option = getopt(argc, argv, "C:l:e:s:")) != -1) {
        if (option == 'C')
            base = optarg;
        else if (option == 'l')
            log = optarg;
        else if (option == 'e')
            engine = optarg;
        else if (option == 's')
            launchers = optarg;
        else
            return 2;
    }
    if (argc - optind < 2) {
        fputs(USAGE, stderr);
        return 2;
    }
    tool_log_open(log);
    std::string out = argv[optind];
    // All manifests are read before anything is written.
    manifest_t root;
    if (load_manifest(argv[optind + 1], base, &root) != 0)
        return 1;
    std::vector<std::pair<std::string, manifest_t>> layers;
    for (int i = optind + 2; i < argc; i++) {
        std::string argument = argv[i];
        size_t equals = argument.find('=');
        if (equals == std::string::npos || equals == 0 || argument.find('/') < equals)
            return fail("a layer is given as CAB=MANIFEST, not \"%s\"", argument.c_str());
        layers.emplace_back(argument.substr(0, equals), manifest_t());
        if (load_manifest(argument.substr(equals + 1), base, &layers.back().second) != 0)
            return 1;
    }

    if (make_dir(out) || make_dir(out + "/pset") || make_dir(out + "/pset/engine"))
        return 1;
    if (launchers) {
        for (const char* name : {"install.sh", "uninstall.sh"})
            if (copy_file_mode(std::string(launchers) + "/" + name, out + "/" + name, 0755))
                return 1;
    } else if (write_file_mode(out + "/install.sh", std::string(LAUNCHER_HEAD) + INSTALL_RUN + LAUNCHER_TAIL, 0755) ||
               write_file_mode(out + "/uninstall.sh", std::string(LAUNCHER_HEAD) + UNINSTALL_RUN + LAUNCHER_TAIL,
                               0755)) {
        return 1;
    }
    if (copy_file_mode(engine, out + "/pset/engine/kelm", 0755))
        return 1;
    if (write_manifest_cab((out + "/pset/install.cab").c_str(), &root, false))
        return 1;
    for (auto& layer : layers)
        if (write_manifest_cab((out + "/pset/" + layer.first).c_str(), &layer.second, false))
            return 1;
    return 0;
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        fputs(USAGE, stderr);
        return 2;
    }
    std::string command = argv[1];
    // getopt sees the arguments behind the command.
    argc--;
    argv++;
    int rc;
    if (command == "create")
        rc = command_create(argc, argv);
    else if (command == "tree")
        rc = command_tree(argc, argv);
    else if (command == "list")
        rc = command_list(argc, argv);
    else if (command == "extract")
        rc = command_extract(argc, argv);
    else if (command == "verify")
        rc = command_verify(argc, argv);
    else if (command == "package")
        rc = command_package(argc, argv);
    else if (command == "-h" || command == "--help" || command == "help") {
        fputs(USAGE, stdout);
        rc = 0;
    } else {
        fputs(USAGE, stderr);
        rc = 2;
    }
    tool_log_close();
    return rc;
}
