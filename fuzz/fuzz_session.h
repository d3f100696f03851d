// The session shared by the expression fuzz targets: a few properties,
// among them values that refer to themselves or to each other, so that the
// guards against endless expansion are exercised.
#ifndef KELM_FUZZ_SESSION_H
#define KELM_FUZZ_SESSION_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "env.h"
#include "log.h"

static session_t* fuzz_session(void)
{
    static session_t* session = nullptr;
    if (session)
        return session;
    log_disable();
    session = new session_t;
    static const char* const properties[][2] = {
        {"A", "1"},
        {"B", "${A}2"},
        {"V", "1.2.3"},
        {"Q", "\"quoted value\""},
        {"ENT", "&amp;lt;b&amp;gt;"},
        {"ESC", "\\${A}"},
        {"EMPTY", ""},
        {"SELF", "${SELF}"},
        {"PING", "x${PONG}"},
        {"PONG", "${PING}"},
        {"TWICE", "${TWICE}${TWICE}"},
        {"S__HIDE__", "secret"},
        {"RE", "^a.*(b|c)$"},
    };
    for (const auto& property : properties)
        env_set_string(session, property[0], property[1]);
    return session;
}

// Splits the input at its first NUL: the part before becomes the value of
// the property F (so inputs can build references of their own), the rest
// is returned as the text to work on. Without a NUL, F is empty.
static std::string fuzz_take_input(session_t* session, const uint8_t* data, size_t size)
{
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t cut = input.find('\0');
    if (cut == std::string::npos) {
        env_set_string(session, "F", "");
        return input;
    }
    env_set_string(session, "F", input.substr(0, cut));
    std::string rest = input.substr(cut + 1);
    return rest.substr(0, rest.find('\0'));
}

#endif
