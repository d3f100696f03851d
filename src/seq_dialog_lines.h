// The builders behind a dialog: list lines, questions and the prompt with
// its chain of validation rules, turned from dialog elements into records
// and display strings.
//
// Every list here is singly linked, built by putting new records in front,
// and ends in an all-zero sentinel record whose next pointer is null. A
// record is therefore a real one exactly when its next pointer is set.
#ifndef KELM_SEQ_DIALOG_LINES_H
#define KELM_SEQ_DIALOG_LINES_H

#include <cstdint>

#include "session.h"

struct node_t;

// Room for a typed answer and for the texts make_list and make_question build.
#define DIALOG_TEXT_MAX 4096

// Kinds of display line make_line builds.
enum {
    LINE_KIND_LIST = 0,
    LINE_KIND_CHECKBOX = 1,
    LINE_KIND_RADIOBUTTON = 2,
};

// One display line: the value its id attribute (or the override) stands for
// and the finished label, owned.
struct line_t {
    int32_t id;
    char* text;
};

// A member of a list of lines; text owned.
struct list_t {
    int32_t id;
    char* text;
    list_t* next;
};

// One question of a dialog: its number, its text (for a list question the
// joined lines), an extra text (empty for lists) and its lines, all owned.
struct q_list_t {
    int32_t id;
    char* text;
    char* extra;
    list_t* lines;
    q_list_t* next;
};

// One validation rule; every string is a private copy, a missing attribute
// is the empty string, and a missing invert is "false".
struct validation_t {
    char* type;
    char* err;
    char* refresh;
    char* pattern;
    char* list;
    char* invert;
    char* check;
    validation_t* next;
};

// The prompt: the finished prompt text, the default answer and the name of
// the property that receives the answer, followed by the first rule of the
// chain. With no rule, validation is the sentinel itself.
struct input_t {
    char* text;
    char* default_value;
    char* keep;
    validation_t validation;
};

// Builds one display line from a line element. kind is a LINE_KIND_*; id,
// when not null, replaces the element's id attribute. Checkbox and radio
// lines read and update CURRENT_DIALOG + "_showed", "_cb", "_cb_list", "_rb"
// and "_rb_list". out->text is a new string. 0, or -1 after a report.
int make_line(session_t* session, node_t* line, line_t* out, int kind, const char* id);

// A new list holding only the sentinel, or null.
list_t* new_list(void);
// Puts a record with a copy of text in front of *head; the new record, or null.
list_t* add_line(list_t** head, int32_t id, const char* text);
// Sorts by id, ascending; records of equal id keep their order. 0 or -1.
int sort_list(list_t** head);
// The texts of the list, each followed by a newline, in a new buffer of
// DIALOG_TEXT_MAX bytes (texts that do not fit are cut); null on failure.
char* make_list(list_t* head);
// Releases every record of the list, the sentinel included, and their texts.
void free_list(list_t* head);

// A new list of questions holding only the sentinel, or null.
q_list_t* new_questions(void);
// Puts a question in front of *head, taking copies of text and extra and
// ownership of lines (which may be null); the new record, or null.
q_list_t* add_question(q_list_t** head, int32_t id, const char* text, const char* extra, list_t* lines);
// Sorts by id, ascending; questions of equal id keep their order. 0 or -1.
int sort_questions(q_list_t** head);
// The texts joined by newlines, with none at the end and null texts
// skipped, in a new buffer of DIALOG_TEXT_MAX bytes; null on failure.
char* make_question(q_list_t* head);
// Releases every question, its texts and its lines.
void free_questions(q_list_t* head);

// Builds the prompt and the rule chain from an input element. default_value,
// when not null, replaces the element's default attribute. The last rule of
// the document comes first in the chain. 0, or -1 after a report.
int make_input(node_t* input, input_t* out, const char* default_value);
// Puts a rule with copies of the given texts in front of *head (null texts
// become empty, a null invert "false"); the new record, or null.
validation_t* add_validation(validation_t** head, const char* type, const char* err, const char* refresh,
                             const char* pattern, const char* list, const char* invert, const char* check);
// Releases what make_input put into the record and clears it.
void free_input(input_t* input);

#endif
