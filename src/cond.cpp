// The condition evaluator: a state machine over blank-separated tokens, and
// the comparison of one term. Package authors rely on its exact behaviour,
// odd corners included: no precedence, no early stop, parentheses that only
// count, and the merge mode that survives a quoted or parenthesised term.
#include "cond.h"

#include <strings.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "env.h"
#include "log.h"
#include "utils.h"

// Room of each of the evaluator's buffers; an operand, operator or collected
// text must fit with its terminating NUL.
#define COND_BUFFER_SIZE 4096

// The state machine's states.
enum {
    COND_EXPECT_TERM = 1,
    COND_IN_PARENTHESES = 2,
    COND_HAVE_LEFT = 3,
    COND_HAVE_OPERATOR = 4,
    COND_IN_QUOTES = 5,
};

struct operator_spelling_t {
    const char* symbol;
    const char* word;
    int code;
};

static const operator_spelling_t operators[] = {
    {"=", "-eq", COND_OP_EQ},        {"!=", "-ne", COND_OP_NE},   {"<=", "-le", COND_OP_LE},
    {"<", "-lt", COND_OP_LT},        {">=", "-ge", COND_OP_GE},   {">", "-gt", COND_OP_GT},
    {"<<", "-start", COND_OP_START}, {">>", "-end", COND_OP_END}, {"><", "-inc", COND_OP_INC},
    {"<>", "-ninc", COND_OP_NINC},   {"=~", "-re", COND_OP_RE},
};

int get_operation(const char* text)
{
    if (!text) {
        LOG_NULL_PARAM();
        return -1;
    }
    for (const auto& op : operators)
        if (!strcmp(text, op.symbol) || !strcmp(text, op.word))
            return op.code;
    error("get_operation: Unknown operation type %s", text);
    return -1;
}

int get_merge_mode(const char* text)
{
    if (!text) {
        LOG_NULL_PARAM();
        return COND_MERGE_NONE;
    }
    if (!strcmp(text, "AND"))
        return COND_MERGE_AND;
    if (!strcmp(text, "OR"))
        return COND_MERGE_OR;
    if (!strcmp(text, "XOR"))
        return COND_MERGE_XOR;
    error("get_merge_mode: invalid merge mode '%s'", text);
    return COND_MERGE_NONE;
}

// Values are small, but a "-end" term may give an offset, and offsets
// multiplied term after term must not overflow: the product saturates, which
// keeps whether it is 0, 1 or something else.
static int saturate(int64_t value)
{
    if (value > INT_MAX)
        return INT_MAX;
    if (value < INT_MIN)
        return INT_MIN;
    return (int)value;
}

int merge_result(int previous, int current, int mode)
{
    switch (mode) {
    case COND_MERGE_NONE:
        return current;
    case COND_MERGE_OR:
        return previous == 1 ? previous : current;
    case COND_MERGE_AND:
        return saturate((int64_t)previous * current);
    case COND_MERGE_XOR:
        return (int64_t)previous + current == 1 ? 1 : 0;
    default:
        return -1;
    }
}

int is_operand_empty(const char* text)
{
    if (!text)
        return -1;
    for (const char* c = text; *c; c++)
        if (*c != ' ' && *c != '\t' && *c != '\r' && *c != '\n')
            return 0;
    return 1;
}

int is_operand_number(const char* text)
{
    if (!text)
        return -1;
    for (const char* c = text; *c; c++)
        if (*c < '0' || *c > '9')
            return 0;
    return 1;
}

int is_operand_version(const char* text)
{
    if (!text)
        return -1;
    for (const char* c = text; *c; c++)
        if ((*c < '0' || *c > '9') && *c != '.')
            return 0;
    return 1;
}

// A comparison's outcome for operator codes 1..6, given the sign of
// left - right. Code 2 is handled by the callers.
static int apply_comparison(int sign, int operation)
{
    switch (operation) {
    case COND_OP_EQ:
        return sign == 0;
    case COND_OP_NE:
        return sign != 0;
    case COND_OP_LE:
        return sign <= 0;
    case COND_OP_LT:
        return sign < 0;
    case COND_OP_GE:
        return sign >= 0;
    case COND_OP_GT:
        return sign > 0;
    default:
        return 0;
    }
}

// One piece of a version as atoi reads it, held within the range of int.
static int version_piece(const std::string& piece)
{
    long value = strtol(piece.c_str(), nullptr, 10);
    return value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : (int)value;
}

// Splits a version at its dots into four numbers; missing ones are 0 and
// pieces beyond the fourth are ignored.
static void version_numbers(const char* text, int numbers[4])
{
    int count = 0;
    const char* start = text;
    while (count < 4) {
        const char* dot = strchr(start, '.');
        size_t length = dot ? (size_t)(dot - start) : strlen(start);
        numbers[count++] = version_piece(std::string(start, length));
        if (!dot)
            break;
        start = dot + 1;
    }
    while (count < 4)
        numbers[count++] = 0;
}

// compare_versions, with the operands kept out of the log when a hidden
// property's value went into them.
static int compare_versions_masked(const char* left, const char* right, int operation, bool hidden)
{
    print_log("compare_versions: comparing %s %d %s", hidden ? "[HIDDEN]" : left, operation,
              hidden ? "[HIDDEN]" : right);
    // The left operand counts up to its first ':', '-' or newline, so that
    // a package version such as "1.2-3" compares as 1.2.
    std::string clean(left, strcspn(left, ":-\n"));
    print_log("compare_versions: clean version is %s", hidden ? "[HIDDEN]" : clean.c_str());
    int l[4], r[4];
    version_numbers(clean.c_str(), l);
    version_numbers(right, r);
    if (!hidden)
        print_log("compare_versions: versions became %d.%d.%d.%d and %d.%d.%d.%d", l[0], l[1], l[2], l[3], r[0], r[1],
                  r[2], r[3]);
    int at = 0;
    while (at < 3 && l[at] == r[at])
        at++;
    // Not equal holds even for equal versions: packages have come to rely
    // on it.
    int statement = operation == COND_OP_NE ? 1 : apply_comparison(l[at] < r[at] ? -1 : l[at] > r[at], operation);
    if (statement)
        print_log("compare_versions: statement is true");
    else if (hidden)
        print_log("compare_versions: statement is false");
    else
        print_log("compare_versions: statement is false for %d %d %d", l[at], operation, r[at]);
    return statement;
}

int compare_versions(char* left, char* right, int operation)
{
    if (!left || !right) {
        LOG_NULL_PARAM();
        return 0;
    }
    return compare_versions_masked(left, right, operation, false);
}

// The sign of left - right for two texts of digits, compared as the numbers
// they write, of any length; the empty text is 0.
static int compare_numbers(const char* left, const char* right)
{
    while (*left == '0')
        left++;
    while (*right == '0')
        right++;
    size_t left_length = strlen(left), right_length = strlen(right);
    if (left_length != right_length)
        return left_length < right_length ? -1 : 1;
    int order = strcmp(left, right);
    return order < 0 ? -1 : order > 0;
}

// Codes 1..6: numbers when both are numbers, else versions when both are
// versions, else bytes.
static int compare_operands(const char* left, const char* right, int operation, bool hidden)
{
    if (is_operand_number(left) == 1 && is_operand_number(right) == 1)
        return apply_comparison(compare_numbers(left, right), operation);
    if (is_operand_version(left) == 1 && is_operand_version(right) == 1)
        return compare_versions_masked(left, right, operation, hidden);
    int order = strcmp(left, right);
    return apply_comparison(order < 0 ? -1 : order > 0, operation);
}

// Code 8. True when the first occurrence of right is the ending of left;
// otherwise the offset of that occurrence, which callers testing for 1 read
// as true only at offset 1. With no occurrence at all: 2, neither 0 nor 1.
static int ends_with_value(const char* left, const char* right)
{
    const char* found = strstr(left, right);
    if (!found)
        return 2;
    if (strlen(found) == strlen(right))
        return 1;
    return saturate(found - left);
}

static int match_regex(const char* left, const char* pattern, bool hidden)
{
    regex_t* regex = get_regex(pattern, REG_EXTENDED | REG_NOSUB);
    if (!regex) {
        error("execute: pattert %s is not valid regex", hidden ? "[HIDDEN]" : pattern);
        return -1;
    }
    int matched = regmatch(regex, left, 0);
    free_regex(&regex);
    return matched;
}

int execute(char* left, char* operation, char* right, session_t* session)
{
    if (!left || !operation || !right || !session) {
        print_log("execute: some arguments are bad: %s %s %s %s", left ? left : "(null)",
                  operation ? operation : "(null)", right ? right : "(null)", session ? "(session)" : "(null)");
        return -1;
    }
    // A lone operand names a property; it is not expanded.
    if (!*operation)
        return env_exists(session, left) ? 1 : 0;

    bool right_hidden = false, left_hidden = false;
    char* r = expand_operand_marked(session, right, &right_hidden);
    if (!r) {
        print_log("execute: right operand is null after expanding");
        return 0;
    }
    char* l = expand_operand_marked(session, left, &left_hidden);
    if (!l) {
        print_log("execute: left operand is null after expanding");
        free(r);
        return 0;
    }
    bool hidden = left_hidden || right_hidden;
    print_log("execute: l='%s' -> o='%s' -> r='%s'", left_hidden ? "[HIDDEN]" : l, operation,
              right_hidden ? "[HIDDEN]" : r);

    int value;
    int code = get_operation(operation);
    switch (code) {
    case COND_OP_EQ:
    case COND_OP_NE:
    case COND_OP_LE:
    case COND_OP_LT:
    case COND_OP_GE:
    case COND_OP_GT:
        value = compare_operands(l, r, code, hidden);
        break;
    case COND_OP_START:
        value = strstr(l, r) == l;
        break;
    case COND_OP_END:
        value = ends_with_value(l, r);
        break;
    case COND_OP_INC:
        value = strstr(l, r) != nullptr;
        break;
    case COND_OP_NINC:
        value = strstr(l, r) == nullptr;
        break;
    case COND_OP_RE:
        value = match_regex(l, r, hidden);
        break;
    default:
        error("execute: Unknown operation.");
        value = -1;
        break;
    }
    free(l);
    free(r);
    print_log("execute: finished with result %d", value);
    return value;
}

/* ---- the state machine ---- */

static bool is_negation(const char* token)
{
    return !strcasecmp(token, "NOT") || !strcmp(token, "!");
}

static bool is_logic(const char* token)
{
    return !strcasecmp(token, "AND") || !strcasecmp(token, "OR") || !strcasecmp(token, "XOR");
}

// Symbols match exactly; the dash words in any case, so that a wrongly
// cased word passes here and fails only when its term is executed.
static bool is_operator(const char* token)
{
    for (const auto& op : operators)
        if (!strcmp(token, op.symbol) || !strcasecmp(token, op.word))
            return true;
    return false;
}

static bool starts_with_quote(const char* token)
{
    return token[0] == '"';
}

// A closing double quote: the last character, not escaped by a backslash.
// A lone double quote counts.
static bool ends_with_quote(const char* token)
{
    size_t length = strlen(token);
    return length && token[length - 1] == '"' && !(length > 1 && token[length - 2] == '\\');
}

static bool is_alone(const char* token, const char* what)
{
    return !strcmp(token, what);
}

// Copies text into one of the evaluator's buffers; false, logged, when it
// doesn't fit.
static bool buffer_set(char* buffer, const char* text)
{
    size_t length = strlen(text);
    if (length >= COND_BUFFER_SIZE) {
        error("cond_is_true: text of %zu bytes is longer than %d: %.64s...", length, COND_BUFFER_SIZE - 1, text);
        return false;
    }
    memcpy(buffer, text, length + 1);
    return true;
}

// Appends a blank and the token to the collector; false, logged, when the
// collected text no longer fits.
static bool buffer_append(char* buffer, const char* token)
{
    size_t used = strlen(buffer), length = strlen(token);
    if (used + 1 + length >= COND_BUFFER_SIZE) {
        error("cond_is_true: collected text is longer than %d bytes at token %.64s", COND_BUFFER_SIZE - 1, token);
        return false;
    }
    buffer[used] = ' ';
    memcpy(buffer + used + 1, token, length + 1);
    return true;
}

// The evaluation proper, over buffers that the caller owns. The text is cut
// into tokens in place. -1 right away on a syntax error.
static int cond_evaluate(char* text, session_t* session, char* left, char* oper, char* right, char* collector)
{
    int result = 0, mode = COND_MERGE_NONE, terms = 0, depth = 0, state = COND_EXPECT_TERM;
    bool negate = false;

    // A term's value goes into the result under the current merge mode.
    auto merge = [&](int value) {
        if (negate)
            value = value == 0 ? 1 : 0;
        result = merge_result(result, value, mode);
    };
    auto finish_term = [&](int value) {
        merge(value);
        negate = false;
        terms++;
        state = COND_EXPECT_TERM;
    };
    auto invalid = [&](const char* token) {
        error("cond_is_true: token %s in state %d is invalid", token, state);
        return -1;
    };

    char* next = text;
    while (*next) {
        // Tokens are separated by blanks only, any number counting as one.
        while (*next == ' ')
            next++;
        if (!*next)
            break;
        char* token = next;
        while (*next && *next != ' ')
            next++;
        if (*next)
            *next++ = '\0';

        switch (state) {
        case COND_EXPECT_TERM:
            left[0] = oper[0] = right[0] = '\0';
            if (is_negation(token)) {
                if (terms > 0 && mode == COND_MERGE_NONE) {
                    error("cond_is_true: negative is not allowed here");
                    return -1;
                }
                print_log("cond_is_true: negative expression");
                negate = true;
            } else if (is_logic(token)) {
                if (terms == 0) {
                    error("cond_is_true: Logic should not be a first entry");
                    return -1;
                }
                print_log("cond_is_true: logic token");
                mode = get_merge_mode(token);
            } else if (is_alone(token, "(")) {
                collector[0] = '\0';
                depth = 1;
                state = COND_IN_PARENTHESES;
            } else if (starts_with_quote(token) || ends_with_quote(token) || is_operator(token) ||
                       is_alone(token, ")")) {
                return invalid(token);
            } else {
                if (!buffer_set(left, token))
                    return -1;
                print_log("left operand is %s", left);
                state = COND_HAVE_LEFT;
            }
            break;

        case COND_IN_PARENTHESES:
            // Inner parentheses only count: the collected text is evaluated
            // flat by one recursive call.
            if (is_alone(token, "(")) {
                depth++;
            } else if (is_alone(token, ")")) {
                if (--depth == 0)
                    finish_term(cond_is_true(collector, session));
            } else if (!buffer_append(collector, token)) {
                return -1;
            }
            break;

        case COND_HAVE_LEFT:
            if (is_logic(token)) {
                print_log("cond_is_true: this is a logic token. Execute already collected condition");
                merge(execute(left, oper, right, session));
                print_log("cond_is_true: result of the previosly collected condition is %d", result);
                mode = get_merge_mode(token);
                negate = false;
                terms++;
                state = COND_EXPECT_TERM;
            } else if (is_operator(token)) {
                if (!buffer_set(oper, token))
                    return -1;
                print_log("operation is %s", oper);
                state = COND_HAVE_OPERATOR;
            } else {
                return invalid(token);
            }
            break;

        case COND_HAVE_OPERATOR:
            if (starts_with_quote(token) && ends_with_quote(token)) {
                print_log("right operand %s", token);
                if (!buffer_set(right, token))
                    return -1;
                finish_term(execute(left, oper, right, session));
                collector[0] = '\0';
            } else if (starts_with_quote(token)) {
                if (!buffer_set(collector, token))
                    return -1;
                state = COND_IN_QUOTES;
            } else if (is_negation(token) || is_logic(token) || ends_with_quote(token) || is_operator(token) ||
                       is_alone(token, "(") || is_alone(token, ")")) {
                return invalid(token);
            } else {
                if (!buffer_set(right, token))
                    return -1;
                finish_term(execute(left, oper, right, session));
                mode = COND_MERGE_NONE;
            }
            break;

        case COND_IN_QUOTES:
            if (!buffer_append(collector, token))
                return -1;
            if (ends_with_quote(token)) {
                finish_term(execute(left, oper, collector, session));
                collector[0] = '\0';
            }
            break;
        }
    }

    switch (state) {
    case COND_HAVE_LEFT:
        merge(execute(left, oper, right, session));
        break;
    case COND_IN_PARENTHESES:
        error("cond_is_true: Right parentheses is missed");
        return -1;
    case COND_IN_QUOTES:
        error("cond_is_true: Right \" is missed");
        return -1;
    default:
        // A term that still waits for its right operand is dropped.
        break;
    }
    print_log("cond_is_true: result is %d", result);
    return result;
}

int cond_is_true(const char* condition, session_t* session)
{
    if (!condition) {
        error("cond_is_true: string is NULL");
        return -1;
    }
    if (!session) {
        error("cond_is_true: session is NULL");
        return -1;
    }
    print_log("cond_is_true: condition is '%s'", condition);
    if (is_operand_empty(condition) == 1) {
        print_log("cond_is_true: string is empty. Return true");
        return 1;
    }

    char* collector = (char*)malloc(COND_BUFFER_SIZE);
    if (!collector) {
        error("cond_is_true: buffer allocation failed");
        return -1;
    }
    char* right = (char*)malloc(COND_BUFFER_SIZE);
    if (!right) {
        error("cond_is_true: right allocation failed");
        free(collector);
        return -1;
    }
    char* left = (char*)malloc(COND_BUFFER_SIZE);
    if (!left) {
        error("cond_is_true: left allocation failed");
        free(right);
        free(collector);
        return -1;
    }
    char* oper = (char*)malloc(COND_BUFFER_SIZE);
    char* text = oper ? strdup(condition) : nullptr;
    if (!text) {
        error("cond_is_true: oper allocation failed");
        free(oper);
        free(left);
        free(right);
        free(collector);
        return -1;
    }
    collector[0] = left[0] = right[0] = oper[0] = '\0';

    int result = cond_evaluate(text, session, left, oper, right, collector);
    free(text);
    free(oper);
    free(left);
    free(right);
    free(collector);
    return result;
}
