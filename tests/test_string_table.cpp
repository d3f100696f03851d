// The string table: choosing a language (conditions, the default fallback,
// several files of one language), applying string files (byte for byte,
// nesting, includes), and the sources of strings.ini.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "env.h"
#include "log.h"
#include "store.h"
#include "string_table.h"
#include "testutil.h"
#include "xml.h"

namespace
{

// A package laid out on disk: string files under an engine directory and
// strings.ini in a root directory, read through STRING_TABLE_ROOT.
struct StringTableTest : ::testing::Test {
    TempDir dir;
    session_t session;

    void SetUp() override
    {
        open_test_log(dir.file("test.log"));
        env_init(&session);
        run_command("mkdir -p '" + dir.file("engine") + "' '" + dir.file("root") + "'");
        env_set_string(&session, "ENGINE_DIR", dir.file("engine"));
        env_set_string(&session, "STRING_TABLE_ROOT", dir.file("root"));
    }
    void TearDown() override { log_disable(); }

    void strings_file(const std::string& name, const std::string& body)
    {
        write_text(dir.file("engine/" + name), "<strings>\n" + body + "</strings>\n");
    }
    void strings_ini(const std::string& text) { write_text(dir.file("root/strings.ini"), text); }

    // Loads the table and binds it for a language; the result of binding.
    int bind(const std::string& lang)
    {
        EXPECT_EQ(0, string_table_init(&session));
        env_set_string(&session, "LANG", lang);
        return string_table_bind(&session);
    }
    std::string get(const char* name) { return env_get_string(&session, name); }
    std::string log_text() { return read_text(dir.file("test.log")); }
};

TEST_F(StringTableTest, PicksTheLanguageOrFallsBackToDefault)
{
    strings_file("en.xml", "<string name=\"hello\">Hello</string><string name=\"bye\">Bye</string>\n");
    strings_file("de.xml", "<string name=\"hello\">Hallo</string>\n");
    strings_ini("default::en.xml\nde::de.xml\n");

    EXPECT_EQ(0, bind("de"));
    EXPECT_EQ("Hallo", get("hello"));
    EXPECT_EQ("", get("bye")); // only the chosen language applies

    env_set_string(&session, "LANG", "fr_FR");
    string_table_bind(&session);
    EXPECT_EQ("Hello", get("hello"));
    EXPECT_EQ("fr_FR", get("LANG"));
    EXPECT_NE(std::string::npos, log_text().find("string_table_bind: desired lang is not found. Search for default"));

    // The language name is compared exactly; an empty LANG means default.
    env_set_string(&session, "LANG", "DE");
    string_table_bind(&session);
    EXPECT_EQ("Hello", get("hello"));
    env_set_string(&session, "hello", "");
    env_set_string(&session, "LANG", "");
    string_table_bind(&session);
    EXPECT_EQ("Hello", get("hello"));
    EXPECT_NE(std::string::npos, log_text().find("string_table_bind: LANG is not defined. Use defualt"));

    // Binding again after a change of LANG re-applies from the loaded table.
    env_set_string(&session, "LANG", "de");
    string_table_bind(&session);
    EXPECT_EQ("Hallo", get("hello"));
}

TEST_F(StringTableTest, ConditionsDecideWhichLinesOfALanguageApply)
{
    strings_file("def.xml", "<string name=\"a\">default a</string>\n");
    strings_file("ja.xml", "<string name=\"a\">ja a</string>\n");
    strings_file("de1.xml", "<string name=\"a\">de1 a</string><string name=\"b\">de1 b</string>\n");
    strings_file("de2.xml", "<string name=\"a\">de2 a</string>\n");
    strings_file("fr1.xml", "<string name=\"a\">fr1 a</string><string name=\"c\">fr1 c</string>\n");
    strings_file("fr2.xml", "<string name=\"a\">fr2 a</string>\n");
    strings_ini("default::def.xml\n"
                "ja::ja.xml:${WANT} = yes\n"
                "de::de1.xml\n"
                "de::de2.xml:${WANT} != yes\n"
                "fr::fr1.xml:${WANT} = yes\n"
                "fr::fr2.xml\n");

    // A language found only with a false condition falls to default.
    EXPECT_EQ(0, bind("ja"));
    EXPECT_EQ("default a", get("a"));
    EXPECT_NE(std::string::npos, log_text().find("string_table_bind: condition is not true, skip this lang"));

    // Two true lines of a language both apply; the later wins where both
    // define a string.
    env_set_string(&session, "LANG", "de");
    string_table_bind(&session);
    EXPECT_EQ("de2 a", get("a"));
    EXPECT_EQ("de1 b", get("b"));

    // The first line false, the second true: found through the second, and
    // only the second applies.
    env_set_string(&session, "LANG", "fr");
    string_table_bind(&session);
    EXPECT_EQ("fr2 a", get("a"));
    EXPECT_EQ("", get("c"));
}

TEST_F(StringTableTest, StringValuesAreTakenByteForByteAtAnyDepth)
{
    strings_file("en.xml", "<group><string name=\"multi\">  two\n  lines &amp; ${x}  </string>\n"
                           "<deeper><string name=\"deep\">found</string></deeper></group>\n"
                           "<string>no name<string name=\"inner\">inner</string></string>\n"
                           "<string name=\"kept\"></string>\n"
                           "<String name=\"upper\">x</String>\n"
                           "<string name=\"dash-name\">dash</string>\n"
                           "<string name=\"\xc3\xa9t\xc3\xa9\">\xe5\xae\x89\xe8\xa3\x85</string>\n");
    strings_ini("default::en.xml\n");
    env_set_string(&session, "kept", "earlier");

    EXPECT_EQ(0, bind("en"));
    EXPECT_EQ("  two\n  lines &amp; ${x}  ", get("multi"));
    EXPECT_EQ("found", get("deep"));
    EXPECT_EQ("inner", get("inner"));  // children of a nameless string are visited
    EXPECT_EQ("earlier", get("kept")); // an empty element sets nothing
    EXPECT_FALSE(env_exists(&session, "upper"));
    EXPECT_EQ("dash", get("dash_name"));
    EXPECT_EQ("\xe5\xae\x89\xe8\xa3\x85", get("\xc3\xa9t\xc3\xa9"));
}

TEST_F(StringTableTest, LinesThatAreShortBlankOrBrokenAndFilesThatAreMissing)
{
    strings_file("a.xml", "<string name=\"a\">A</string>\n");
    strings_file("b.xml", "<string name=\"b\">B</string>\n");
    write_text(dir.file("engine/broken.xml"), "<string name=\"c\">C</string><string name=");

    // Two-field lines leave the table empty, and binding succeeds anyway.
    strings_ini("default:a.xml\nde:b.xml\n");
    EXPECT_EQ(0, bind("de"));
    EXPECT_EQ(-1, session.string_last);
    EXPECT_FALSE(env_exists(&session, "a"));

    // Comments and blank lines take no number; five fields act as three; a
    // broken file gives what was parsed before the fault.
    strings_ini("# the table\n\ndefault::a.xml:::x\ndefault::broken.xml\r\n");
    EXPECT_EQ(0, bind("de"));
    EXPECT_EQ(1, session.string_last);
    EXPECT_EQ("A", get("a"));
    EXPECT_EQ("C", get("c"));

    // A missing file stops the loading; the lines before it stay.
    strings_ini("default::a.xml\ndefault::missing.xml\ndefault::b.xml\n");
    EXPECT_EQ(-1, string_table_init(&session));
    EXPECT_EQ(0, session.string_last);
    EXPECT_NE(std::string::npos,
              log_text().find("string_table_parse_ini: can't read " + dir.file("engine") + "/missing.xml"));
}

TEST_F(StringTableTest, RootDefaultsToEngineDirAndOnlyHoldsTheIni)
{
    // strings.ini under STRING_TABLE_ROOT is used, but its files with an
    // empty component are still read from ENGINE_DIR.
    strings_file("en.xml", "<string name=\"where\">engine</string>\n");
    write_text(dir.file("root/en.xml"), "<string name=\"where\">root</string>\n");
    strings_ini("default::en.xml\n");
    EXPECT_EQ(0, bind("en"));
    EXPECT_EQ("engine", get("where"));

    // Without STRING_TABLE_ROOT the root is ENGINE_DIR, and it is recorded.
    env_remove(&session, "STRING_TABLE_ROOT");
    write_text(dir.file("engine/strings.ini"), "default::en.xml\n");
    env_set_string(&session, "where", "");
    EXPECT_EQ(0, bind("en"));
    EXPECT_EQ(dir.file("engine"), get("STRING_TABLE_ROOT"));
    EXPECT_EQ("engine", get("where"));
    EXPECT_EQ(1, string_table_is_external(dir.file("engine").c_str()));
    EXPECT_EQ(0, string_table_is_external(dir.file("nowhere").c_str()));
}

// Writes a cab of in-memory entries (component, name, text) and opens it as
// the session's root cab.
void open_package(session_t* session, const std::string& path, const std::vector<std::array<std::string, 3>>& entries)
{
    std::vector<cab_entry_src_t> sources;
    for (const auto& entry : entries) {
        cab_entry_src_t source = {};
        source.component = entry[0].c_str();
        source.name = entry[1].c_str();
        source.type = 1;
        source.data = entry[2].data();
        source.data_size = (int64_t)entry[2].size();
        sources.push_back(source);
    }
    ASSERT_EQ(0, store_write_cab_file(path.c_str(), sources.data(), (int)sources.size(), false, nullptr, 0));
    ASSERT_EQ(0, store_read_header(session, &session->cab, path.c_str()));
}

TEST_F(StringTableTest, PackageTablesWithIncludesAndAnOverridingRoot)
{
    open_package(
        &session, dir.file("install.cab"),
        {{"_internal_", "strings.ini", "default:_internal_:en.xml\nde:_internal_:de.xml\n"},
         {"_internal_", "en.xml",
          "<strings><string name=\"a\">en a</string>"
          "<include component=\"extra\" file=\"more_en.xml\"><string name=\"after\">after</string></include>"
          "<include file=\"nowhere.xml\"/><string name=\"last\">last</string></strings>"},
         {"_internal_", "de.xml",
          "<string name=\"a\">de a</string><include component=\"extra\" file=\"self.xml\"/>"
          "<include component=\"extra\"/><string name=\"b\">de b</string>"},
         {"extra", "more_en.xml", "<string name=\"b\">more b</string><string name=\"a\">more a</string>"},
         {"extra", "self.xml", "<string name=\"c\">self c</string><include component=\"extra\" file=\"self.xml\"/>"}});
    env_set_string(&session, "STRING_TABLE_ROOT", dir.file("empty"));

    // An include applies its file at its place, then its own children; one
    // without a component reads nothing and the walk goes on.
    EXPECT_EQ(0, bind("en"));
    EXPECT_EQ("more a", get("a"));
    EXPECT_EQ("more b", get("b"));
    EXPECT_EQ("after", get("after"));
    EXPECT_EQ("last", get("last"));
    EXPECT_NE(std::string::npos, log_text().find("string_table_init: There is no strings.ini in " + dir.file("empty") +
                                                 ", get it from store"));

    // A file that includes itself ends at a depth limit; an include without
    // a file fails alone, and later elements still apply.
    env_set_string(&session, "LANG", "de");
    EXPECT_EQ(0, string_table_bind(&session));
    EXPECT_EQ("de a", get("a"));
    EXPECT_EQ("self c", get("c"));
    EXPECT_EQ("de b", get("b"));
    EXPECT_NE(std::string::npos, log_text().find("string_xml2prop: name of the file is missing"));

    // A strings.ini on disk wins over the package's; its lines may still
    // name entries of the cab.
    strings_file("fr.xml", "<string name=\"a\">fr a</string>\n");
    strings_ini("fr::fr.xml\ndefault:_internal_:en.xml\n");
    env_set_string(&session, "STRING_TABLE_ROOT", dir.file("root"));
    EXPECT_EQ(0, bind("fr"));
    EXPECT_EQ("fr a", get("a"));
    EXPECT_EQ(1, session.string_last);
}

TEST_F(StringTableTest, APackageWithoutATableLoadsNothing)
{
    open_package(&session, dir.file("install.cab"), {{"_internal_", "other.txt", "x"}});
    env_set_string(&session, "STRING_TABLE_ROOT", dir.file("empty"));
    EXPECT_EQ(-1, string_table_init(&session));
    EXPECT_NE(std::string::npos, log_text().find("load_string_from_store: There is no _internal_::strings.ini"));
    EXPECT_EQ(-1, session.string_last);
}

} // namespace
