// File helpers of the package data and install code: existence, modes,
// directories with their parents, links, and octal permission texts.
#ifndef KELM_FILE_H
#define KELM_FILE_H

// 1 when stat works on the name, else 0 (logged).
int file_exists(const char* name);
// chmod; returns its result, a failure reported.
int file_set_attr(const char* name, int mode);
// Stores st_mode of name in *attr: 0; -1 null name, -2 null attr, -3 when
// stat fails.
int file_get_attr(const char* name, int* attr);
// Creates a directory and every missing parent with the mode. Returns the
// result of the last mkdir, so an existing directory gives a reported
// non-zero result.
int folder_create(const char* name, int mode);
// Creates a symbolic link at link pointing to target, and the link's parent
// directory when missing. The result of symlink; -1 null link, -2 null target.
int link_create(const char* link, const char* target);
// The value of an octal text such as "0755"; -1 for null, empty or
// incorrect texts. Trailing non-digits (a newline) are ignored.
int oct_string2dec(const char* text);

#endif
