// Console text: the wrapping printer and its small companions.
#include "console.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log.h"
#include "utils.h"

int get_window_width(void)
{
    int width = get_terminal_columns();
    if (width > 80 || width < 10)
        return 80;
    return width;
}

static bool is_continuation(unsigned char c)
{
    return c >= 0x80 && c <= 0xBF;
}

// The length in bytes and the width in columns of the character at text[i].
// A lead byte announces its continuation bytes; a sequence cut short by a
// byte that is no continuation ends there, so that byte keeps its meaning.
static void console_char_at(const char* text, size_t len, size_t i, size_t* bytes, int* columns)
{
    unsigned char c = (unsigned char)text[i];
    size_t announced = 0;
    *columns = 1;
    if (c >= 0xC0 && c <= 0xDF) {
        announced = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
        announced = 2;
        *columns = 2;
    } else if (c > 0xEF) {
        announced = 3;
    } else if (c >= 0x80) {
        print_log("print_string: unknown char");
    }
    *bytes = 1;
    while (*bytes <= announced && i + *bytes < len && is_continuation((unsigned char)text[i + *bytes]))
        (*bytes)++;
}

int console_wrap(FILE* out, const char* text, size_t len, int width)
{
    if (!out || !text) {
        LOG_NULL_PARAM();
        return -1;
    }
    size_t i = 0;          // position in the text
    size_t line_start = 0; // where the current line begins in the text
    size_t last = 0;       // last blank seen; on this line when past line_start
    int columns = 0;

    auto emit = [&](size_t end, size_t resume) {
        fwrite(text + line_start, 1, end - line_start, out);
        fputc('\n', out);
        i = resume;
        line_start = resume;
        columns = 0;
    };

    while (i < len) {
        unsigned char c = (unsigned char)text[i];
        if (c == '\n') {
            emit(i, i + 1);
            continue;
        }
        size_t bytes;
        int char_columns;
        console_char_at(text, len, i, &bytes, &char_columns);
        if (c == ' ')
            last = i;
        columns += char_columns;
        size_t next = i + bytes;
        if (columns < width) {
            i = next;
            continue;
        }

        bool blank_on_line = last > line_start;
        if (columns > width && i > line_start) {
            // A wide character would pass the edge: its word moves down
            // whole, or, when the word fills the line, the character alone.
            if (blank_on_line)
                emit(last, last + 1);
            else
                emit(i, i);
        } else if (next < len && (text[next] == ' ' || text[next] == '\n')) {
            emit(next, next + 1);
        } else if (c == ' ') {
            emit(next, next);
        } else if (blank_on_line) {
            emit(last, last + 1);
        } else {
            print_log("print_string: Keep buffer as is");
            emit(next, next);
        }
    }
    fwrite(text + line_start, 1, len - line_start, out);
    return 0;
}

int print_string(const char* format, ...)
{
    if (!format) {
        error("print_string: format string is null");
        return -1;
    }
    va_list args;
    va_start(args, format);
    int size = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (size < 0) {
        error("print_string: Can't detect buffer size");
        return 0;
    }
    char* text = (char*)malloc((size_t)size + 1);
    if (!text) {
        error("%s:%d: allocation of parameter failed", __FILE__, __LINE__);
        return -1;
    }
    va_start(args, format);
    vsnprintf(text, (size_t)size + 1, format, args);
    va_end(args);

    console_wrap(stdout, text, (size_t)size, get_window_width());
    free(text);
    fflush(stdout);
    return 0;
}

int print_dashes(void)
{
    int width = get_terminal_columns();
    if (width > 80)
        width = 80;
    if (width < 10 || width >= 80)
        width = 80;
    for (int k = 0; k < width; k++)
        putchar('-');
    putchar('\n');
    return 0;
}

char* make_padding(int n)
{
    if (n < 1)
        n = 0;
    char* padding = (char*)malloc((size_t)n + 1);
    if (!padding) {
        error("%s:%d: allocation of parameter failed", __FILE__, __LINE__);
        return nullptr;
    }
    memset(padding, ' ', (size_t)n);
    padding[n] = '\0';
    return padding;
}

char* concat(char* dest, char* src, int* capacity)
{
    if (!dest || !src || !capacity) {
        LOG_NULL_PARAM();
        return dest;
    }
    size_t joint = strlen(dest) + strlen(src);
    if ((long long)joint + 1 == (long long)*capacity) {
        char* moved = (char*)realloc(dest, (size_t)*capacity);
        if (!moved)
            die(1, "%s:%d: allocation of parameter failed", __FILE__, __LINE__);
        dest = moved;
    }
    strcat(dest, src);
    return dest;
}
