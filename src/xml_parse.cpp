// The parser of the package dialect: one pass over the bytes through a small
// state machine, building the tree in an arena that belongs to the document.
//
// Elements are collected bottom-up: a finished element waits on a list until
// its parent is finished, which then takes all of them as one array of exactly
// the right size. So the tree's memory follows what the text holds, however
// many roots, children or attributes there are.
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "log.h"
#include "xml.h"

namespace
{

// An element's text is cut at this many bytes; the rest falls outside it.
const size_t XML_TEXT_LIMIT = 511999;

enum xml_state_t {
    VACUUM,
    E_START,
    C_START,
    C_CONT_1,
    C_BODY,
    C_END_1,
    C_END_2,
    V_START,
    V_CONT_1,
    V_CONT_2,
    V_BODY,
    V_END,
    E_NAME,
    E_PROPS,
    E_PROP_NAME,
    E_PROP_VALUE_1,
    E_PROP_VALUE_2,
    E_FINISH,
    E_END_1,
    E_DATA,
};

} // namespace

// The arena: a chain of blocks, handed out front to back and released only
// together.
struct xml_arena_t {
    struct block_t {
        block_t* next;
    };
    block_t* blocks;
    char* next;
    char* end;
    size_t block_size;
};

namespace
{

const size_t XML_ARENA_FIRST_BLOCK = 4096;
const size_t XML_ARENA_MAX_BLOCK = 1 << 20;

xml_arena_t* xml_arena_new(void)
{
    xml_arena_t* arena = (xml_arena_t*)calloc(1, sizeof(xml_arena_t));
    if (arena)
        arena->block_size = XML_ARENA_FIRST_BLOCK;
    return arena;
}

void xml_arena_free(xml_arena_t* arena)
{
    if (!arena)
        return;
    while (arena->blocks) {
        xml_arena_t::block_t* next = arena->blocks->next;
        free(arena->blocks);
        arena->blocks = next;
    }
    free(arena);
}

// size bytes aligned to align (a power of two); null when memory runs out.
void* xml_arena_alloc(xml_arena_t* arena, size_t size, size_t align)
{
    uintptr_t at = ((uintptr_t)arena->next + align - 1) & ~(uintptr_t)(align - 1);
    if (arena->next && at + size <= (uintptr_t)arena->end) {
        arena->next = (char*)(at + size);
        return (void*)at;
    }
    size_t header = (sizeof(xml_arena_t::block_t) + 15) & ~(size_t)15;
    size_t want = size + header + align;
    size_t block = arena->block_size;
    if (block < want)
        block = want;
    else if (arena->block_size < XML_ARENA_MAX_BLOCK)
        arena->block_size *= 2;
    xml_arena_t::block_t* fresh = (xml_arena_t::block_t*)malloc(block);
    if (!fresh)
        return nullptr;
    fresh->next = arena->blocks;
    arena->blocks = fresh;
    at = ((uintptr_t)fresh + header + align - 1) & ~(uintptr_t)(align - 1);
    arena->next = (char*)(at + size);
    arena->end = (char*)fresh + block;
    return (void*)at;
}

char* xml_arena_strndup(xml_arena_t* arena, const char* text, size_t length)
{
    char* copy = (char*)xml_arena_alloc(arena, length + 1, 1);
    if (copy) {
        memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

// Arrays of no element still have to be non-null: the tree tells an empty
// section from an absent one by the pointer.
alignas(node_t) char xml_empty_array[sizeof(node_t)];

template <typename T> T* xml_arena_copy(xml_arena_t* arena, const T* items, size_t count)
{
    if (count == 0)
        return (T*)xml_empty_array;
    T* copy = (T*)xml_arena_alloc(arena, count * sizeof(T), alignof(T));
    if (copy)
        memcpy((void*)copy, items, count * sizeof(T));
    return copy;
}

// A growing array of plain records on malloc; no exceptions, false when
// memory runs out.
template <typename T> struct xml_stack_t {
    T* items = nullptr;
    size_t count = 0;
    size_t capacity = 0;

    ~xml_stack_t() { free(items); }
    bool push(const T& item)
    {
        if (count == capacity) {
            size_t grown = capacity ? capacity * 2 : 64;
            T* bigger = (T*)realloc((void*)items, grown * sizeof(T));
            if (!bigger)
                return false;
            items = bigger;
            capacity = grown;
        }
        items[count++] = item;
        return true;
    }
};

// An element between its start and its commit, with the place on the list
// of finished elements where its children begin.
struct xml_open_t {
    node_t node;
    size_t first_child;
};

enum { XML_ALPHA = 1, XML_ALNUM = 2 };

struct xml_parser_t {
    xml_arena_t* arena = nullptr;
    xml_stack_t<xml_open_t> open; // the current element last, its ancestors before it
    xml_stack_t<node_t> finished; // committed elements not yet taken by a parent; roots first
    xml_stack_t<key_t> keys;      // attributes of the start tag being read
    char* key_name = nullptr;     // name of the attribute whose value is being read
    unsigned char classes[256]{}; // the C library's letters and digits, in the current locale
};

// Opens an element at the start of its name. Its sections start empty; the
// start tag decides which of them are present.
int xml_open_element(xml_parser_t* parser)
{
    xml_open_t element;
    element.node.name = nullptr;
    element.node.data = nullptr;
    element.node.data_len = -1;
    element.node.keys = nullptr;
    element.node.keys_count = 0;
    element.node.childs = nullptr;
    element.node.childs_count = 0;
    element.first_child = parser->finished.count;
    if (!parser->open.push(element)) {
        error("xml_parse: top allocation failed");
        return -1;
    }
    parser->keys.count = 0;
    return 0;
}

// Ends the start tag's attribute section: the attributes read become the
// element's array.
int xml_take_keys(xml_parser_t* parser, node_t* node)
{
    node->keys = xml_arena_copy(parser->arena, parser->keys.items, parser->keys.count);
    if (!node->keys) {
        error("xml_parse: top->keys allocation failed");
        return -1;
    }
    node->keys_count = (int32_t)parser->keys.count;
    parser->keys.count = 0;
    return 0;
}

// Finishes the current element: it takes its waiting children and waits in
// turn for its parent (or becomes the next root).
int xml_commit(xml_parser_t* parser)
{
    xml_open_t* element = &parser->open.items[parser->open.count - 1];
    node_t node = element->node;
    if (node.childs_count >= 0) {
        size_t count = parser->finished.count - element->first_child;
        node.childs = xml_arena_copy(parser->arena, parser->finished.items + element->first_child, count);
        if (!node.childs) {
            error("xml_parse: top->childs allocation failed");
            return -1;
        }
        node.childs_count = (int32_t)count;
        parser->finished.count = element->first_child;
    }
    parser->open.count--;
    if (!parser->finished.push(node)) {
        error("xml_parse: malloc failed");
        return -1;
    }
    return 0;
}

char* xml_store(xml_parser_t* parser, const char* text, size_t from, size_t to)
{
    char* copy = xml_arena_strndup(parser->arena, text + from, to - from);
    if (!copy)
        error("xml_parse: malloc failed");
    return copy;
}

// Hands the completed roots to the document. 0, or -1 when memory ran out.
int xml_publish_roots(xml_parser_t* parser, document_t* document)
{
    size_t roots = parser->open.count ? parser->open.items[0].first_child : parser->finished.count;
    node_t* nodes = xml_arena_copy(parser->arena, parser->finished.items, roots);
    if (!nodes) {
        error("xml_parse: malloc failed");
        return -1;
    }
    document->nodes = nodes;
    document->nodes_count = (int32_t)roots;
    return 0;
}

int xml_run(xml_parser_t* parser, const char* text, size_t length)
{
    const unsigned char* classes = parser->classes;
    xml_state_t state = VACUUM;
    size_t i = 0;
    size_t start = 0; // where the name, value or text being read began

    // The element being read is the innermost open one.
    auto current = [parser]() { return &parser->open.items[parser->open.count - 1].node; };
    // The name ends at the byte i.
    auto store_name = [&]() { return (current()->name = xml_store(parser, text, start, i)) != nullptr; };

    while (i < length) {
        char c = text[i];
        unsigned char cls = classes[(unsigned char)c];
        switch (state) {
        case VACUUM:
            if (c == '<') {
                state = E_START;
            } else if (c == '/') {
                // An end tag needs an element to end.
                if (parser->open.count == 0) {
                    error("xml_parse: First element declaration was missed");
                    return -1;
                }
                state = E_END_1;
            } else if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
                print_log("xml_parse: garbage character %c in state VACUUM", c);
            }
            i++;
            break;
        case E_START:
            if (c == '!') {
                state = C_START;
            } else if (c == '?') {
                state = V_START;
            } else if (c == '/') {
                if (parser->open.count == 0) {
                    error("xml_parse: First element declaration was missed");
                    return -1;
                }
                state = E_END_1;
            } else if (cls & XML_ALPHA) {
                if (xml_open_element(parser) < 0)
                    return -1;
                start = i;
                state = E_NAME;
                break; // the letter is the name's first
            } else {
                error("xml_parse: Wrong character %c in state E_START\n", c);
                return -1;
            }
            i++;
            break;
        case C_START:
            if (c != '-') {
                error("xml_parse: Wrong character %c in state C_START\n", c);
                return -1;
            }
            state = C_CONT_1;
            i++;
            break;
        case C_CONT_1:
            if (c != '-') {
                error("xml_parse: Wrong character %c in state C_CONT_1\n", c);
                return -1;
            }
            state = C_BODY;
            i++;
            break;
        case C_BODY: {
            const char* dash = (const char*)memchr(text + i, '-', length - i);
            if (!dash) {
                i = length;
                break;
            }
            i = (size_t)(dash - text) + 1;
            state = C_END_1;
            break;
        }
        case C_END_1:
            state = c == '-' ? C_END_2 : C_BODY;
            i++;
            break;
        case C_END_2:
            state = c == '>' ? VACUUM : C_BODY;
            i++;
            break;
        case V_START:
        case V_CONT_1:
        case V_CONT_2: {
            static const char expected[] = {'x', 'm', 'l'};
            if (c != expected[state - V_START]) {
                error("xml_parse: incorrect xml version tag");
                return -1;
            }
            state = (xml_state_t)(state + 1);
            i++;
            break;
        }
        case V_BODY: {
            const char* mark = (const char*)memchr(text + i, '?', length - i);
            if (!mark) {
                i = length;
                break;
            }
            i = (size_t)(mark - text) + 1;
            state = V_END;
            break;
        }
        case V_END: {
            const char* close = (const char*)memchr(text + i, '>', length - i);
            if (!close) {
                i = length;
                break;
            }
            i = (size_t)(close - text) + 1;
            state = VACUUM;
            break;
        }
        case E_NAME:
            if ((cls & XML_ALNUM) || c == '_') {
                i++;
                while (i < length && ((classes[(unsigned char)text[i]] & XML_ALNUM) || text[i] == '_'))
                    i++;
                break;
            }
            if (!store_name())
                return -1;
            if (c == '/') {
                node_t* node = current();
                node->keys_count = -1;
                node->childs_count = -1;
                state = E_FINISH;
            } else if (c == ' ' || c == '\t') {
                state = E_PROPS;
            } else if (c == '>') {
                current()->keys_count = -1;
                start = i + 1;
                state = E_DATA;
            } else {
                error("xml_parse: Wrong character %c in state E_NAME\n", c);
                return -1;
            }
            i++;
            break;
        case E_PROPS:
            if (c == '/') {
                node_t* node = current();
                if (xml_take_keys(parser, node) < 0)
                    return -1;
                node->childs_count = -1;
                state = E_FINISH;
            } else if (c == ' ' || c == '\t') {
                // separators only
            } else if (c == '>') {
                if (xml_take_keys(parser, current()) < 0)
                    return -1;
                start = i + 1;
                state = E_DATA;
            } else if (cls & XML_ALNUM) {
                start = i;
                state = E_PROP_NAME;
                break; // the first byte of the attribute's name
            } else {
                error("xml_parse: Wrong character %c in state E_PROP_NAME\n", c);
                return -1;
            }
            i++;
            break;
        case E_PROP_NAME:
            if ((cls & XML_ALNUM) || c == '-' || c == '_') {
                i++;
                while (i < length) {
                    char next = text[i];
                    if (!((classes[(unsigned char)next] & XML_ALNUM) || next == '-' || next == '_'))
                        break;
                    i++;
                }
                break;
            }
            if (c != '=') {
                error("xml_parse: Wrong character %c in state E_PROP_NAME\n", c);
                return -1;
            }
            if (!(parser->key_name = xml_store(parser, text, start, i)))
                return -1;
            state = E_PROP_VALUE_1;
            i++;
            break;
        case E_PROP_VALUE_1:
            if (c != '"') {
                error("xml_parse: Wrong character %c in state E_PROP_VALUE_1\n", c);
                return -1;
            }
            state = E_PROP_VALUE_2;
            i++;
            start = i;
            break;
        case E_PROP_VALUE_2: {
            const char* quote = (const char*)memchr(text + i, '"', length - i);
            if (!quote) {
                i = length;
                break;
            }
            i = (size_t)(quote - text);
            key_t key;
            key.name = parser->key_name;
            if (!(key.value = xml_store(parser, text, start, i)))
                return -1;
            if (!parser->keys.push(key)) {
                error("xml_parse: top->keys allocation failed");
                return -1;
            }
            state = E_PROPS;
            i++;
            break;
        }
        case E_FINISH:
            if (c != '>') {
                error("xml_parse: Wrong character %c in state E_FINISH\n", c);
                return -1;
            }
            if (xml_commit(parser) < 0)
                return -1;
            state = VACUUM;
            i++;
            break;
        case E_END_1:
            if ((cls & XML_ALNUM) || c == '_') {
                i++;
                break;
            }
            if (c != '>') {
                error("xml_parse: Wrong character %c in state E_END_1\n", c);
                return -1;
            }
            if (xml_commit(parser) < 0)
                return -1;
            state = VACUUM;
            i++;
            break;
        case E_DATA: {
            // The text runs up to the next '<' but no further than the limit;
            // whatever stops it is read again in VACUUM.
            size_t window = length - i < XML_TEXT_LIMIT ? length - i : XML_TEXT_LIMIT;
            const char* open = (const char*)memchr(text + i, '<', window);
            size_t stop = open ? (size_t)(open - text) : i + window;
            if (!open && stop == length) {
                i = length; // the text never ended
                break;
            }
            if (stop > start) {
                node_t* node = current();
                if (!(node->data = xml_store(parser, text, start, stop)))
                    return -1;
                node->data_len = (int32_t)(stop - start);
            }
            i = stop;
            state = VACUUM;
            break;
        }
        }
    }

    if (state != VACUUM) {
        error("xml_parse: unexpected end of xml data");
        return -1;
    }
    return 0;
}

} // namespace

int xml_parse(const char* text, document_t* document)
{
    if (!text) {
        error("xml_parse: XML data is NULL");
        return -1;
    }
    if (!document) {
        error("xml_parse: Document is NULL");
        return -1;
    }
    document->nodes = nullptr;
    document->nodes_count = 0;
    document->arena = xml_arena_new();
    if (!document->arena) {
        error("xml_parse: malloc failed");
        return -1;
    }

    xml_parser_t parser;
    parser.arena = document->arena;
    for (int c = 0; c < 256; c++)
        parser.classes[c] = (isalpha(c) ? XML_ALPHA : 0) | (isalnum(c) ? XML_ALNUM : 0);

    int result = xml_run(&parser, text, strlen(text));
    if (xml_publish_roots(&parser, document) < 0)
        return -1;
    return result;
}

int xml_parse(char* text, document_t* document)
{
    return xml_parse((const char*)text, document);
}

void xml_free(document_t* document)
{
    if (!document)
        return;
    xml_arena_free(document->arena);
    document->arena = nullptr;
    document->nodes = nullptr;
    document->nodes_count = 0;
}
