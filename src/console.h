// Console text: a word-wrapping printer that understands UTF-8, a rule of
// dashes, padding, and a growing string append. Everything the engine shows
// the user in text mode goes through these.
#ifndef KELM_CONSOLE_H
#define KELM_CONSOLE_H

#include <cstddef>
#include <cstdio>

// Formats like printf, prints the text wrapped at blanks to the console
// width, and flushes stdout. A multi-byte character is never split; a
// two-byte character counts one column, a three-byte one two columns, a
// four-byte one one column. A text that does not end in a newline leaves the
// cursor behind it, as prompts need. 0, or -1 for a null format or no memory.
int print_string(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The wrapping behind print_string on any stream and width: writes len
// bytes of text to out, no newline added at the end. 0, or -1 on null
// arguments.
int console_wrap(FILE* out, const char* text, size_t len, int width);

// A line of dashes as wide as the console (80 when that is unknown or wider)
// and a newline on stdout; 0.
int print_dashes(void);

// The columns of the terminal on stdout, from TIOCGWINSZ; 80 when that is
// above 80, below 10, or when stdout is no terminal.
int get_window_width(void);

// A new string of n blanks, the empty string for n below 1; null when no
// memory. The caller frees it.
char* make_padding(int n);

// Appends src to dest and returns dest, moved if it was reallocated. The
// buffer is reallocated (to *capacity bytes) only when the joint length plus
// one equals *capacity; otherwise the caller must have provided the room.
// Running out of memory ends the process with status 1.
char* concat(char* dest, char* src, int* capacity);

#endif
