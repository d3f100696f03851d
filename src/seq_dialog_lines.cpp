// Records and display strings of dialog lines, questions and prompts.
#include "seq_dialog_lines.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "env.h"
#include "log.h"
#include "xml.h"

#define LOG_ALLOC_FAILED() error("%s:%d: allocation of parameter failed", "src/seq", __LINE__)

// A copy of text, or of the empty string for null; null when out of memory.
static char* dup_or_empty(const char* text)
{
    return strdup(text ? text : "");
}

// Appends as much of text as the DIALOG_TEXT_MAX buffer still holds; false
// when something had to be cut.
static bool append_bounded(char* buffer, size_t* length, const char* text)
{
    size_t room = DIALOG_TEXT_MAX - 1 - *length;
    size_t want = strlen(text);
    size_t take = want < room ? want : room;
    memcpy(buffer + *length, text, take);
    *length += take;
    buffer[*length] = '\0';
    return take == want;
}

int make_line(session_t* session, node_t* line, line_t* out, int kind, const char* id)
{
    if (!session || !line || !out) {
        LOG_NULL_PARAM();
        return -1;
    }
    if (!id)
        id = xml_node_get_key(line, "id");
    if (!id) {
        error("make_line: id is NULL. Set it to 0");
        id = "0";
    }
    const char* text = xml_node_get_key(line, "text");
    if (!text) {
        error("make_line: text is null");
        text = "";
    }
    const char* def = xml_node_get_key(line, "default");
    const char* index = xml_node_get_key(line, "index");
    out->id = atoi(id);
    out->text = nullptr;

    std::string label;
    if (index)
        label = index;
    else if (kind == LINE_KIND_LIST)
        label = std::to_string(atoi(id));
    else
        label = id;
    label += ". ";
    // What the selection properties are compared with.
    std::string key = index ? index : id;

    if (kind == LINE_KIND_LIST) {
        label += text;
        std::string shown_default = def ? def : "false";
        if (shown_default != "false")
            label += " [" + expand_string(session, shown_default) + "]";
    } else if (kind == LINE_KIND_CHECKBOX || kind == LINE_KIND_RADIOBUTTON) {
        std::string dialog = env_get_string(session, "CURRENT_DIALOG");
        if (dialog.empty()) {
            error("make_line: cannot get CURRENT_DIALOG from session");
            return -1;
        }
        if (kind == LINE_KIND_CHECKBOX) {
            std::string showed_name = dialog + "_showed";
            std::string showed = env_get_string(session, showed_name);
            print_log("make_line: %s is %s", showed_name.c_str(), showed.c_str());
            std::string checked = env_get_string(session, dialog + "_cb");
            print_log("make_line: selected checkboxed for %s is %s", dialog.c_str(), checked.c_str());
            env_cat_string(session, dialog + "_cb_list", std::string(";") + id);
            if (showed.empty()) {
                // First showing: the lines' defaults decide what starts checked.
                if (!def) {
                    label += "[ ] ";
                } else {
                    label += "[x] ";
                    env_set_string(session, dialog + "_cb", checked.empty() ? std::string(id) : checked + ";" + id);
                }
            } else {
                // A substring test: ids that are prefixes of others interfere,
                // and packages choose their ids accordingly.
                label += checked.find(key) != std::string::npos ? "[x] " : "[ ] ";
            }
        } else {
            std::string selected = env_get_string(session, dialog + "_rb");
            print_log("make_line: selected radiobutton for %s is %s", dialog.c_str(), selected.c_str());
            env_cat_string(session, dialog + "_rb_list", std::string(";") + id);
            if (selected.empty()) {
                if (!def) {
                    label += "( ) ";
                } else {
                    label += "(*) ";
                    env_set_string(session, dialog + "_rb", id);
                }
            } else {
                label += selected == key ? "(*) " : "( ) ";
            }
        }
        label += text;
    } else {
        error("make_line: unknown kind of line %d", kind);
        return -1;
    }

    out->text = strdup(label.c_str());
    if (!out->text) {
        LOG_ALLOC_FAILED();
        return -1;
    }
    return 0;
}

list_t* new_list(void)
{
    list_t* sentinel = (list_t*)calloc(1, sizeof(list_t));
    if (!sentinel)
        LOG_ALLOC_FAILED();
    return sentinel;
}

list_t* add_line(list_t** head, int32_t id, const char* text)
{
    if (!head || !*head) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    list_t* record = (list_t*)calloc(1, sizeof(list_t));
    char* copy = dup_or_empty(text);
    if (!record || !copy) {
        LOG_ALLOC_FAILED();
        free(record);
        free(copy);
        return nullptr;
    }
    record->id = id;
    record->text = copy;
    record->next = *head;
    *head = record;
    return record;
}

// Selection sort into a new list: each pass takes the greatest id left (the
// first one found on a tie) and puts it in front of the result. Since lists
// are built in reverse, equal ids come out in document order.
template <typename T> static void sort_records(T** head)
{
    std::vector<T*> left;
    T* sentinel = *head;
    while (sentinel->next) {
        left.push_back(sentinel);
        sentinel = sentinel->next;
    }
    T* result = sentinel;
    while (!left.empty()) {
        size_t best = 0;
        for (size_t i = 1; i < left.size(); i++)
            if (left[i]->id > left[best]->id)
                best = i;
        T* record = left[best];
        left.erase(left.begin() + best);
        record->next = result;
        result = record;
    }
    *head = result;
}

int sort_list(list_t** head)
{
    if (!head || !*head) {
        LOG_NULL_PARAM();
        return -1;
    }
    sort_records(head);
    return 0;
}

char* make_list(list_t* head)
{
    if (!head) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    char* buffer = (char*)calloc(DIALOG_TEXT_MAX, 1);
    if (!buffer) {
        LOG_ALLOC_FAILED();
        return nullptr;
    }
    size_t length = 0;
    bool whole = true;
    for (list_t* p = head; p->next; p = p->next) {
        if (!p->text)
            continue;
        whole = append_bounded(buffer, &length, p->text) && whole;
        whole = append_bounded(buffer, &length, "\n") && whole;
    }
    if (!whole)
        warn("make_list: lines exceed %d bytes and are cut", DIALOG_TEXT_MAX - 1);
    return buffer;
}

void free_list(list_t* head)
{
    while (head) {
        list_t* next = head->next;
        free(head->text);
        free(head);
        head = next;
    }
}

q_list_t* new_questions(void)
{
    q_list_t* sentinel = (q_list_t*)calloc(1, sizeof(q_list_t));
    if (!sentinel)
        LOG_ALLOC_FAILED();
    return sentinel;
}

q_list_t* add_question(q_list_t** head, int32_t id, const char* text, const char* extra, list_t* lines)
{
    if (!head || !*head) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    q_list_t* record = (q_list_t*)calloc(1, sizeof(q_list_t));
    char* text_copy = dup_or_empty(text);
    char* extra_copy = dup_or_empty(extra);
    if (!record || !text_copy || !extra_copy) {
        LOG_ALLOC_FAILED();
        free(record);
        free(text_copy);
        free(extra_copy);
        return nullptr;
    }
    record->id = id;
    record->text = text_copy;
    record->extra = extra_copy;
    record->lines = lines;
    record->next = *head;
    *head = record;
    return record;
}

int sort_questions(q_list_t** head)
{
    if (!head || !*head) {
        LOG_NULL_PARAM();
        return -1;
    }
    sort_records(head);
    return 0;
}

char* make_question(q_list_t* head)
{
    if (!head) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    char* buffer = (char*)calloc(DIALOG_TEXT_MAX, 1);
    if (!buffer) {
        LOG_ALLOC_FAILED();
        return nullptr;
    }
    size_t length = 0;
    bool whole = true;
    bool first = true;
    for (q_list_t* p = head; p->next; p = p->next) {
        if (!p->text)
            continue;
        if (!first)
            whole = append_bounded(buffer, &length, "\n") && whole;
        whole = append_bounded(buffer, &length, p->text) && whole;
        first = false;
    }
    if (!whole)
        warn("make_question: questions exceed %d bytes and are cut", DIALOG_TEXT_MAX - 1);
    return buffer;
}

void free_questions(q_list_t* head)
{
    while (head) {
        q_list_t* next = head->next;
        free(head->text);
        free(head->extra);
        free_list(head->lines);
        free(head);
        head = next;
    }
}

static void free_validation_fields(validation_t* rule)
{
    free(rule->type);
    free(rule->err);
    free(rule->refresh);
    free(rule->pattern);
    free(rule->list);
    free(rule->invert);
    free(rule->check);
}

static void free_validations(validation_t* head)
{
    while (head) {
        validation_t* next = head->next;
        free_validation_fields(head);
        free(head);
        head = next;
    }
}

validation_t* add_validation(validation_t** head, const char* type, const char* err, const char* refresh,
                             const char* pattern, const char* list, const char* invert, const char* check)
{
    if (!head || !*head) {
        LOG_NULL_PARAM();
        return nullptr;
    }
    validation_t* rule = (validation_t*)calloc(1, sizeof(validation_t));
    if (!rule) {
        LOG_ALLOC_FAILED();
        return nullptr;
    }
    rule->type = dup_or_empty(type);
    rule->err = dup_or_empty(err);
    rule->refresh = dup_or_empty(refresh);
    rule->pattern = dup_or_empty(pattern);
    rule->list = dup_or_empty(list);
    rule->invert = strdup(invert ? invert : "false");
    rule->check = dup_or_empty(check);
    if (!rule->type || !rule->err || !rule->refresh || !rule->pattern || !rule->list || !rule->invert || !rule->check) {
        LOG_ALLOC_FAILED();
        free_validation_fields(rule);
        free(rule);
        return nullptr;
    }
    rule->next = *head;
    *head = rule;
    return rule;
}

int make_input(node_t* input, input_t* out, const char* default_value)
{
    if (!input || !out) {
        LOG_NULL_PARAM();
        return -1;
    }
    print_log("make_input: started");
    memset(out, 0, sizeof *out);
    validation_t* chain = (validation_t*)calloc(1, sizeof(validation_t));
    if (!chain) {
        LOG_ALLOC_FAILED();
        return -1;
    }
    const char* text = xml_node_get_key(input, "text");
    if (!text) {
        error("make_input: text is null");
        text = "";
    }
    const char* keep = xml_node_get_key(input, "keep");
    if (!keep) {
        error("make_input: keep is null");
        keep = "";
    }
    const char* def = default_value ? default_value : xml_node_get_key(input, "default");
    if (!def)
        def = "";

    std::string prompt = text;
    int choices = 0;
    for (int i = 0; i < input->childs_count; i++) {
        node_t* child = &input->childs[i];
        if (!strcmp(child->name, "choice")) {
            const char* choice = xml_node_get_key(child, "text");
            if (!choice) {
                error("make_input: c_text is NULL");
                continue;
            }
            prompt += choices++ ? "/" : " (";
            prompt += choice;
        } else if (!strcmp(child->name, "validation")) {
            if (!add_validation(&chain, xml_node_get_key(child, "type"), xml_node_get_key(child, "err"),
                                xml_node_get_key(child, "refresh"), xml_node_get_key(child, "pattern"),
                                xml_node_get_key(child, "list"), xml_node_get_key(child, "invert"),
                                xml_node_get_key(child, "check"))) {
                error("make_input: validation malloc failure");
                free_validations(chain);
                return -1;
            }
        }
    }
    if (choices)
        prompt += ")";
    if (*def)
        prompt += std::string(" [") + def + "]";
    prompt += ": ";

    out->text = strdup(prompt.c_str());
    out->default_value = strdup(def);
    out->keep = strdup(keep);
    if (!out->text || !out->default_value || !out->keep) {
        LOG_ALLOC_FAILED();
        free_validations(chain);
        free_input(out);
        return -1;
    }
    // The record holds the first rule by value; its shell is not needed.
    out->validation = *chain;
    free(chain);
    print_log("make_input: finished");
    return 0;
}

void free_input(input_t* input)
{
    if (!input)
        return;
    free(input->text);
    free(input->default_value);
    free(input->keep);
    free_validation_fields(&input->validation);
    free_validations(input->validation.next);
    memset(input, 0, sizeof *input);
}
