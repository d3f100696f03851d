// The start-up driver: parses the command line, opens the log and the
// package, builds the configuration, runs the wizard, and turns
// KELM_EXIT_CODE into the exit status.
#include "driver.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "actions.h"
#include "cmdline.h"
#include "config.h"
#include "env.h"
#include "log.h"
#include "seq.h"
#include "seq_run.h"
#include "store.h"
#include "string_table.h"
#include "utils.h"

extern char** environ;

const char* const KELM_BANNER = "Package id: l_kelm_p_2.4.0.033, built Sep 30 2014 20:26:48";

static std::string cut_line_ends(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    return text;
}

std::string driver_log_name(const std::string& tmp_dir, const std::string& user, const std::string& host,
                            const std::string& stamp)
{
    return tmp_dir + "/orvan.kelm." + user + "." + host + "_" + stamp + ".log";
}

int driver_exit_status(session_t* session)
{
    if (!env_exists(session, "KELM_EXIT_CODE"))
        return 0;
    return atoi(env_get_string(session, "KELM_EXIT_CODE").c_str());
}

static std::string now_text(void)
{
    time_t now = time(nullptr);
    return ctime(&now);
}

static void dump_process_environment(void)
{
    for (char** entry = environ; entry && *entry; entry++) {
        fputs(*entry, stdout);
        fputc('\0', stdout);
    }
    fflush(stdout);
}

// Steps 5 to 8: tmp_dir, the log's name, and the log itself.
static void driver_open_log(session_t* engine, session_t* command_line)
{
    std::string temp_folder = env_get_string(command_line, "TEMP_FOLDER");
    char* dir =
        get_dirname(env_exists(command_line, "TEMP_FOLDER") && !temp_folder.empty() ? temp_folder.c_str() : ".");
    env_set_string(engine, "tmp_dir", dir ? dir : ".");
    free(dir);

    std::string stamp = cut_line_ends(get_command_output("date +%m.%d.%H.%M.%S.%Y"));
    std::string host_command = cut_line_ends(get_command_output("hostname"));
    const char* host_env = getenv("HOSTNAME");
    std::string host = host_env && *host_env ? host_env : host_command;
    const char* user = getenv("USER");
    std::string name = driver_log_name(env_get_string(engine, "tmp_dir"), user ? user : "", host, stamp);
    env_set_string(command_line, "log_file", name);

    if (init_logging(engine, command_line) != 0)
        fputs("Logging initialization failed\n", stderr);
    print_log("##########################################################");
    print_log("Logging started at %s", now_text().c_str());
}

// Steps 29 to 33: silent output, temporary folder, marker, exit status.
static int driver_finish(session_t* engine)
{
    if (env_exists(engine, "__keep_temp__")) {
        print_log("main: keep temporary folder alive");
    } else {
        std::string folder = env_get_string(engine, "TEMP_FOLDER");
        if (folder.empty()) {
            warn("main: temporary folder is not defined");
        } else {
            print_log("main: remove temporary folder %s", folder.c_str());
            char command[4096];
            snprintf(command, sizeof command, "rm -rf %s", folder.c_str());
            if (system(command) != 0)
                print_log("main: \"%s\" reported a failure", command);
            if (env_get_string(engine, "RUN_MODE") != "elevated") {
                std::string env_file = env_get_string(engine, "tmp_dir") + "/" ENV_FILE_NAME;
                remove_file(env_file.c_str(), true);
            }
        }
    }

    std::string marker = expand_string(engine, "${tmp_dir}/orvan.kelm.${USER}.running.marker");
    if (is_file(marker.c_str()) && env_get_string(engine, "INSTALLER_PRESENT") != "yes") {
        print_log("main: removing marker file %s", marker.c_str());
        remove_file(marker.c_str(), true);
    }

    int status = driver_exit_status(engine);
    env_free(&engine->env);
    print_log("Exit code is %d", status);
    print_log("Logging finished at %s", now_text().c_str());
    return status;
}

// Steps 18 to 20: modes and language defaults.
static void driver_settle_defaults(session_t* engine)
{
    if (!env_exists(engine, "KELM_MODE"))
        env_set_string(engine, "KELM_MODE", "install");
    if (!env_exists(engine, "KELM_UNINSTALLER"))
        env_set_string(engine, "KELM_UNINSTALLER", "uninstall.sh");
    env_set_string(engine, "KELM_PLATFORM", "Linux");
    if (env_exists(engine, "download_list"))
        env_set_string(engine, "silent", "empty");

    std::string lang = env_get_string(engine, "lang");
    if (lang.empty()) {
        const char* lang_env = getenv("LANG");
        const char* ctype_env = getenv("LC_CTYPE");
        print_log("main: LANG environment variable: %s", lang_env ? lang_env : "(null)");
        print_log("main: LC_CTYPE environment variable: %s", ctype_env ? ctype_env : "(null)");
        if (lang_env && *lang_env)
            lang = lang_env;
        else if (ctype_env && *ctype_env)
            lang = ctype_env;
        else
            lang = "default";
    }
    env_set_string(engine, "LANG", lang);
}

// Steps 22 and 23: a silent or duplicate path must be given, and a relative
// one is anchored at CURRENT_DIR. Returns false after printing the error.
static bool driver_check_path_option(session_t* engine, const char* name)
{
    std::string value = env_get_string(engine, name);
    if (value.empty()) {
        printf("Error: Please provide silent configuration file.\n");
        return false;
    }
    if (value[0] != '/' && value[0] != '~')
        env_set_string(engine, name, env_get_string(engine, "CURRENT_DIR") + "/" + value);
    return true;
}

// Step 13: the root cab lies beside the engine as <engine>.cab, or one
// directory above it as install.cab.
static void driver_open_package(session_t* engine, const char* program)
{
    std::string beside = std::string(program ? program : "") + ".cab";
    if (store_read_header(engine, &engine->cab, beside.c_str()) == 0)
        return;
    char* dir = get_dirname(beside.c_str());
    std::string above = std::string(dir ? dir : ".") + "/.." + "/install.cab";
    free(dir);
    if (store_read_header(engine, &engine->cab, above.c_str()) != 0)
        die(2, "Fatal error: it'a not a valid package.");
}

int driver_main(int argc, char** argv)
{
    session_t engine;
    session_t command_line;
    session_install_sigint();
    if (env_init(&engine) != 0 || env_init(&command_line) != 0)
        die(1, "Fatal error: property engine failed to init.");

    if (parse_command_line(&engine, argc, argv, &command_line) != 0)
        env_set_string(&command_line, "help", "1");

    if (env_exists(&command_line, "__dumpenv__")) {
        dump_process_environment();
        return 0;
    }

    driver_open_log(&engine, &command_line);

    if (env_exists(&command_line, "version")) {
        printf("%s\n", KELM_BANNER);
        return 0;
    }

    env_set_string(&engine, "SCRIPT_NAME", argv[0]);
    static const char* const proxies[] = {"http_proxy", "https_proxy"};
    for (const char* proxy : proxies) {
        std::string value = env_get_string(&command_line, proxy);
        if (value.empty())
            continue;
        print_log("main: set %s=%s", proxy, value.c_str());
        setenv(proxy, value.c_str(), 1);
    }
    print_log("main: command-line parameters");

    driver_open_package(&engine, argv[0]);
    if (env_exists(&command_line, "help")) {
        show_help(&engine);
        return 0;
    }

    if (session_init_cdata(&engine) != 0)
        die(2, "Fatal error: session initialization failed");
    if (init_configuration(&engine) != 0)
        die(2, "Fatal error: config initialization failed");

    commandline_merge(&engine, &command_line.env);
    driver_settle_defaults(&engine);
    string_table_init(&engine);
    string_table_bind(&engine);

    std::string mode = env_get_string(&engine, "KELM_MODE");
    if (env_exists(&engine, "silent") && mode != "uninstall" && !driver_check_path_option(&engine, "silent"))
        return 2;
    if (env_exists(&engine, "duplicate") && !driver_check_path_option(&engine, "duplicate"))
        return 2;

    if (env_exists(&engine, "__get_string__")) {
        if (configuration_get_strings(&engine) != 0)
            die(2, "Fatal error: Could not extract strings.");
        return 0;
    }

    // The built-in actions, then the wizard itself. Their results don't
    // decide the exit status: KELM_EXIT_CODE does.
    actions_init(&engine);
    init_sequence(&engine);
    sequence_execute(&engine);

    return driver_finish(&engine);
}
