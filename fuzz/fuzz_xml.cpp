// Feeds arbitrary bytes to the XML parser. Every document that parses must
// be written in exactly the size predicted for it, and what was written must
// parse again and come out the same.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "log.h"
#include "xml.h"

namespace
{

std::string write_to_memory(document_t* document)
{
    char* buffer = nullptr;
    size_t length = 0;
    FILE* stream = open_memstream(&buffer, &length);
    if (!stream || xml_write_to_handle(stream, document) != 0)
        abort();
    fclose(stream);
    std::string text(buffer, length);
    free(buffer);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    log_disable();
    std::string text(reinterpret_cast<const char*>(data), size);
    document_t document;
    if (xml_parse(text.c_str(), &document) == 0) {
        std::string written = write_to_memory(&document);
        if (xml_get_size(&document) != (int32_t)written.size())
            abort();
        for (int32_t i = 0; i < document.nodes_count; i++)
            (void)xml_node_get_key(&document.nodes[i], "id");
        (void)xml_dump(&document);

        document_t again;
        if (xml_parse(written.c_str(), &again) != 0 || write_to_memory(&again) != written)
            abort();
        xml_free(&again);
    }
    xml_free(&document);
    return 0;
}
