// One dialog screen: building it from its element, drawing it, reading and
// validating the answer, toggling checkbox and radio lines.
#include "seq_dialog.h"

#include <cerrno>
#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "cond.h"
#include "console.h"
#include "env.h"
#include "log.h"
#include "seq_dialog_lines.h"
#include "utils.h"
#include "xml.h"

// show_dialog_once's result when a toggle asks for the dialog to be drawn anew.
#define DIALOG_AGAIN 1

static FILE* dialog_input = nullptr;
static dialog_eof_fn dialog_eof_handler = nullptr;

void dialog_set_input(FILE* stream)
{
    dialog_input = stream;
}

void dialog_set_eof_handler(dialog_eof_fn handler)
{
    dialog_eof_handler = handler;
}

// Everything a dialog needs once it has been built from its element. It
// lives on the heap so that nothing of it is lost when the interrupt handler
// jumps back to the head of the dialog.
struct dialog_t {
    std::string clear_screen = "true";
    std::string title;
    std::string description;
    char* questions = nullptr;
    bool checkbox = false;
    bool has_input = false;
    input_t input = {};
    std::string prompt;
    // Shown number of a "num" line -> its id attribute; index 0 unused.
    std::vector<int32_t> inputs_map;
    int32_t shown_num = 0;
    bool hidden_num = false;
    bool hidden_custom = false;
    std::set<std::string> hidden_answers;
    char* answer = nullptr;
};

static void dialog_free(dialog_t* d)
{
    if (!d)
        return;
    free(d->questions);
    if (d->has_input)
        free_input(&d->input);
    free(d->answer);
    delete d;
}

static const char* key_or(node_t* node, const char* name, const char* fallback)
{
    const char* value = xml_node_get_key(node, name);
    return value ? value : fallback;
}

static bool is_number(const std::string& text)
{
    if (text.empty())
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    return true;
}

static bool condition_holds(session_t* session, node_t* node)
{
    const char* condition = xml_node_get_key(node, "condition");
    return !condition || cond_is_true(condition, session) == 1;
}

// The lines of one list element, added to lines. default_value is updated
// where a line carries a default. 0, or -1 after a report.
static int dialog_add_list(session_t* session, dialog_t* d, node_t* list, int kind, list_t** lines,
                           std::string* default_value, bool* has_default)
{
    const char* type = xml_node_get_key(list, "type");
    if (!type) {
        error("show_dialog: type is undefined");
        return 0;
    }
    bool num = !strcmp(type, "num");
    bool custom = !strcmp(type, "custom");
    if (!strcmp(type, "alpha"))
        return 0;
    if (!num && !custom) {
        error("show_dialog: Unknown list type - %s", type);
        return -1;
    }
    for (int i = 0; i < list->childs_count; i++) {
        node_t* line = &list->childs[i];
        if (!line->name || strcmp(line->name, "line") != 0)
            continue;
        const char* def = xml_node_get_key(line, "default");
        if (!condition_holds(session, line)) {
            if (num) {
                d->hidden_num = true;
                if (def)
                    print_log("show_dialog: hidden default num option");
            } else {
                const char* index = key_or(line, "index", key_or(line, "id", ""));
                std::string hidden = expand_string(session, index);
                print_log("show_dialog: skipping custom index %s", hidden.c_str());
                d->hidden_answers.insert(hidden);
                d->hidden_custom = true;
                if (def)
                    print_log("show_dialog: hidden default custom option");
            }
            if (def) {
                *default_value = "";
                *has_default = true;
            }
            continue;
        }
        line_t out = {};
        if (num) {
            std::string number = std::to_string(d->shown_num + 1);
            if (make_line(session, line, &out, kind, number.c_str()) != 0)
                return -1;
            const char* id = xml_node_get_key(line, "id");
            if (!id)
                error("show_dialog: line id is NULL");
            if (def) {
                print_log("show_dialog: changing default option from %d to %s", atoi(default_value->c_str()),
                          number.c_str());
                *default_value = number;
                *has_default = true;
            }
            d->shown_num++;
            if ((size_t)d->shown_num >= d->inputs_map.size())
                d->inputs_map.resize(d->inputs_map.size() + 10, 0);
            d->inputs_map[d->shown_num] = id ? atoi(id) : 0;
        } else if (make_line(session, line, &out, kind, nullptr) != 0) {
            return -1;
        }
        list_t* added = add_line(lines, out.id, out.text);
        free(out.text);
        if (!added) {
            error("show_dialog: line malloc failure");
            return -1;
        }
    }
    return 0;
}

// Adds one question element to the list of questions. 0, or -1 after a report.
static int dialog_add_question(session_t* session, dialog_t* d, node_t* dialog, node_t* question, q_list_t** questions,
                               std::string* default_value, bool* has_default)
{
    int32_t id = 0;
    const char* id_text = xml_node_get_key(question, "id");
    if (!id_text)
        error("show_dialog: id of dialog %s is NULL", key_or(dialog, "id", ""));
    else
        id = atoi(id_text);
    const char* type = key_or(question, "type", "simple");
    if (!strcmp(type, "simple")) {
        if (!add_question(questions, id, key_or(question, "text", ""), "", nullptr)) {
            error("show_dialog: q malloc failure");
            return -1;
        }
        return 0;
    }
    int kind;
    if (!strcmp(type, "list")) {
        kind = LINE_KIND_LIST;
    } else if (!strcmp(type, "checkbox")) {
        kind = LINE_KIND_CHECKBOX;
        d->checkbox = true;
    } else if (!strcmp(type, "radiobutton")) {
        kind = LINE_KIND_RADIOBUTTON;
    } else {
        error("show_dialog: Unknown type of the question - %s", type);
        return -1;
    }
    list_t* lines = new_list();
    if (!lines) {
        error("show_dialog: list malloc failure");
        return -1;
    }
    for (int i = 0; i < question->childs_count; i++) {
        node_t* child = &question->childs[i];
        if (!child->name || strcmp(child->name, "list") != 0)
            continue;
        if (dialog_add_list(session, d, child, kind, &lines, default_value, has_default) != 0) {
            free_list(lines);
            return -1;
        }
    }
    sort_list(&lines);
    char* text = make_list(lines);
    if (!text) {
        error("show_dialog: tmp_list is null");
        free_list(lines);
        return -1;
    }
    q_list_t* added = add_question(questions, id, text, "", lines);
    free(text);
    if (!added) {
        error("show_dialog: q malloc failure");
        free_list(lines);
        return -1;
    }
    return 0;
}

// Builds the dialog from its element: texts, questions, lines and prompt.
// Null after a report.
static dialog_t* dialog_build(session_t* session, node_t* dialog)
{
    dialog_t* d = new (std::nothrow) dialog_t;
    if (!d) {
        error("show_dialog: q_list malloc failure");
        return nullptr;
    }
    d->answer = (char*)calloc(DIALOG_TEXT_MAX, 1);
    if (!d->answer) {
        error("show_dialog: s_user_input allocation failed");
        dialog_free(d);
        return nullptr;
    }
    d->clear_screen = key_or(dialog, "clear_screen", "true");
    q_list_t* questions = new_questions();
    if (!questions) {
        error("show_dialog: q_list malloc failure");
        dialog_free(d);
        return nullptr;
    }
    // The default an input element gets from the lines seen before it.
    std::string default_value;
    bool has_default = false;
    for (int i = 0; i < dialog->childs_count; i++) {
        node_t* child = &dialog->childs[i];
        if (!child->name)
            continue;
        int rc = 0;
        if (!strcmp(child->name, "title")) {
            d->title = key_or(child, "text", "");
        } else if (!strcmp(child->name, "description")) {
            d->description = key_or(child, "text", "");
        } else if (!strcmp(child->name, "question")) {
            rc = dialog_add_question(session, d, dialog, child, &questions, &default_value, &has_default);
        } else if (!strcmp(child->name, "input")) {
            if (d->has_input)
                free_input(&d->input);
            d->has_input = false;
            rc = make_input(child, &d->input, has_default ? default_value.c_str() : nullptr);
            if (rc == 0)
                d->has_input = true;
            else
                error("show_dialog: input_s malloc failure");
        }
        if (rc != 0) {
            free_questions(questions);
            dialog_free(d);
            return nullptr;
        }
    }
    sort_questions(&questions);
    d->questions = make_question(questions);
    free_questions(questions);
    if (!d->questions) {
        error("show_dialog: q malloc failure");
        dialog_free(d);
        return nullptr;
    }
    if (d->has_input)
        d->prompt = expand_string(session, d->input.text);
    return d;
}

// Title and description: "&#xa;" stands for a line break.
static void dialog_print_block(session_t* session, const std::string& text)
{
    if (text.empty())
        return;
    std::string shown = expand_string(session, text);
    shown = replaceAllSubstrings(shown, "&#xa;", "\n");
    shown = expand_string(session, shown);
    print_string("%s\n", shown.c_str());
    print_dashes();
}

// Reads one line into d->answer: 1 with an answer, 0 at the end of input.
// A last line without a newline still counts as an answer; the part of an
// overlong line that does not fit is dropped.
static int dialog_read_line(dialog_t* d)
{
    FILE* in = dialog_input ? dialog_input : stdin;
    memset(d->answer, 0, DIALOG_TEXT_MAX);
    size_t length = 0;
    bool cut = false;
    bool got_any = false;
    for (;;) {
        int c = fgetc(in);
        if (c == EOF) {
            if (ferror(in) && errno == EINTR) {
                clearerr(in);
                continue;
            }
            if (!got_any)
                return 0;
            break;
        }
        got_any = true;
        if (c == '\n')
            break;
        if (length < DIALOG_TEXT_MAX - 1)
            d->answer[length++] = (char)c;
        else
            cut = true;
    }
    if (cut)
        warn("show_dialog: answer longer than %d bytes is cut", DIALOG_TEXT_MAX - 1);
    // An answer file written with CRLF line ends.
    if (length > 0 && d->answer[length - 1] == '\r')
        d->answer[--length] = '\0';
    return 1;
}

// Runs the rule chain on the answer: 1 accepted, 0 rejected (with *reached
// the rule that decided), -1 for a pattern that does not compile.
static int dialog_validate(session_t* session, dialog_t* d, const std::string& answer, validation_t** reached)
{
    validation_t* rule = &d->input.validation;
    *reached = nullptr;
    if (!rule->next)
        return 1;
    int pass = !strcmp(rule->invert, "false") ? 1 : 0;
    print_log("pass is %d", pass);
    for (; rule && rule->next; rule = rule->next) {
        *reached = rule;
        bool must_pass = !strcmp(rule->invert, "false");
        if (!strcmp(rule->type, "list") && *rule->list) {
            std::string expanded = expand_string(session, rule->list);
            bool listed = false;
            for (const std::string& token : splitStringIntoTokens(expanded, ";", false)) {
                if (token == answer || (token == "ENTER" && answer.empty())) {
                    listed = true;
                    break;
                }
            }
            if (listed) {
                int number = atoi(answer.c_str());
                if (is_number(answer) && number != 0 && d->hidden_num && number > d->shown_num) {
                    print_log("show_dialog: not accepted hidden answer %s", answer.c_str());
                    pass = 0;
                } else if (number == 0 && d->hidden_custom) {
                    if (d->hidden_answers.count(answer)) {
                        print_log("show_dialog: not accepted hidden answer %s", answer.c_str());
                        pass = 0;
                    } else {
                        pass = 1;
                    }
                } else {
                    pass = must_pass ? 0 : 1;
                }
            }
        } else if (!strcmp(rule->type, "pattern")) {
            std::string pattern = expand_string(session, rule->pattern);
            regex_t* regex = get_regex(pattern.c_str(), 1);
            if (!regex) {
                error("show_dialog: input_regexp is null");
                return -1;
            }
            print_log("show_dialog: checking %s against regexp %s", answer.c_str(), pattern.c_str());
            pass = regmatch(regex, answer.c_str(), 0) == 1 ? 1 : 0;
            free_regex(&regex);
        } else if (!strcmp(rule->type, "path")) {
            const char* check = rule->check;
            if (*check && pass == 0) {
                if (strstr(check, "empty") && answer.empty())
                    pass = 1;
                else if (strstr(check, "dir"))
                    pass = is_dir(answer.c_str()) ? 1 : 0;
                if (pass == 0 && strstr(check, "file"))
                    pass = is_file(answer.c_str()) ? 1 : 0;
            }
        } else {
            pass = 1;
        }
        if (must_pass && pass == 0)
            return 0;
        if (!must_pass && pass == 1)
            return 1;
    }
    return pass == 1 ? 1 : 0;
}

// Toggles the checkbox or radio line the rejected answer names. DIALOG_AGAIN
// when it did, 0 when the answer names no such line.
static int dialog_toggle(session_t* session, const std::string& answer)
{
    std::string dialog = env_get_string(session, "CURRENT_DIALOG");
    if (answer.empty() || dialog.empty())
        return 0;
    std::string cb_list_name = dialog + "_cb_list";
    std::string cb_list = env_get_string(session, cb_list_name);
    if (!cb_list.empty() && cb_list.find(answer) != std::string::npos) {
        print_log("show_dialog: this is checkbox dialog, %s is %s", cb_list_name.c_str(), cb_list.c_str());
        std::string cb_name = dialog + "_cb";
        std::string checked = env_get_string(session, cb_name);
        print_log("show_dialog: %s before is %s", cb_name.c_str(), checked.c_str());
        std::string updated;
        if (checked.find(answer) == std::string::npos) {
            print_log("show_dialog: item is unchecked, going to check");
            updated = checked + ";" + answer;
        } else {
            print_log("show_dialog: item is checked, going to uncheck");
            for (const std::string& token : splitStringIntoTokens(checked, ";", false)) {
                print_log("show_dialog: token is %s", token.c_str());
                if (token != answer) {
                    print_log("show_dialog: token not equal %s so store it", answer.c_str());
                    updated += ";" + token;
                }
            }
        }
        env_set_string(session, cb_name, updated);
        print_log("show_dialog: %s after is %s", cb_name.c_str(), updated.c_str());
        env_set_string(session, cb_list_name, "");
        return DIALOG_AGAIN;
    }
    std::string rb_list_name = dialog + "_rb_list";
    std::string rb_list = env_get_string(session, rb_list_name);
    if (!rb_list.empty() && rb_list.find(answer) != std::string::npos) {
        env_set_string(session, dialog + "_rb", answer);
        env_set_string(session, rb_list_name, "");
        return DIALOG_AGAIN;
    }
    return 0;
}

// Draws the dialog and asks until an answer is accepted. 0, -1, or
// DIALOG_AGAIN after a toggle.
static int dialog_run(session_t* session, dialog_t* d)
{
    int width = get_window_width();
    env_set_string(session, "DASHES_STRING", std::string(width < 80 ? width : 80, '-'));
    if (d->clear_screen == "true") {
        fflush(stdout);
        fputs("\033[2J\033[1;1H", stderr);
        fflush(stderr);
    }
    dialog_print_block(session, d->title);
    dialog_print_block(session, d->description);
    if (*d->questions) {
        std::string shown = expand_string(session, expand_string(session, d->questions));
        print_string("%s", shown.c_str());
        print_dashes();
    }
    if (d->checkbox) {
        std::string dialog = env_get_string(session, "CURRENT_DIALOG");
        if (dialog.empty()) {
            error("show_dialog: cannot get CURRENT_DIALOG from session");
            return -1;
        }
        env_set_string(session, dialog + "_showed", "yes");
    }
    if (!d->has_input)
        return 0;

    for (;;) {
        print_string("%s", expand_string(session, d->prompt).c_str());
        if (env_exists(session, "print_dialogs_list")) {
            printf("\n");
            fflush(stdout);
            return 0;
        }
        // A path rule first would call for the path editor; answers are read
        // as a plain line.
        if (!dialog_read_line(d)) {
            print_log("show_dialog: end of input at the prompt, cancelling");
            printf("\n");
            fflush(stdout);
            if (!dialog_eof_handler)
                exit(4);
            dialog_eof_handler();
            return -1;
        }
        std::string answer = d->answer;
        if (answer.empty()) {
            print_log("show_dialog: user didn't input anything, so copying default input (%s)", d->input.default_value);
            answer = expand_string(session, d->input.default_value);
        }
        validation_t* reached = nullptr;
        int accepted = dialog_validate(session, d, answer, &reached);
        if (accepted < 0)
            return -1;
        if (!accepted) {
            if (dialog_toggle(session, answer) == DIALOG_AGAIN)
                return DIALOG_AGAIN;
            if (reached && *reached->err)
                print_string("%s\n", expand_string(session, reached->err).c_str());
            continue;
        }
        if (d->hidden_num && is_number(answer)) {
            int number = atoi(answer.c_str());
            if (number != 0 && number <= d->shown_num) {
                print_log("show_dialog: ID %d is mapped to %d", number, d->inputs_map[number]);
                answer = std::to_string(d->inputs_map[number]);
            }
        }
        if (*d->input.keep)
            env_set_string(session, d->input.keep, answer);
        env_set_string(session, "HANDLE", answer);
        return 0;
    }
}

// One showing, from building to the accepted answer. The interrupt handler
// jumps back to the return point set here and the dialog is drawn again.
static int show_dialog_once(session_t* session, node_t* dialog)
{
    print_log("show_dialog: started");
    dialog_t* const d = dialog_build(session, dialog);
    if (!d)
        return -1;
    sigsetjmp(position, 1);
    position_is_set = 1;
    int rc = dialog_run(session, d);
    // Past this point the frame is gone: an interrupt must not jump here.
    position_is_set = 0;
    dialog_free(d);
    if (rc == 0)
        print_log("show_dialog: finished");
    return rc;
}

int show_dialog(session_t* session, node_t* dialog)
{
    if (!session || !dialog) {
        LOG_NULL_PARAM();
        return -1;
    }
    // A toggle shows the same dialog again, built anew from its element.
    int rc;
    while ((rc = show_dialog_once(session, dialog)) == DIALOG_AGAIN)
        ;
    return rc;
}
