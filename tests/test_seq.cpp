// Loading sequences: the choice in sequence.ini, the chain of modules, the
// layers with their unpacked files and strings, and the list helpers.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "env.h"
#include "log.h"
#include "seq.h"
#include "store.h"
#include "testutil.h"
#include "utils.h"
#include "xml.h"

namespace
{

// A session with its log in a private directory, a root cab built from the
// entries, and the properties the loader reads pointing inside the folder.
struct Package {
    TempDir dir;
    session_t session;
    std::string log_path;

    explicit Package(const std::vector<CabEntry>& root_entries)
    {
        log_path = dir.file("test.log");
        open_test_log(log_path);
        write_cab(dir.file("install.cab"), root_entries);
        EXPECT_EQ(store_read_header(&session, &session.cab, dir.file("install.cab").c_str()), 0);
        mkdir(dir.file("config").c_str(), 0755);
        mkdir(dir.file("tmp").c_str(), 0755);
        env_set_string(&session, "ENGINE_DIR", dir.path);
        env_set_string(&session, "CONFIG_DIR", dir.file("config"));
        env_set_string(&session, "TEMP_FOLDER", dir.file("tmp"));
    }
    ~Package()
    {
        sequence_release_all(&session);
        log_disable();
    }
    std::string log() const { return read_text(log_path); }
    seq_item_t* first() { return session.seqs.seq ? &session.seqs.seq[0] : nullptr; }
    std::string step_ids()
    {
        std::string ids;
        for (int i = 0; i < first()->steps_count; i++)
            ids += std::string(i ? "," : "") + first()->seq_steps[i].id;
        return ids;
    }
};

size_t at(const std::string& log, const std::string& text)
{
    return log.find(text);
}

TEST(SeqChoice, FirstTrueReadableLineWins)
{
    Package pkg({{"_internal_", "sequence.ini",
                  "# comment\n"
                  "short:line\n"
                  "_internal_:off.xml:a = b\n"
                  "_internal_:missing.xml:a = a\n"
                  "_internal_:garbage.xml:a = a\n"
                  "_internal_:one.xml:a = a\r\n"
                  "_internal_:two.xml:a = a\n"},
                 {"_internal_", "off.xml", "<s/>"},
                 {"_internal_", "garbage.xml", "just text, no element"},
                 {"_internal_", "one.xml", "<s><module id=\"_start_\"/></s>"},
                 {"_internal_", "two.xml", "<s/>"}});
    ASSERT_EQ(init_sequence(&pkg.session), 0);
    ASSERT_NE(pkg.first(), nullptr);
    EXPECT_STREQ(pkg.first()->filename, "one.xml");
    std::string log = pkg.log();
    EXPECT_TRUE(log_reports_error(log, "init_sequence: can't extract _internal_::missing.xml"));
    EXPECT_TRUE(log_reports_error(log, "init_sequence: can't load the sequence data"));
    EXPECT_EQ(at(log, "two.xml sequence file"), std::string::npos);
}

TEST(SeqChoice, MissingDefinitionMeansNoSequence)
{
    Package none({{"_internal_", "product.ini", "a=b\n"}});
    EXPECT_EQ(init_sequence(&none.session), 0);
    EXPECT_EQ(none.session.seqs.seq, nullptr);
    EXPECT_TRUE(log_reports_error(none.log(), "init_sequence: There is no _internal_::sequence.ini"));
}

TEST(SeqChoice, FilesOnDiskAreReadRelativeToEngineDir)
{
    Package pkg({{"_internal_", "sequence.ini", ":seqs/disk.xml:a = a\n"}});
    mkdir(pkg.dir.file("seqs").c_str(), 0755);
    write_text(pkg.dir.file("seqs/disk.xml"), "<s><module id=\"_start_\"/></s>");
    ASSERT_EQ(init_sequence(&pkg.session), 0);
    ASSERT_NE(pkg.first(), nullptr);
    EXPECT_STREQ(pkg.first()->filename, "seqs/disk.xml");

    // A named file that cannot be opened is a failure, not a fall-through.
    Package broken({{"_internal_", "sequence.ini", ":nothere.xml:a = a\n_internal_:x.xml:a = a\n"},
                    {"_internal_", "x.xml", "<s/>"}});
    EXPECT_EQ(init_sequence(&broken.session), -1);
    EXPECT_EQ(broken.session.seqs.seq, nullptr);
    EXPECT_TRUE(
        log_reports_error(broken.log(), "sequence_init: can not open file " + broken.dir.path + "/nothere.xml"));
}

const char* const CHAIN = "<sequence>"
                          "<module id=\"third\" file=\"m3.xml\" component=\"_internal_\" name=\"Third\"/>"
                          "<module id=\"orphan\" file=\"m1.xml\" component=\"_internal_\"/>"
                          "<module id=\"_start_\" file=\"m1.xml\" component=\"_internal_\" action=\"a1\" "
                          "name=\"First\" condition=\"x = x\">"
                          "<module id=\"inner\" file=\"sub.xml\" component=\"_internal_\" action=\"s1\"/>"
                          "<module id=\"lost\" file=\"nope.xml\" component=\"_internal_\"/>"
                          "<next call=\"${SECOND}\"/>"
                          "</module>"
                          "<module id=\"second\" file=\"absent.xml\" component=\"_internal_\">"
                          "<next call=\"third\"/>"
                          "</module>"
                          "<module id=\"third\" file=\"m1.xml\" component=\"_internal_\"/>"
                          "</sequence>";

TEST(SeqSteps, ChainFollowsNextWithMacrosAndNestedModules)
{
    Package pkg({{"_internal_", "sequence.ini", "_internal_:seq.xml:a = a\n"},
                 {"_internal_", "seq.xml", CHAIN},
                 {"_internal_", "m1.xml", "<doc><behavior/></doc>"},
                 {"_internal_", "m3.xml", "<doc/>"},
                 {"_internal_", "sub.xml", "<doc/>"}});
    env_set_string(&pkg.session, "SECOND", "second");
    ASSERT_EQ(init_sequence(&pkg.session), 0);
    ASSERT_EQ(sequence_execute_container(&pkg.session, pkg.first()), 0);
    seq_item_t* seq = pkg.first();

    // Modules are reached only through the chain; the first of an id wins.
    EXPECT_EQ(pkg.step_ids(), "_start_,second,third");
    step_t* start = &seq->seq_steps[0];
    EXPECT_NE(start->doc, nullptr);
    EXPECT_EQ(start->owner, seq);
    ASSERT_EQ(start->subs_count, 2);
    EXPECT_STREQ(start->sub[0].id, "inner");
    EXPECT_NE(start->sub[0].doc, nullptr);
    EXPECT_EQ(start->sub[1].doc, nullptr);
    EXPECT_EQ(seq->seq_steps[1].doc, nullptr);

    std::string log = pkg.log();
    EXPECT_NE(at(log, "sequence_execute_container: can't extract _internal_::absent.xml HERE"), std::string::npos);
    EXPECT_NE(at(log, "sequence_execute_container: can't extract _internal_::nope.xml"), std::string::npos);

    EXPECT_EQ(get_module_index_by_id(seq, "third"), 2);
    EXPECT_EQ(get_module_index_by_id(seq, "orphan"), -1);
    EXPECT_EQ(get_sequence_by_filename(&pkg.session, "seq.xml"), seq);
    EXPECT_EQ(get_sequence_by_filename(&pkg.session, "SEQ.xml"), nullptr);
}

TEST(SeqSteps, ChainEndsAtARepeatedId)
{
    Package pkg({{"_internal_", "sequence.ini", "_internal_:seq.xml:a = a\n"},
                 {"_internal_", "seq.xml",
                  "<s><module id=\"_start_\"><next call=\"b\"/></module>"
                  "<module id=\"b\"><next call=\"_start_\"/></module></s>"}});
    ASSERT_EQ(init_sequence(&pkg.session), 0);
    ASSERT_EQ(sequence_execute_container(&pkg.session, pkg.first()), 0);
    EXPECT_EQ(pkg.step_ids(), "_start_,b");
}

// A layer cab: its document first (index 0, never unpacked), then files of
// every architecture component.
void write_layer_cab(const std::string& path, const std::string& id, const std::string& doc)
{
    write_cab(path, {{"_internal_", id + ".xml", doc},
                     {"_internal_32_", "lib/arch.so", "narrow"},
                     {"_internal_32e_", "lib/arch.so", "wide"},
                     {"_internal_", "run.sh", "echo hi"},
                     {"data", "kept.txt", "from cab"}});
}

std::string layered_sequence(const std::string& layers)
{
    return "<s>" + layers + "<module id=\"_start_\"/></s>";
}

TEST(SeqLayers, UnpackingFollowsArchitectureAndSparesExistingFiles)
{
    struct Case {
        const char* arch; // null: ARCH not set
        const char* unpacked;
    } cases[] = {{nullptr, "narrow"}, {"ORVAN64", "wide"}, {"TALL64", ""}};
    for (const Case& c : cases) {
        Package pkg({{"_internal_", "sequence.ini", "_internal_:seq.xml:a = a\n"},
                     {"_internal_", "seq.xml", layered_sequence("<layer file=\"l.cab\" id=\"lay\"/>")}});
        write_layer_cab(pkg.dir.file("config/l.cab"), "lay", "<layer/>");
        if (c.arch)
            env_set_string(&pkg.session, "ARCH", c.arch);
        mkdir(pkg.dir.file("tmp/lay").c_str(), 0755);
        write_text(pkg.dir.file("tmp/lay/kept.txt"), "already here");
        ASSERT_EQ(init_sequence(&pkg.session), 0);
        ASSERT_EQ(sequence_execute_container(&pkg.session, pkg.first()), 0);
        ASSERT_EQ(pkg.first()->layers_count, 1);

        std::string dir = pkg.dir.file("tmp/lay/");
        EXPECT_EQ(read_text(dir + "lib/arch.so"), c.unpacked) << (c.arch ? c.arch : "unset");
        EXPECT_EQ(read_text(dir + "run.sh"), "echo hi");
        EXPECT_EQ(read_text(dir + "kept.txt"), "already here");
        EXPECT_FALSE(exists((dir + "lay.xml").c_str()));
    }
}

TEST(SeqLayers, BrokenLayersAreLeftOutAndOthersLoadInOrder)
{
    Package pkg({{"_internal_", "sequence.ini", "_internal_:seq.xml:a = a\n"},
                 {"_internal_", "seq.xml",
                  layered_sequence("<layer file=\"a.cab\" id=\"first\" condition=\"c1\" executedir=\"x;y\"/>"
                                   "<layer id=\"nofile\"/>"
                                   "<layer file=\"a.cab\"/>"
                                   "<layer file=\"missing.cab\" id=\"gone\"/>"
                                   "<layer file=\"notacab.cab\" id=\"bad\"/>"
                                   "<layer file=\"a.cab\" id=\"wrongid\"/>"
                                   "<layer file=\"c.cab\" id=\"last\"/>")}});
    write_layer_cab(pkg.dir.file("config/a.cab"), "first", "<l/>");
    write_text(pkg.dir.file("config/notacab.cab"), "this is not a cab at all, only some text to read");
    write_layer_cab(pkg.dir.file("config/c.cab"), "last", "<l/>");
    ASSERT_EQ(init_sequence(&pkg.session), 0);
    ASSERT_EQ(sequence_execute_container(&pkg.session, pkg.first()), 0);

    seq_item_t* seq = pkg.first();
    ASSERT_EQ(seq->layers_count, 2);
    EXPECT_STREQ(seq->seq_layers[0]->id, "first");
    EXPECT_STREQ(seq->seq_layers[0]->executedir, "x;y");
    EXPECT_STREQ(seq->seq_layers[1]->id, "last");
    EXPECT_EQ(pkg.step_ids(), "_start_");

    std::string log = pkg.log();
    EXPECT_TRUE(log_reports_error(log, "sequence_execute_container: layer file name is NULL"));
    EXPECT_TRUE(log_reports_error(log, "sequence_execute_container: can't extract wrongid"));
}

const char* const STRINGS_DOC = "<layer>"
                                "<strings><string name=\"lay_title\">Plain</string>"
                                "<string name=\"note\">plain note</string></strings>"
                                "<strings locale=\"default\"><string name=\"lay_extra\">Default</string></strings>"
                                "<strings locale=\"y\"><string name=\"lay_title\">Why</string>"
                                "<string name=\"note\">why note</string><string name=\"lay_empty\"/>"
                                "<string>nameless</string></strings>"
                                "<strings locale=\"z\"><string name=\"lay_title\">Zed</string></strings>"
                                "</layer>";

// Loads one layer "lay" holding STRINGS_DOC with the given locale settings.
struct StringsCase {
    Package pkg{{{"_internal_", "sequence.ini", "_internal_:seq.xml:a = a\n"},
                 {"_internal_", "seq.xml", layered_sequence("<layer file=\"l.cab\" id=\"lay\"/>")}}};
    seq_layer_t* layer = nullptr;

    StringsCase(const char* lang, const char* mapping, const char* additional)
    {
        write_layer_cab(pkg.dir.file("config/l.cab"), "lay", STRINGS_DOC);
        env_set_string(&pkg.session, "LANG", lang);
        env_set_string(&pkg.session, "LOCALES_MAPPING", mapping);
        env_set_string(&pkg.session, "ADDITIONAL_LOCALES", additional);
        EXPECT_EQ(init_sequence(&pkg.session), 0);
        EXPECT_EQ(sequence_execute_container(&pkg.session, pkg.first()), 0);
        if (pkg.first()->layers_count == 1)
            layer = pkg.first()->seq_layers[0];
    }
    std::string local(const char* name) { return env_get_string_internal(&layer->env, name); }
    std::string global(const char* name) { return env_get_string_internal(&pkg.session.env, name); }
};

TEST(SeqLayers, LocaleChoiceAndWhereStringsGo)
{
    StringsCase sc("x", "w:v;x:y", "en;y;fr");
    ASSERT_NE(sc.layer, nullptr);
    EXPECT_EQ(sc.local("lay_title"), "Why");
    EXPECT_EQ(sc.local("note"), "why note");
    EXPECT_TRUE(env_exists_internal(&sc.layer->env, "lay_empty"));
    EXPECT_FALSE(env_exists_internal(&sc.layer->env, "lay_extra"));
    // Only the strings named after the layer reach the global properties.
    EXPECT_EQ(sc.global("lay_title"), "Why");
    EXPECT_FALSE(env_exists_internal(&sc.pkg.session.env, "note"));

    // Not listed in ADDITIONAL_LOCALES: the blocks without a locale or with
    // "default" are used.
    StringsCase unlisted("x", "x:y", "en;fr");
    ASSERT_NE(unlisted.layer, nullptr);
    EXPECT_EQ(unlisted.local("lay_title"), "Plain");
    EXPECT_EQ(unlisted.local("lay_extra"), "Default");
    EXPECT_EQ(unlisted.global("lay_extra"), "Default");
}

TEST(SeqLayers, RootFileAttributeAttachesCabsInTheLayerScope)
{
    Package pkg({{"_internal_", "sequence.ini", "_internal_:seq.xml:a = a\n"},
                 {"_internal_", "seq.xml", layered_sequence("<layer file=\"l.cab\" id=\"lay\"/>")}});
    write_layer_cab(pkg.dir.file("config/l.cab"), "lay", "<layer file=\"extra.cab:CAB\"/>");
    write_cab(pkg.dir.file("extra.cab"), {{"_internal_", "first", ""}, {"_internal_", "more.xml", "<m/>"}});
    ASSERT_EQ(init_sequence(&pkg.session), 0);
    ASSERT_EQ(sequence_execute_container(&pkg.session, pkg.first()), 0);
    ASSERT_EQ(pkg.first()->layers_count, 1);
    seq_layer_t* layer = pkg.first()->seq_layers[0];
    EXPECT_EQ(env_get_string_internal(&layer->env, "__ATTACHED_CABS"), "extra.cab:CAB");
    EXPECT_FALSE(env_exists_internal(&pkg.session.env, "__ATTACHED_CABS"));
    EXPECT_EQ(pkg.session.cab.last_attached, 0);
    EXPECT_EQ(store_file_exists(&pkg.session.cab.attached[0], "_internal_", "more.xml"), 1);
}

TEST(SeqLayers, EmptyTempFolderDefaultsBelowPackageDir)
{
    Package pkg({{"_internal_", "sequence.ini", "_internal_:seq.xml:a = a\n"},
                 {"_internal_", "seq.xml", layered_sequence("<layer file=\"l.cab\" id=\"lay\"/>")}});
    write_layer_cab(pkg.dir.file("config/l.cab"), "lay", "<l/>");
    mkdir(pkg.dir.file("pkg").c_str(), 0755);
    env_set_string(&pkg.session, "TEMP_FOLDER", "");
    env_set_string(&pkg.session, "PACKAGE_DIR", pkg.dir.file("pkg"));
    ASSERT_EQ(init_sequence(&pkg.session), 0);
    ASSERT_EQ(sequence_execute_container(&pkg.session, pkg.first()), 0);
    EXPECT_EQ(env_get_string(&pkg.session, "TEMP_FOLDER"), pkg.dir.file("pkg/tmp"));
    EXPECT_EQ(read_text(pkg.dir.file("pkg/tmp/lay/run.sh")), "echo hi");
}

} // namespace
