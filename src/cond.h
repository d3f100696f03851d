// Conditions: the small boolean language of the package's "condition"
// attributes. A condition is a row of blank-separated tokens: terms of the
// form "left operator right" (or a lone left operand, true when a property
// of that name exists), logic words between them, NOT before a term, and
// parentheses. Terms are evaluated from left to right, every one of them, and
// merged without precedence.
#ifndef KELM_COND_H
#define KELM_COND_H

#include "session.h"

// Operator codes, as get_operation gives them.
enum {
    COND_OP_EQ = 1,
    COND_OP_NE = 2,
    COND_OP_LE = 3,
    COND_OP_LT = 4,
    COND_OP_GE = 5,
    COND_OP_GT = 6,
    COND_OP_START = 7,
    COND_OP_END = 8,
    COND_OP_INC = 9,
    COND_OP_NINC = 10,
    COND_OP_RE = 11,
};

// Merge modes, as get_merge_mode gives them; 0 lets the next term replace
// the result so far.
enum {
    COND_MERGE_NONE = 0,
    COND_MERGE_OR = 1,
    COND_MERGE_AND = -1,
    COND_MERGE_XOR = -2,
};

// Evaluates a condition in the session: 1 true, 0 false, -1 on a syntax
// error, an allocation failure or a null argument. Empty or blank text is
// true. Callers that test for 1 count failure as false.
int cond_is_true(const char* condition, session_t* session);

// Evaluates one term. An empty operation tests whether a property named
// exactly as left exists; otherwise both operands are expanded and compared.
// Gives 1 or 0, -1 for an unknown operation, a bad regular expression or a
// null argument, and for "-end" the offset of the first occurrence of right
// when that occurrence isn't the ending of left.
int execute(char* left, char* operation, char* right, session_t* session);

// The code of an operator spelling (symbol or dash word, exact case), or -1.
int get_operation(const char* text);
// "AND" -1, "OR" 1, "XOR" -2, in exact case; anything else 0 (logged).
int get_merge_mode(const char* text);
// Combines the result so far with a term's value under a merge mode; -1 for
// an unknown mode.
int merge_result(int previous, int current, int mode);

// Compares two dotted versions of up to four numbers with an operator code
// 1..6; the left one is cut first at ':', '-' or a newline. Code 2 is true
// whatever the versions. 1 or 0.
int compare_versions(char* left, char* right, int operation);

// 1 when the text holds only blanks, tabs, carriage returns and newlines, or
// nothing; 0 otherwise; -1 for null.
int is_operand_empty(const char* text);
// 1 when the text holds only digits (the empty text too); 0; -1 for null.
int is_operand_number(const char* text);
// 1 when the text holds only digits and dots (the empty text too); 0; -1 for
// null.
int is_operand_version(const char* text);

#endif
