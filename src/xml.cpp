// Reading a parsed tree back: the attribute lookup, the writer, the size the
// writer will produce, and the dumper. Trees are walked with a stack of their
// own, so that no nesting depth can exhaust the process's stack.
#include <strings.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "log.h"
#include "xml.h"

namespace
{

// Walks the subtree below root in document order. enter is called for each
// element (null for a child slot that holds none) and returns whether to go
// into its children; leave is called once its children are done.
template <typename Enter, typename Leave> void xml_walk(node_t* root, Enter enter, Leave leave)
{
    struct frame_t {
        node_t* node;
        int32_t next;
    };
    if (!enter(root, 0))
        return;
    std::vector<frame_t> stack;
    stack.push_back({root, 0});
    while (!stack.empty()) {
        frame_t& top = stack.back();
        node_t* node = top.node;
        if (top.next >= node->childs_count) {
            stack.pop_back();
            leave(node, (int)stack.size());
            continue;
        }
        node_t* child = node->childs ? &node->childs[top.next] : nullptr;
        top.next++;
        if (enter(child, (int)stack.size()))
            stack.push_back({child, 0});
    }
}

const char* xml_text_or_empty(const char* text)
{
    return text ? text : "";
}

} // namespace

char* xml_node_get_key(node_t* node, const char* name)
{
    if (!node) {
        error("xml_node_get_key: NODE is NULL");
        return nullptr;
    }
    if (!name) {
        error("xml_node_get_key: name of the key is NULL");
        return nullptr;
    }
    if (!node->keys)
        return nullptr;
    for (int32_t i = 0; i < node->keys_count; i++) {
        if (node->keys[i].name && strcasecmp(node->keys[i].name, name) == 0)
            return node->keys[i].value;
    }
    return nullptr;
}

int32_t xml_get_node_size(node_t* node)
{
    int64_t size = 0;
    auto enter = [&size](node_t* element, int) {
        if (!element) {
            error("xml_get_node_size: NODE is NULL");
            size -= 1;
            return false;
        }
        if (!element->name) {
            error("xml_get_node_size: name of the node is null");
            size -= 1;
            return false;
        }
        size += 2 * (int64_t)strlen(element->name) + 6;
        for (int32_t i = 0; element->keys && i < element->keys_count; i++)
            size += (int64_t)strlen(xml_text_or_empty(element->keys[i].name)) +
                    (int64_t)strlen(xml_text_or_empty(element->keys[i].value)) + 4;
        if (element->data_len >= 0)
            size += element->data_len;
        return true;
    };
    xml_walk(node, enter, [](node_t*, int) {});
    return size > INT32_MAX ? INT32_MAX : (int32_t)size;
}

int32_t xml_get_size(document_t* document)
{
    if (!document) {
        error("xml_get_size: xml document is null");
        return -1;
    }
    int64_t size = 0;
    for (int32_t i = 0; i < document->nodes_count; i++)
        size += xml_get_node_size(document->nodes ? &document->nodes[i] : nullptr);
    return size > INT32_MAX ? INT32_MAX : (int32_t)size;
}

int xml_write_node_to_handle(FILE* handle, node_t* node)
{
    if (!node) {
        error("xml_write_node_to_handle: NODE is NULL");
        return -1;
    }
    if (!handle) {
        error("xml_write_node_to_handle: file handle is null");
        return -1;
    }
    int result = 0;
    auto enter = [handle, node, &result](node_t* element, int) {
        if (!element) {
            error("xml_write_node_to_handle: NODE is NULL");
            return false;
        }
        if (!element->name) {
            error("xml_write_node_to_handle: name of the node is null");
            if (element == node)
                result = -1;
            return false;
        }
        fputc('<', handle);
        fputs(element->name, handle);
        for (int32_t i = 0; element->keys && i < element->keys_count; i++) {
            fputc(' ', handle);
            fputs(xml_text_or_empty(element->keys[i].name), handle);
            fputs("=\"", handle);
            fputs(xml_text_or_empty(element->keys[i].value), handle);
            fputc('"', handle);
        }
        fputc('>', handle);
        if (element->data_len > 0 && element->data)
            fwrite(element->data, 1, (size_t)element->data_len, handle);
        return true;
    };
    auto leave = [handle](node_t* element, int) {
        fputs("</", handle);
        fputs(element->name, handle);
        fputs(">\n", handle);
    };
    xml_walk(node, enter, leave);
    if (ferror(handle)) {
        error("xml_write_node_to_handle: writing failed");
        return -1;
    }
    return result;
}

int xml_write_to_handle(FILE* handle, document_t* document)
{
    if (!handle) {
        error("xml_write_to_handle: file handle is null");
        return -1;
    }
    if (!document) {
        error("xml_write_to_handle: xml document is null");
        return -1;
    }
    int result = 0;
    for (int32_t i = 0; i < document->nodes_count; i++) {
        if (!document->nodes) {
            // Told by the element writer; the rest still goes out.
            xml_write_node_to_handle(handle, nullptr);
            continue;
        }
        if (xml_write_node_to_handle(handle, &document->nodes[i]) < 0)
            result = -1;
    }
    return result;
}

int xml_write(const char* filename, document_t* document)
{
    if (!filename) {
        error("xml_write: file name is null");
        return -1;
    }
    if (!document) {
        error("xml_write: xml document is null");
        return -1;
    }
    FILE* handle = fopen(filename, "wb");
    if (!handle) {
        error("xml_write: can not create %s file", filename);
        return -1;
    }
    int result = xml_write_to_handle(handle, document);
    if (fclose(handle) != 0 && result == 0) {
        error("xml_write: can not write %s file", filename);
        result = -1;
    }
    return result;
}

int xml_node_dump(node_t* node, int indent)
{
    if (!node) {
        error("xml_node_dump: NODE is NULL");
        return -1;
    }
    if (indent < 0)
        indent = 0;
    std::string blanks;
    auto enter = [indent, &blanks](node_t* element, int depth) {
        if (!element) {
            error("xml_node_dump: NODE is NULL");
            return false;
        }
        blanks.assign((size_t)indent + 2 * (size_t)depth, ' ');
        print_log("xml_node_dump: started");
        print_log("xml_node_dump: %sNODE: %s", blanks.c_str(), element->name ? element->name : "(null)");
        for (int32_t i = 0; element->keys && i < element->keys_count; i++)
            print_log("xml_node_dump: %sKEY: %s=%s", blanks.c_str(), xml_text_or_empty(element->keys[i].name),
                      xml_text_or_empty(element->keys[i].value));
        if (element->data_len >= 0)
            print_log("xml_node_dump: %sDATA: %s", blanks.c_str(), xml_text_or_empty(element->data));
        return true;
    };
    xml_walk(node, enter, [](node_t*, int) { print_log("xml_node_dump: finished"); });
    return 0;
}

int xml_dump(document_t* document)
{
    if (!document) {
        error("xml_dump: Document is NULL");
        return -1;
    }
    print_log("xml_dump: started");
    print_log("xml_dump: number of the root nodes %d", document->nodes_count);
    for (int32_t i = 0; i < document->nodes_count; i++)
        xml_node_dump(document->nodes ? &document->nodes[i] : nullptr, 0);
    print_log("xml_dump: finished");
    return 0;
}
