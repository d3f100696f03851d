// File helpers: thin wrappers over stat, chmod, mkdir and symlink that
// report through the log.
#include "file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "log.h"
#include "utils.h"

int file_exists(const char* name)
{
    if (!name) {
        error("file_exists: name of the file is NULL");
        return 0;
    }
    struct stat st;
    if (stat(name, &st) != 0) {
        print_log("file_exists: file %s doesn't exist.", name);
        return 0;
    }
    return 1;
}

int file_set_attr(const char* name, int mode)
{
    if (!name) {
        error("file_set_attr: filename is NULL");
        return -1;
    }
    int rc = chmod(name, (mode_t)mode);
    if (rc != 0)
        error("file_set_attr: chmod failed %d", errno);
    return rc;
}

int file_get_attr(const char* name, int* attr)
{
    if (!name) {
        error("file_get_attr: filename is NULL");
        return -1;
    }
    if (!attr) {
        error("file_get_attr: attribute pointer is NULL");
        return -2;
    }
    struct stat st;
    if (stat(name, &st) != 0) {
        error("file_get_attr: can't get information about %s", name);
        return -3;
    }
    *attr = (int)st.st_mode;
    return 0;
}

int folder_create(const char* name, int mode)
{
    if (!name) {
        error("folder_create: name of the fodler is NULL");
        return -1;
    }
    // Parents first, left to right; most exist already, so their results
    // are only logged.
    char* copy = strdup(name);
    for (const char* slash = strchr(name, '/'); slash; slash = strchr(slash + 1, '/')) {
        size_t length = (size_t)(slash - name) + 1;
        memcpy(copy, name, length);
        copy[length] = '\0';
        int rc = mkdir(copy, (mode_t)mode);
        print_log("creating dir %s, result is %d", copy, rc);
    }
    free(copy);
    int rc = mkdir(name, (mode_t)mode);
    if (rc != 0)
        error("create_folder: mkdir for %s failed %d", name, errno);
    return rc;
}

int link_create(const char* link, const char* target)
{
    if (!link) {
        error("link_create: link name is NULL.");
        return -1;
    }
    if (!target) {
        error("link_create: target name is NULL");
        return -2;
    }
    char* parent = get_dirname(link);
    if (parent && !exists(parent)) {
        print_log("file_copy: parent directory for %s doesn't exist. Create it.", link);
        folder_create(parent, 0775);
    }
    free(parent);
    int rc = symlink(target, link);
    if (rc != 0)
        error("link_create: symlink %s->%s failed  %d", link, target, errno);
    return rc;
}

int oct_string2dec(const char* text)
{
    if (!text || !*text)
        return -1;
    int64_t value = 0;
    int position = 0;
    bool seen_digit = false;
    for (size_t i = strlen(text); i-- > 0;) {
        char c = text[i];
        bool digit = c >= '0' && c <= '9';
        // Anything behind the last digit (a newline, blanks) is ignored;
        // anything between digits makes the text incorrect.
        if (!digit && !seen_digit)
            continue;
        // A digit beyond the eleventh place would not fit the result.
        if (!digit || c > '7' || (c != '0' && position > 10)) {
            print_log("Incorrect permissions string: %s", text);
            return -1;
        }
        seen_digit = true;
        if (c != '0')
            value += (int64_t)(c - '0') << (3 * position);
        if (value > INT32_MAX) {
            print_log("Incorrect permissions string: %s", text);
            return -1;
        }
        print_log("Permissions string: %s, %c, %d", text, c, (int)value);
        position++;
    }
    return (int)value;
}
