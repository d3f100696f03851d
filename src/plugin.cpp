// Library plug-ins loaded with dlopen and called with the session.
#include "plugin.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "env.h"
#include "log.h"
#include "seq.h"

// Template of the temporary file a library is extracted into.
static const char PLUGIN_TEMPLATE[] = "/tmp/li_plugin_c.XXXXXX";

// Where the library comes from, and the temporary file to remove afterwards.
struct plugin_location_t {
    std::string path;
    std::string temporary;
};

// Extracts component::file of the cab into a new temporary file; 0 or -1.
static int plugin_extract(session_t* session, cab_t* cab, const char* component, const char* file, const char* caller,
                          plugin_location_t* location)
{
    char name[sizeof PLUGIN_TEMPLATE];
    memcpy(name, PLUGIN_TEMPLATE, sizeof PLUGIN_TEMPLATE);
    int fd = mkstemp(name);
    if (fd < 0) {
        error("%s: can't create temp file \"%s\"", caller, name);
        return -1;
    }
    close(fd);
    location->temporary = name;
    location->path = name;
    if (store_file_extract(session, cab, component, file, name) != 0)
        print_log("%s: can't extract %s::%s", caller, component, file);
    return 0;
}

// The library of a running layer lies in the folder its files were unpacked
// to; the working directory moves there too, so that the plug-in finds its
// companions by relative names.
static int plugin_locate_in_layer(session_t* session, const char* file, const char* caller, plugin_location_t* location)
{
    std::string dir = env_get_string(session, "TEMP_FOLDER") + "/" + (session->scope->id ? session->scope->id : "");
    if (chdir(dir.c_str()) != 0)
        print_log("%s: can't change directory to %s: %s", caller, dir.c_str(), strerror(errno));
    location->path = dir + "/" + file;
    return 0;
}

// Loads the library, calls the function and closes the library again. The
// temporary file, if any, is removed on every path.
static int plugin_call(session_t* session, plugin_location_t* location, const char* func, const char* caller)
{
    print_log("%s: library is \"%s\", func is \"%s\"", caller, location->path.c_str(), func);
    int result = -1;
    // A name without a slash would be searched in the library path instead.
    std::string path = location->path.find('/') == std::string::npos ? "./" + location->path : location->path;
    void* library = dlopen(path.c_str(), RTLD_LAZY | RTLD_GLOBAL);
    if (!library) {
        const char* text = dlerror();
        error("%s: %s", caller, text ? text : "dlopen failed");
    } else {
        dlerror();
        void* symbol = dlsym(library, func);
        const char* text = dlerror();
        if (text || !symbol) {
            error("%s: %s", caller, text ? text : "symbol is null");
        } else {
            plugin_fn function = (plugin_fn)symbol;
            result = function(session);
        }
        dlclose(library);
    }
    if (!location->temporary.empty())
        unlink(location->temporary.c_str());
    return result;
}

int plugin_run(session_t* session, cab_t* cab, shellexec_args_t* plugin)
{
    if (!session) {
        error("plugin_run: plugin' set is NULL");
        return -1;
    }
    if (!plugin) {
        error("plugin_run: plugin is NULL");
        return -1;
    }
    if (!plugin->file || !plugin->func) {
        error("plugin_run: file or func of the plug-in is NULL");
        return -1;
    }
    plugin_location_t location;
    if (session->scope) {
        plugin_locate_in_layer(session, plugin->file, "plugin_run", &location);
    } else if (!plugin->component) {
        if (!env_exists(session, "ENGINE_DIR")) {
            error("plugin_run: eng_dir is null");
            return -1;
        }
        location.path = env_get_string(session, "ENGINE_DIR") + "/" + plugin->file;
    } else if (plugin_extract(session, cab ? cab : &session->cab, plugin->component, plugin->file, "plugin_run",
                              &location) != 0) {
        return -1;
    }
    return plugin_call(session, &location, plugin->func, "plugin_run");
}

int plugin_run_by_name(session_t* session, const char* component, const char* file, const char* func)
{
    if (!session) {
        error("plugin_run_by_name: plugins set is NULL");
        return -1;
    }
    if (!component || !file || !func) {
        error("plugin_run_by_name: error");
        return -1;
    }
    plugin_location_t location;
    if (session->scope)
        plugin_locate_in_layer(session, file, "plugin_run_by_name", &location);
    else if (plugin_extract(session, &session->cab, component, file, "plugin_run_by_name", &location) != 0)
        return -1;
    return plugin_call(session, &location, func, "plugin_run_by_name");
}
