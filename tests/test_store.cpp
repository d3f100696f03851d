// Cabs: what the writer makes the reader reads back, damaged files fail
// with their messages, lookups follow the membership rule, attachments keep
// their order, and extraction keeps its established quirks.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "env.h"
#include "file.h"
#include "log.h"
#include "seq.h"
#include "store.h"
#include "testutil.h"
#include "utils.h"

namespace
{

// An entry for the writer with owned strings; empty strings stay absent.
struct Entry {
    std::string component{}, name{}, install_name{}, target_name{}, uid{}, group{}, attrs{}, condition{}, data{};
    int32_t type = 0;
};

Entry with_data(const std::string& component, const std::string& name, const std::string& data,
                const std::string& attrs = "")
{
    return {component, name, "", "", "", "", attrs, "", data};
}

cab_entry_src_t to_source(const Entry& e)
{
    auto text = [](const std::string& s) { return s.empty() ? nullptr : s.c_str(); };
    cab_entry_src_t src = {};
    src.component = text(e.component);
    src.name = text(e.name);
    src.install_name = text(e.install_name);
    src.target_name = text(e.target_name);
    src.type = e.type;
    src.install_uid = text(e.uid);
    src.group_id = text(e.group);
    src.attrs = text(e.attrs);
    src.condition = text(e.condition);
    src.data = e.data.data();
    src.data_size = (int64_t)e.data.size();
    return src;
}

int write_cab(const std::string& path, const std::vector<Entry>& entries, bool append = false)
{
    std::vector<cab_entry_src_t> sources;
    for (const Entry& e : entries)
        sources.push_back(to_source(e));
    return store_write_cab_file(path.c_str(), sources.data(), (int)sources.size(), append, nullptr, 0);
}

std::string content_of(cab_t* cab, const char* component, const char* name, int* rc = nullptr)
{
    char* content = nullptr;
    int size = 0;
    int result = store_file_get_content(cab, component, name, &content, &size, nullptr);
    if (rc)
        *rc = result;
    std::string text = content ? std::string(content, (size_t)size) : "<null>";
    free(content);
    return text;
}

// A number in the table's big-endian form.
std::string be64(int64_t value)
{
    unsigned char* bytes = pack_i64(value);
    std::string text((const char*)bytes, 8);
    free(bytes);
    return text;
}

struct StoreTest : ::testing::Test {
    TempDir dir;
    session_t session;
    std::deque<cab_t> cabs;
    void SetUp() override { open_test_log(dir.file("test.log")); }
    void TearDown() override
    {
        store_release(&session.cab);
        for (cab_t& cab : cabs)
            store_release(&cab);
        log_disable();
    }
    std::string log() { return read_text(dir.file("test.log")); }
    bool logged(const std::string& text) { return log().find(text) != std::string::npos; }
    bool error_logged(const std::string& text) { return logged("ERROR: : " + text + "\n"); }
    // Opens a cab that the fixture releases at the end.
    cab_t* open(const std::string& path, int* rc)
    {
        cab_t* cab = &cabs.emplace_back();
        *rc = store_read_header(&session, cab, path.c_str());
        return cab;
    }
};

// Round trips: the writer's output read by the engine.

TEST_F(StoreTest, EveryFieldSurvivesTheRoundTrip)
{
    std::string long_condition(20000, 'c'); // far beyond the 8192-byte field of old readers
    Entry full{"core;tools", "bin/tool", "${installdir}/bin/tool", "target", "root",
               "wheel",      "0755",     long_condition,           "payload"};
    full.type = -7;
    ASSERT_EQ(write_cab(dir.file("a.cab"), {with_data("_internal_", "product.ini", "A=1\n"), full}), 0);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    ASSERT_EQ(rc, 0);
    ASSERT_EQ(cab.last_item, 1);
    const cab_item_t& item = cab.items[1];
    EXPECT_STREQ(item.component, "core;tools");
    EXPECT_STREQ(item.install_name, "${installdir}/bin/tool");
    EXPECT_STREQ(item.target_name, "target");
    EXPECT_EQ(item.type, -7);
    EXPECT_EQ(item.install_size, 7);
    EXPECT_EQ(item.store_offset, 4);
    EXPECT_STREQ(item.install_uid, "root");
    EXPECT_STREQ(item.attrs, "0755");
    EXPECT_STREQ(item.cksum, "2699230132"); // what `printf payload | cksum` gives
    EXPECT_EQ(std::string(item.condition), long_condition);
    EXPECT_EQ(item.kind, STORE_KIND_CAB);
    // Absent strings read back as null, never as empty strings.
    EXPECT_EQ(cab.items[0].install_name, nullptr);
    // The record behind the last one exists and is all zero.
    EXPECT_EQ(cab.items[2].component, nullptr);
    EXPECT_EQ(content_of(&cab, "core", "bin/tool"), "payload");
    EXPECT_EQ(content_of(&cab, "tools", "bin/tool"), "<null>"); // see the membership rule
    EXPECT_TRUE(logged("store_read_cab: detected 1 enties in CAB\n"));
}

TEST_F(StoreTest, CabBehindOtherBytesReadsAsStandAlone)
{
    write_text(dir.file("prog"), std::string(1000, 'x'));
    ASSERT_EQ(write_cab(dir.file("prog"), {with_data("_internal_", "help.msg", "Usage")}, true), 0);
    int rc;
    cab_t& cab = *open(dir.file("prog"), &rc);
    ASSERT_EQ(rc, 0);
    EXPECT_EQ(cab.last_item, 0); // a last index of 0 is one entry
    EXPECT_EQ(content_of(&cab, "_internal_", "help.msg"), "Usage");
    EXPECT_EQ(read_text(dir.file("prog")).substr(0, 1000), std::string(1000, 'x'));
}

TEST_F(StoreTest, WriterRefusesMissingSourcesAndKeepsTheOldFile)
{
    write_text(dir.file("old.cab"), "old");
    cab_entry_src_t src = {};
    src.name = "x";
    src.source = "/nonexistent-kelm-test/source";
    char message[256] = "";
    EXPECT_EQ(store_write_cab_file(dir.file("old.cab").c_str(), &src, 1, false, message, sizeof message), -1);
    EXPECT_NE(std::string(message).find("/nonexistent-kelm-test/source"), std::string::npos);
    EXPECT_EQ(read_text(dir.file("old.cab")), "old");
    EXPECT_EQ(store_write_cab_file(dir.file("old.cab").c_str(), &src, 1, true, message, sizeof message), -1);
    EXPECT_EQ(read_text(dir.file("old.cab")), "old");
}

// Damaged cabs.

TEST_F(StoreTest, MissingEndMarkIsOnlyLogged)
{
    ASSERT_EQ(write_cab(dir.file("a.cab"), {with_data("c", "n", "data")}), 0);
    std::string bytes = read_text(dir.file("a.cab"));
    size_t mark = bytes.find("\xBB\xBB\xBB\xBB");
    ASSERT_NE(mark, std::string::npos);
    bytes[mark] = 'x';
    write_text(dir.file("a.cab"), bytes);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(cab.file, nullptr);
    EXPECT_TRUE(logged(" - : store_read_cab: It's not a valid store\n\n"));
    EXPECT_FALSE(logged("ERROR"));
}

TEST_F(StoreTest, ShortFilesAndCutTablesFailWithTheirMessages)
{
    struct Case {
        std::string bytes;
        const char* message;
    };
    std::string table = "\xAA\xAA\xAA\xAA" + be64(0) + "--";
    auto cab_of = [](const std::string& body) { return body + be64((int64_t)body.size()) + be64(16); };
    std::vector<Case> cases = {
        {"short", "store_read_cab: can not read 8 bytes from tail"},
        {std::string(100, 'z') + be64(0) + be64(50), "store_read_cab: It's not a valid store"},
        {be64(0) + be64(1000), "store_read_cab: can not seek to the start of CAB file"},
        {"xx" + be64(0) + be64(-100), "store_read_cab: can not read first 4 bytes from CAB"},
        // The tail sums to 4, so the magic is the tail's own last 4 bytes.
        {be64(0x5555555A) + be64(0xAAAAAAAA), "store_read_cab: can not get number of enties in CAB"},
        {cab_of(table + "--" + be64(1000) + "abc"), "store_read_cab: can not read conponents"},
        {cab_of("\xAA\xAA\xAA\xAA" + be64(-3) + "--"), "store_read_cab: cab->items allocation failed"},
    };
    for (const Case& c : cases) {
        write_text(dir.file("cut"), c.bytes);
        int rc;
        open(dir.file("cut"), &rc);
        EXPECT_EQ(rc, -1) << c.message;
        EXPECT_TRUE(error_logged(c.message)) << c.message;
    }
}

TEST_F(StoreTest, HugeEntryCountFailsWithoutHugeAllocation)
{
    std::string body = "\xAA\xAA\xAA\xAA" + be64(0x7FFFFFFE) + "--" + "--" + be64(1) + "c" + "--";
    write_text(dir.file("huge"), body + be64((int64_t)body.size()) + be64(16));
    int rc;
    cab_t& cab = *open(dir.file("huge"), &rc);
    EXPECT_EQ(rc, -1);
    EXPECT_TRUE(logged("ERROR: : store_read_cab: can not"));
    // Only the records that exist are counted, so walks stay inside them.
    EXPECT_LT(cab.last_item, 10);
    EXPECT_STREQ(cab.items[0].component, "c");
}

TEST_F(StoreTest, ComponentLosesOneLineEndOnly)
{
    ASSERT_EQ(write_cab(dir.file("a.cab"), {{"core\r\n", "a"}, {"other\n", "b"}, {"x", "c", "", "", "", "", "", "\n"}}),
              0);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    ASSERT_EQ(rc, 0);
    EXPECT_STREQ(cab.items[0].component, "core\r");
    EXPECT_STREQ(cab.items[1].component, "other");
    EXPECT_STREQ(cab.items[2].condition, "\n"); // only the component is cut
}

TEST_F(StoreTest, TruncatedStoreReadsAsZerosWithSuccess)
{
    ASSERT_EQ(write_cab(dir.file("a.cab"), {with_data("c", "first", "0123456789")}), 0);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    ASSERT_EQ(rc, 0);
    // The store lies at the end; cutting the file there and keeping a tail
    // would change the tail's sum, so the entry's offset is moved instead.
    cab.items[0].store_offset = 4;
    cab.items[0].install_size = 30; // beyond the file's end, tail included
    std::string text = content_of(&cab, "c", "first", &rc);
    EXPECT_EQ(rc, 0);
    ASSERT_EQ(text.size(), 30u);
    EXPECT_EQ(text.substr(0, 6), "456789");
    EXPECT_EQ(text.substr(22), std::string(8, '\0'));
    EXPECT_EQ(store_item_available(&cab, &cab.items[0]), 22);
}

// Lookups.

TEST_F(StoreTest, MembershipFollowsTheDistanceRule)
{
    EXPECT_EQ(store_component_match("_internal_", "_internal_"), 1);
    EXPECT_EQ(store_component_match("abc", "ab"), 1); // the distance is 3: the end of the text
    EXPECT_EQ(store_component_match("abc", "bc"), 0); // the distance is 2: 'c'
    EXPECT_EQ(store_component_match("aaa;bbb", "bbb"), 1);
    EXPECT_EQ(store_component_match("a;bbbb", "bbbb"), 0);

    ASSERT_EQ(write_cab(dir.file("a.cab"), {{"", "orphan"},
                                            {"aaa;bbb", "f"},
                                            {"a;bbbb", "g"},
                                            {"abc", "File"},
                                            with_data("c", "same", "first"),
                                            with_data("c", "same", "second")}),
              0);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    EXPECT_EQ(store_component_exists(&cab, "bbb"), 1);
    EXPECT_EQ(store_file_exists(&cab, "bbbb", "g"), 0);
    EXPECT_EQ(store_file_exists(&cab, "ab", "File"), 1);
    EXPECT_EQ(store_file_exists(&cab, "ab", "file"), 0); // names compare with case
    EXPECT_EQ(store_file_exists(&cab, "", "orphan"), 0); // entries without component never match
    EXPECT_EQ(content_of(&cab, "c", "same"), "first");   // the first matching entry wins
}

TEST_F(StoreTest, EntryWithIndexZeroIsReadableButNeverExtracted)
{
    ASSERT_EQ(write_cab(dir.file("a.cab"), {with_data("_internal_", "layer.xml", "<layer/>"),
                                            with_data("core", "tool", "#!/bin/sh\n", "0755")}),
              0);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    EXPECT_EQ(content_of(&cab, "_internal_", "layer.xml", &rc), "<layer/>");
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(store_file_extract(&session, &cab, "_internal_", "layer.xml", dir.file("out/layer.xml").c_str()), -1);
    EXPECT_FALSE(exists(dir.file("out/layer.xml").c_str()));
    EXPECT_TRUE(logged("store_file_extract: unable to get content of file/component: layer.xml/_internal_ - 0\n"));

    // Index 1 is extracted, its directory made, its mode applied.
    ASSERT_EQ(store_file_extract(&session, &cab, "core", "tool", dir.file("out/sub/tool").c_str()), 0);
    EXPECT_EQ(read_text(dir.file("out/sub/tool")), "#!/bin/sh\n");
    struct stat st;
    ASSERT_EQ(stat(dir.file("out/sub/tool").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755u);
}

TEST_F(StoreTest, ExtractOfUnknownNameLeavesAnEmptyFile)
{
    ASSERT_EQ(write_cab(dir.file("a.cab"), {{"c", "zero"}}), 0);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    EXPECT_EQ(store_file_extract(&session, &cab, "c", "missing", dir.file("empty").c_str()), 0);
    EXPECT_TRUE(is_file(dir.file("empty").c_str()));
    EXPECT_EQ(file_size(dir.file("empty").c_str()), 0);
    write_text(dir.file("plain"), ""); // a file where a directory would have to be
    EXPECT_EQ(store_file_extract(&session, &cab, "c", "missing", dir.file("plain/x").c_str()), -1);
    EXPECT_TRUE(error_logged("store_file_extract: can't create " + dir.file("plain/x") + "\n"));
}

TEST_F(StoreTest, BadAttrsFailAfterTheFileIsWritten)
{
    ASSERT_EQ(write_cab(dir.file("a.cab"),
                        {{"c", "zero"}, with_data("c", "bad", "data", "0855"), with_data("c", "zero-mode", "z", "0")}),
              0);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    EXPECT_EQ(store_file_extract(&session, &cab, "c", "bad", dir.file("bad").c_str()), -1);
    EXPECT_EQ(read_text(dir.file("bad")), "data");
    EXPECT_TRUE(logged("Can't get the permissions for: bad\n"));
    // A mode of 0 leaves the file's mode alone.
    ASSERT_EQ(store_file_extract(&session, &cab, "c", "zero-mode", dir.file("z").c_str()), 0);
    struct stat st;
    ASSERT_EQ(stat(dir.file("z").c_str(), &st), 0);
    EXPECT_NE(st.st_mode & 0777, 0u);
}

TEST_F(StoreTest, LargeEntryStreamsToTheFile)
{
    std::string big(3 * 1048576 + 123, '\0');
    for (size_t i = 0; i < big.size(); i++)
        big[i] = (char)(i * 7);
    ASSERT_EQ(write_cab(dir.file("a.cab"), {{"c", "zero"}, with_data("c", "big", big)}), 0);
    int rc;
    cab_t& cab = *open(dir.file("a.cab"), &rc);
    ASSERT_EQ(store_file_extract(&session, &cab, "c", "big", dir.file("big").c_str()), 0);
    EXPECT_TRUE(read_text(dir.file("big")) == big);
}

// Attaching and walking.

struct AttachTest : StoreTest {
    void SetUp() override
    {
        StoreTest::SetUp();
        env_set_string(&session, "ENGINE_DIR", dir.path);
        ASSERT_EQ(write_cab(dir.file("root.cab"),
                            {with_data("_internal_", "product.ini", "root"), with_data("core", "shared", "from root")}),
                  0);
        int rc = store_read_header(&session, &session.cab, dir.file("root.cab").c_str());
        ASSERT_EQ(rc, 0);
    }
    std::vector<std::string> walk(cab_t* cab)
    {
        store_iter_t iterator;
        EXPECT_EQ(store_iter_init(cab, &iterator), 0);
        std::vector<std::string> seen;
        for (int guard = 0; guard < 100; guard++) {
            cab_item_t* item = store_iter_next(&iterator);
            if (!item)
                break;
            seen.push_back(item->component ? std::string(item->component) + "::" + item->name : "(zero)");
        }
        return seen;
    }
};

TEST_F(AttachTest, ListIsAttachedFromTheRightAndSetsTheSearchOrder)
{
    ASSERT_EQ(write_cab(dir.file("a.cab"), {{"x", "zero"}, with_data("core", "only-a", "A")}), 0);
    ASSERT_EQ(write_cab(dir.file("b.cab"),
                        {{"x", "zero"}, with_data("core", "only-a", "B"), with_data("core", "shared", "B")}),
              0);
    env_set_string(&session, "__ATTACHED_CABS", "a.cab:CAB;" + dir.file("b.cab") + ":cab");
    EXPECT_EQ(store_attach_cabs(&session), 0);
    ASSERT_EQ(session.cab.last_attached, 1);
    EXPECT_STREQ(session.cab.attached[0].items[1].component, "core"); // b.cab came first
    EXPECT_EQ(content_of(&session.cab, "core", "only-a"), "B");
    EXPECT_EQ(content_of(&session.cab, "core", "shared"), "from root"); // own entries first
    EXPECT_EQ(store_file_exists(&session.cab, "core", "only-a"), 0);    // own entries only
    EXPECT_TRUE(logged("store_attach_cab: try to open " + dir.file("a.cab") + "\n"));
    EXPECT_EQ(walk(&session.cab),
              (std::vector<std::string>{"_internal_::product.ini", "core::shared", "x::zero", "core::only-a",
                                        "core::shared", "x::zero", "core::only-a"}));
}

TEST_F(AttachTest, MalformedListsStopWhileFailedEntriesAreSkipped)
{
    ASSERT_EQ(write_cab(dir.file("a.cab"), {{"x", "a"}}), 0);
    env_set_string(&session, "__ATTACHED_CABS", "a.cab:CAB;");
    EXPECT_EQ(store_attach_cabs(&session), -1);
    EXPECT_TRUE(error_logged("store_attach_cabs: cab type is not recognized"));
    EXPECT_EQ(session.cab.last_attached, -1);

    env_set_string(&session, "__ATTACHED_CABS", ";a.cab:CAB");
    EXPECT_EQ(store_attach_cabs(&session), 0);
    EXPECT_EQ(session.cab.last_attached, 0);

    env_set_string(&session, "__ATTACHED_CABS", "a.cab:ZIP");
    EXPECT_EQ(store_attach_cabs(&session), -1);
    EXPECT_TRUE(error_logged("store_read_cabs: unknow type of the CAB"));

    // A path with a colon is split at the last one; a missing or damaged cab
    // is reported and the next entry still comes.
    mkdir(dir.file("a:b").c_str(), 0755);
    ASSERT_EQ(write_cab(dir.file("a:b/c.cab"), {{"x", "c"}}), 0);
    write_text(dir.file("junk.cab"), std::string(40, 'j'));
    env_set_string(&session, "__ATTACHED_CABS", dir.file("a:b/c.cab") + ":CAB;missing.cab:CAB;junk.cab:CAB");
    EXPECT_EQ(store_attach_cabs(&session), 0);
    EXPECT_TRUE(error_logged("store_attach_cabs: loading of junk.cab cab failed"));
    EXPECT_TRUE(error_logged("store_attach_cab: can't open '" + dir.file("missing.cab") + "'"));
    ASSERT_EQ(session.cab.last_attached, 2); // the damaged cab keeps its slot
    EXPECT_STREQ(session.cab.attached[2].items[0].name, "c");

    env_remove(&session, "__ATTACHED_CABS");
    EXPECT_EQ(store_attach_cabs(&session), 0);
    EXPECT_TRUE(logged("store_attach_cabs: property __ATTACHED_CABS is not defined or set to NULL. Skip action.\n"));
}

TEST_F(AttachTest, ArchivesGoToTheRunningLayerAndCabsToTheRoot)
{
    seq_layer_t layer;
    char id[] = "layer1";
    layer.id = id;
    env_set_string(&session, "TEMP_FOLDER", "/tmp/t");
    session.scope = &layer;
    EXPECT_EQ(store_attach_archive(&session, "pkg/x.rpm", STORE_KIND_RPM), 0);
    ASSERT_EQ(write_cab(dir.file("a.cab"), {{"x", "a"}}), 0);
    EXPECT_EQ(store_attach_cab(&session, "a.cab"), 0);
    session.scope = nullptr;
    EXPECT_EQ(store_attach_archive(&session, "y.tgz", STORE_KIND_TGZ), 1);

    ASSERT_EQ(layer.last_attached, 0);
    const cab_item_t& member = layer.attached[0].items[0];
    EXPECT_STREQ(member.component, "x.rpm");
    EXPECT_STREQ(member.name, "/tmp/t/layer1/pkg/x.rpm");
    EXPECT_STREQ(member.install_name, "${installdir}");
    EXPECT_EQ(member.type, -1);
    EXPECT_EQ(member.kind, STORE_KIND_RPM);
    EXPECT_STREQ(session.cab.attached[1].items[0].name, (dir.path + "/y.tgz").c_str());
    EXPECT_TRUE(logged("store_read_archive: y.tgz::" + dir.path + "/y.tgz, 2\n"));
    // The walk gives the member and then the all-zero record.
    EXPECT_EQ(walk(&session.cab), (std::vector<std::string>{"_internal_::product.ini", "core::shared", "x::a",
                                                            "y.tgz::" + dir.path + "/y.tgz", "(zero)"}));
    store_release(&layer);
}

TEST_F(AttachTest, MoreThanTenAttachmentsGrowTheArray)
{
    for (int i = 0; i < 25; i++)
        EXPECT_EQ(store_attach_archive(&session, ("/p/" + std::to_string(i) + ".rpm").c_str(), STORE_KIND_RPM), i);
    EXPECT_EQ(session.cab.last_attached, 24);
    EXPECT_EQ(walk(&session.cab).size(), 2u + 25 * 2);
    EXPECT_STREQ(session.cab.attached[24].items[0].component, "24.rpm");
}

TEST_F(AttachTest, AttachedCabWithoutEntriesEndsTheWalk)
{
    ASSERT_EQ(write_cab(dir.file("empty.cab"), {}), 0);
    ASSERT_EQ(write_cab(dir.file("b.cab"), {{"x", "b"}}), 0);
    env_set_string(&session, "__ATTACHED_CABS", "b.cab:CAB;empty.cab:CAB");
    EXPECT_EQ(store_attach_cabs(&session), 0);
    EXPECT_EQ(walk(&session.cab), (std::vector<std::string>{"_internal_::product.ini", "core::shared"}));
}

TEST_F(AttachTest, RealRpmAndTgzArchivesAttachAndUnpack)
{
    int status;
    std::string top = dir.file("rpmbuild");
    write_text(dir.file("demo.rpmspec"), "Name: demo\nVersion: 1\nRelease: 1\nSummary: demo\nLicense: none\n"
                                         "BuildArch: noarch\n%description\ndemo\n%install\nmkdir -p "
                                         "%{buildroot}/opt/demo\necho hi > %{buildroot}/opt/demo/hi\n"
                                         "%files\n/opt/demo/hi\n");
    run_command("rpmbuild -bb --quiet --define '_topdir " + top + "' --define '_binary_payload w9.gzdio' " +
                    dir.file("demo.rpmspec") + " >/dev/null 2>&1",
                &status);
    ASSERT_EQ(status, 0) << "rpmbuild failed";
    std::string rpm = top + "/RPMS/noarch/demo-1-1.noarch.rpm";
    mkdir(dir.file("tree").c_str(), 0755);
    write_text(dir.file("tree/f"), "tgz member");
    run_command("tar --format=ustar -C " + dir.file("tree") + " -czf " + dir.file("x.tgz") + " f", &status);
    ASSERT_EQ(status, 0);

    env_set_string(&session, "__ATTACHED_CABS", rpm + ":RPM;x.tgz:tgz");
    EXPECT_EQ(store_attach_cabs(&session), 0);
    std::vector<std::string> seen = walk(&session.cab);
    ASSERT_EQ(seen.size(), 6u);
    EXPECT_EQ(seen[2], "x.tgz::" + dir.file("x.tgz"));
    EXPECT_EQ(seen[4], "demo-1-1.noarch.rpm::" + rpm);
    EXPECT_STREQ(session.cab.attached[0].items[0].target_name, dir.file("x.tgz").c_str());
}

TEST_F(StoreTest, HelperNumbersAndModesFollowTheirRules)
{
    unsigned char* bytes = pack_i64(0x0102);
    EXPECT_EQ(bytes[6], 1); // big-endian
    EXPECT_EQ(bytes[7], 2);
    free(bytes);
    bytes = pack_i64(INT64_MIN);
    EXPECT_EQ(unpack_i64(bytes), INT64_MIN);
    free(bytes);
    EXPECT_EQ(oct_string2dec("755\n"), 493);
    EXPECT_EQ(oct_string2dec("777777777777777777"), -1); // too large for an int
    EXPECT_NE(folder_create(dir.path.c_str(), 0775), 0); // an existing directory is a failure
    EXPECT_EQ(link_create(dir.file("new/dir/link").c_str(), "target"), 0);
    EXPECT_EQ(run_command("readlink " + dir.file("new/dir/link")), "target\n");
    EXPECT_EQ(store_read_header(&session, &session.cab, dir.file("missing").c_str()), -1);
    EXPECT_TRUE(error_logged("store_read_header: can't open '" + dir.file("missing") + "'"));
}

} // namespace
