// Configuration bootstrap and the string mode.
#include "config.h"

#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "env.h"
#include "log.h"
#include "store.h"
#include "utils.h"

const char* const KELM_ENGINE_VERSION = "Package id: l_kelm_p_2.4.0.033, built Sep 30 2014 20:26:43";

// Environment variables offered to sequences and shell functions. SHELL
// stands in the table twice, as packages have always seen it.
static const char* const saved_variables[] = {
    "BASH",
    "BASH_VERSION",
    "HOME",
    "SHELL",
    "PWD",
    "PATH",
    "OSTYPE",
    "LOGNAME",
    "MACHTYPE",
    "SHELL",
    "MANPATH",
    "HOSTTYPE",
    "HOSTNAME",
    "TERM",
    "LD_LIBRARY_PATH",
    "DYLD_LIBRARY_PATH",
    "QT_ACCESSIBILITY",
    "DISPLAY",
    "XAUTHORITY",
    "http_proxy",
    "https_proxy",
};

static void config_set_paths(session_t* session, const std::string& script, const std::string& cwd)
{
    char* dir = get_dirname(script.c_str());
    std::string engine_dir = dir ? dir : ".";
    free(dir);
    if (engine_dir.empty() || engine_dir[0] != '/')
        engine_dir = cwd + "/" + engine_dir;
    env_set_string(session, "KELM_PID", std::to_string(getpid()));
    env_set_string(session, "ENGINE_DIR", engine_dir);
    if (!env_exists(session, "PACKAGE_DIR"))
        env_set_string(session, "PACKAGE_DIR", engine_dir + "/../../");
    env_set_string(session, "CURRENT_DIR", env_get_string(session, "PACKAGE_DIR"));
    env_set_string(session, "CONFIG_DIR", engine_dir + "/..");
}

static void config_set_user(session_t* session)
{
    env_set_string(session, "EUID", std::to_string(getuid()));
    env_set_string(session, "EUID", std::to_string(geteuid()));
    struct passwd* entry = getpwuid(geteuid());
    if (entry && entry->pw_name) {
        env_set_string(session, "USER", entry->pw_name);
    } else {
        const char* user = getenv("USER");
        env_set_string(session, "USER", user ? user : "");
    }
}

static void config_set_machine(session_t* session)
{
    struct utsname name;
    bool known = uname(&name) == 0;
    if (known) {
        env_set_string(session, "HOST", name.nodename);
        print_log("init_configuration: uname -a: %s %s %s %s %s", name.sysname, name.nodename, name.release,
                  name.version, name.machine);
    }
    if (known && !strcmp(name.machine, "x86_64")) {
        env_set_string(session, "ARCH", "ORVAN64");
        print_log("init_configuration: set %s to ORVAN64", "ARCH");
    } else {
        env_set_string(session, "ARCH", "NARROW32");
        print_log("init_configuration: set %s to NARROW32", "ARCH");
    }
}

int init_configuration(session_t* session)
{
    print_log("init_configuration: started");
    if (!session) {
        error("init_configuration: session is NULL");
        return -1;
    }
    print_log("init_configuration: ENGINE_VERSION %s", KELM_ENGINE_VERSION);
    env_set_string(session, "ENGINE_VERSION", KELM_ENGINE_VERSION);
    env_set_string(session, "KELM_EXIT_CODE_SUCCESS", "0");
    env_set_string(session, "KELM_EXIT_CODE_RUN_GUI_FAILED", "1");
    env_set_string(session, "KELM_EXIT_CODE_ERROR", "2");
    env_set_string(session, "KELM_EXIT_CODE_WARNING", "3");
    env_set_string(session, "KELM_EXIT_CODE_CANCEL", "4");

    for (const char* name : saved_variables) {
        const char* value = getenv(name);
        if (!value) {
            print_log("init_configuration: environment var %s is absent", name);
            env_remove(session, name);
        } else {
            print_log("init_configuration: save environment %s=%s", name, value);
            env_set_string(session, name, value);
        }
    }

    if (!env_exists(session, "SCRIPT_NAME")) {
        error("init_configuration: %s is empty", "SCRIPT_NAME");
        return -1;
    }
    std::string script = env_get_string(session, "SCRIPT_NAME");
    char* binary = get_basename(script.c_str());
    env_set_string(session, "ENGINE_BINARY", binary ? binary : "");
    print_log("init_configuration: ENGINE_BINARY=%s", binary ? binary : "");
    free(binary);

    std::string cwd;
    if (env_exists(session, "PWD")) {
        cwd = env_get_string(session, "PWD");
    } else {
        char buffer[1024];
        if (!getcwd(buffer, sizeof buffer)) {
            error("init_configuration: can not define current work dir");
            return -1;
        }
        cwd = buffer;
    }
    config_set_paths(session, script, cwd);
    config_set_user(session);
    config_set_machine(session);

    if (load_product_info(session) != 0)
        return -1;

    print_log("init_configuration: check attached cabs");
    int attached = store_attach_cabs(session);
    if (attached != 0) {
        error("init_configuration: some of the configuration plugins failed.");
        return attached;
    }
    print_log("init_configuration: finished");
    return 0;
}

int load_product_info_text(session_t* session, char* text, int size)
{
    int position = 0;
    while (char* line = get_next_line(text, size, &position)) {
        if (!*line || *line == '#')
            continue;
        // Pieces between '=' characters, empty ones skipped: the first is
        // the name, the second the value, the rest is dropped.
        std::vector<std::string> pieces = splitStringIntoTokens(line, "=", false);
        if (pieces.empty()) {
            error("load_product_info: can not read name of the property");
            return -1;
        }
        if (pieces.size() < 2) {
            error("load_product_info: can not read value of the property");
            env_set_string(session, pieces[0], "");
            continue;
        }
        print_log("load_product_info: set property '%s' with value '%s'", pieces[0].c_str(),
                  env_is_hidden_name(pieces[0]) ? "[HIDDEN]" : pieces[1].c_str());
        env_set_string(session, pieces[0], pieces[1]);
    }
    return 0;
}

int load_product_info(session_t* session)
{
    if (!session) {
        LOG_NULL_PARAM();
        return -1;
    }
    if (!store_file_exists(&session->cab, "_internal_", "product.ini")) {
        error("load_product_info: can not find product.ini in store");
        return -1;
    }
    print_log("load_product_info: load product.ini file");
    char* content = nullptr;
    int size = 0;
    if (store_file_get_content(&session->cab, "_internal_", "product.ini", &content, &size, nullptr) < 0 || !content) {
        error("load_product_info: can not load product.ini");
        free(content);
        return -1;
    }
    int rc = load_product_info_text(session, content, size);
    free(content);
    return rc;
}

int write_string_to_file(session_t* session, std::string name, std::string value, FILE* file)
{
    if (!session) {
        error("write_string_to_file: session is null");
        return -1;
    }
    if (!file) {
        LOG_NULL_PARAM();
        return -1;
    }
    std::string body = replaceAllSubstrings(expand_string(session, value), "'", "\\'");
    fprintf(file, "LI_%s=$(cat<<EOM\n%s\nEOM\n)\n\n", name.c_str(), body.c_str());
    return 0;
}

int configuration_get_strings(session_t* session)
{
    if (!session) {
        error("configuration_get_strings: session is null");
        return -1;
    }
    FILE* out = stdout;
    if (env_exists(session, "__get_string__")) {
        out = fopen(env_get_string(session, "__get_string__").c_str(), "w");
        if (!out) {
            error("configuration_get_strings: could not open output file");
            return -1;
        }
    }
    if (env_exists(session, "string_ids")) {
        std::string ids = env_get_string(session, "string_ids");
        // Pieces between ';' are names; an empty piece is kept except after a
        // final ';'. Names are cut at 1023 characters.
        std::vector<std::string> names = splitStringIntoTokens(ids, ";", true);
        if (!names.empty() && names.back().empty())
            names.pop_back();
        for (std::string& name : names) {
            if (name.size() > 1023)
                name.resize(1023);
            write_string_to_file(session, name, env_get_string(session, name), out);
        }
    } else {
        for (const auto& [name, value] : session->env)
            write_string_to_file(session, name, value, out);
    }
    if (out != stdout)
        fclose(out);
    else
        fflush(out);
    return 0;
}

int configuration_create_tempfolder(session_t* session)
{
    if (!session) {
        error("configuration_create_tempfolder: session is null");
        return -1;
    }
    std::string base = env_exists(session, "tmp_dir") ? env_get_string(session, "tmp_dir") : "/tmp";
    std::string templ = base + "/install.XXXXXX";
    std::vector<char> buffer(templ.begin(), templ.end());
    buffer.push_back('\0');
    if (!mkdtemp(buffer.data())) {
        error("configuration_create_tempfoler: mkdtemp failed to create %s", templ.c_str());
        return -1;
    }
    env_set_string(session, "TEMP_FOLDER", buffer.data());
    print_log("configuration_create_tempfoler: temp folder set to %s", buffer.data());
    return 0;
}

bool user_is_root(session_t* session)
{
    if (!session) {
        error("user_is_root: session is null");
        return false;
    }
    bool root = getuid() == 0;
    print_log(root ? "user_is_root: user is root" : "user_is_root: user is not root");
    return root;
}
