// XML documents of a package: the parser of the engine's restricted dialect,
// the writer that produces the dialect again, a size computation that
// predicts the writer's output exactly, and a dumper for the log.
//
// The parser is a single-pass byte state machine. It knows no entities, no
// CDATA and no doctype, never compares an end tag with its start tag, and
// keeps an element's text only up to its first child. The result is a plain
// tree of records read by direct field access.
#ifndef KELM_XML_H
#define KELM_XML_H

// The C library's <sys/types.h> declares an unrelated key_t (a System V IPC
// key) that every C++ standard header drags in. The attribute record below is
// called key_t throughout the engine, so that name is mapped onto a private
// symbol once the system's typedef has been seen. System V IPC is not used.
#include <sys/types.h>
#define key_t xml_key_t

#include <cstdint>
#include <cstdio>

// One attribute: name and value, both owned by the document.
struct key_t {
    char* name;
    char* value;
};

// One element. The combinations of null arrays and -1 counts tell what the
// source held:
//   <a/>                 data null/-1, keys null/-1,  childs null/-1
//   <a b="c"/>           data null/-1, keys array/1,  childs null/-1
//   <a></a>              data null/-1, keys null/-1,  childs array/0
//   <a >...              keys array/0
//   <a b="c">text</a>    data "text"/4, keys array/1, childs array/0
// Children are stored by value, in document order; there is no parent link.
struct node_t {
    char* name;
    char* data;           // the text up to the first child, or null
    int32_t data_len;     // length of data, -1 without text
    key_t* keys;          // attributes in document order, or null
    int32_t keys_count;   // -1 when the start tag had no attribute section
    node_t* childs;       // child elements, or null
    int32_t childs_count; // -1 for an element closed with "/>"
};

// Storage behind a parsed document; private to the parser.
struct xml_arena_t;

// The result of one parse: the completed root elements in document order.
struct document_t {
    node_t* nodes = nullptr;
    int32_t nodes_count = 0;
    xml_arena_t* arena = nullptr; // every string and array of the tree
};

// Parses a NUL-terminated text (left unchanged) into document, whose former
// contents are overwritten without being released. Returns 0, or -1 after a
// report; on failure the document keeps the root elements completed so far.
// Garbage between elements is logged and skipped. A document stays valid
// until xml_free; the engine itself never frees one.
int xml_parse(const char* text, document_t* document);
int xml_parse(char* text, document_t* document);

// Releases everything a parse put into document and leaves it empty. A
// document that was never parsed, or was freed already, is left as it is.
void xml_free(document_t* document);

// The value of the first attribute whose name equals name ignoring case, or
// null. The value belongs to the node.
char* xml_node_get_key(node_t* node, const char* name);

// The exact number of bytes the writer produces for the document or the
// element; -1 for a null argument or a nameless element.
int32_t xml_get_size(document_t* document);
int32_t xml_get_node_size(node_t* node);

// Writes the document into a new file, or to an open stream, in the dialect:
// no declaration, no indentation, no escaping, each element ended by its end
// tag and a newline (so <a/> comes out as <a></a>). 0, or -1 after a report.
int xml_write(const char* filename, document_t* document);
int xml_write_to_handle(FILE* handle, document_t* document);
int xml_write_node_to_handle(FILE* handle, node_t* node);

// Logs the tree line by line through print_log, children indented by two
// blanks per level. 0, or -1 after a report.
int xml_dump(document_t* document);
int xml_node_dump(node_t* node, int indent);

#endif
