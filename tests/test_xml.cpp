// The package dialect: what it refuses, what it quietly accepts, where text
// goes, the text cut, and the writer's round trip.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "log.h"
#include "testutil.h"
#include "xml.h"

namespace
{

struct XmlTest : ::testing::Test {
    TempDir dir;
    document_t doc;
    void SetUp() override { open_test_log(dir.file("test.log")); }
    void TearDown() override
    {
        xml_free(&doc);
        log_disable();
    }
    int parse(const std::string& text)
    {
        xml_free(&doc);
        return xml_parse(text.c_str(), &doc);
    }
    std::string log() const { return read_text(dir.file("test.log")); }
    bool logged(const std::string& text) const { return log().find(text) != std::string::npos; }
    // Whether the text was reported as an error.
    bool logged_error(const std::string& text) const
    {
        std::string all = log();
        size_t at = all.find(text);
        if (at == std::string::npos)
            return false;
        size_t line = all.rfind('\n', at);
        return all.substr(line == std::string::npos ? 0 : line, at - line).find("ERROR: ") != std::string::npos;
    }
    std::string written()
    {
        std::string path = dir.file("out.xml");
        EXPECT_EQ(xml_write(path.c_str(), &doc), 0);
        return read_text(path);
    }
};

// The sections of an element as "data|keys|childs", each the count with a
// mark for a null array: "-1" absent, "n" present with n entries.
std::string shape(const node_t& node)
{
    auto part = [](const void* array, int32_t count) { return (array ? "" : "null") + std::to_string(count); };
    return (node.data ? std::string(node.data) + "/" : std::string("null/")) + std::to_string(node.data_len) + "|" +
           part(node.keys, node.keys_count) + "|" + part(node.childs, node.childs_count);
}

TEST_F(XmlTest, EachSourceFormGivesItsFieldCombination)
{
    struct {
        const char* text;
        const char* shape;
    } cases[] = {
        {"<a/>", "null/-1|null-1|null-1"},    {"<a />", "null/-1|0|null-1"},
        {"<a b=\"c\"/>", "null/-1|1|null-1"}, {"<a></a>", "null/-1|null-1|0"},
        {"<a ></a>", "null/-1|0|0"},          {"<a b=\"c\">text</a>", "text/4|1|0"},
        {"<a> </a>", " /1|null-1|0"},         {"<a b=\"c\"d=\"\"><x/></a>", "null/-1|2|1"},
    };
    for (auto& c : cases) {
        ASSERT_EQ(parse(c.text), 0) << c.text;
        ASSERT_EQ(doc.nodes_count, 1) << c.text;
        EXPECT_STREQ(doc.nodes[0].name, "a");
        EXPECT_EQ(shape(doc.nodes[0]), c.shape) << c.text;
    }
    EXPECT_EQ(parse(""), 0);
    EXPECT_EQ(doc.nodes_count, 0);
    EXPECT_NE(doc.nodes, nullptr);
}

TEST_F(XmlTest, RefusedInputNamesTheCharacterAndState)
{
    struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"</a>", "First element declaration was missed"},
        {"<a b = \"c\"/>", "Wrong character   in state E_PROP_NAME"},
        {"<a b='c'/>", "Wrong character ' in state E_PROP_VALUE_1"},
        {"<a-b/>", "Wrong character - in state E_NAME"},
        {"<a _b=\"c\"/>", "Wrong character _ in state E_PROP_NAME"},
        {"<_a/>", "Wrong character _ in state E_START"},
        {"<a/ >", "Wrong character   in state E_FINISH"},
        {"<a></a b>", "Wrong character   in state E_END_1"},
        {"<!DOCTYPE a>", "Wrong character D in state C_START"},
        {"<!-x-->", "Wrong character x in state C_CONT_1"},
        {"<?XML version=\"1.0\"?>", "incorrect xml version tag"},
        {"<a>", "unexpected end of xml data"},
        {"<!-- a --->", "unexpected end of xml data"},
    };
    for (auto& c : cases) {
        EXPECT_EQ(parse(c.text), -1) << c.text;
        EXPECT_TRUE(logged_error(std::string("xml_parse: ") + c.message)) << c.text;
    }
}

TEST_F(XmlTest, FailureKeepsTheRootsCompletedBefore)
{
    EXPECT_EQ(parse("<a/><b><c/></b><d><e/>&<"), -1);
    ASSERT_EQ(doc.nodes_count, 2);
    EXPECT_STREQ(doc.nodes[1].name, "b");
    EXPECT_STREQ(doc.nodes[1].childs[0].name, "c");
}

TEST_F(XmlTest, EndTagsAreNeitherCheckedNorRequired)
{
    ASSERT_EQ(parse("<a></b>"), 0);
    ASSERT_EQ(doc.nodes_count, 1);
    EXPECT_STREQ(doc.nodes[0].name, "a");

    ASSERT_EQ(parse("<a><b></></zz_9>"), 0);
    ASSERT_EQ(doc.nodes_count, 1);
    EXPECT_EQ(doc.nodes[0].childs_count, 1);

    // An open root is never committed.
    EXPECT_EQ(parse("<a><b/>"), 0);
    EXPECT_EQ(doc.nodes_count, 0);
    EXPECT_EQ(parse("<r/><a><b/>"), 0);
    EXPECT_EQ(doc.nodes_count, 1);
}

TEST_F(XmlTest, TextEndsAtTheFirstChildOrComment)
{
    ASSERT_EQ(parse("<a>\n  <b/>\n</a>"), 0);
    EXPECT_STREQ(doc.nodes[0].data, "\n  ");
    EXPECT_EQ(doc.nodes[0].data_len, 3);

    // What follows a child is skipped as garbage, each byte logged.
    ASSERT_EQ(parse("<a>one<b/>two</a>"), 0);
    EXPECT_STREQ(doc.nodes[0].data, "one");
    EXPECT_TRUE(logged("xml_parse: garbage character t in state VACUUM"));
    EXPECT_TRUE(logged("xml_parse: garbage character o in state VACUUM"));

    // A '/' in such text acts as an end tag: here it closes a, so c is a root.
    ASSERT_EQ(parse("<a><b/>x/y><c/>"), 0);
    ASSERT_EQ(doc.nodes_count, 2);
    EXPECT_STREQ(doc.nodes[1].name, "c");

    ASSERT_EQ(parse("<a>one<!-- note -->two</a>"), 0);
    EXPECT_STREQ(doc.nodes[0].data, "one");

    // Entities and other markup-like bytes stay as they are.
    ASSERT_EQ(parse("<a k=\"&amp;'>\\\n\">&lt; ' > \\</a>"), 0);
    EXPECT_STREQ(doc.nodes[0].data, "&lt; ' > \\");
    EXPECT_STREQ(doc.nodes[0].keys[0].value, "&amp;'>\\\n");
}

TEST_F(XmlTest, CommentsEndOnlyAtTwoDashesAndABracket)
{
    ASSERT_EQ(parse("<!----><a/><!-- - -- -x- --><b/>"), 0);
    EXPECT_EQ(doc.nodes_count, 2);
    ASSERT_EQ(parse("<!-- a ---> still --><a/>"), 0);
    EXPECT_EQ(doc.nodes_count, 1);
    ASSERT_EQ(parse("<a><!-- <b/> --></a>"), 0);
    EXPECT_EQ(doc.nodes[0].childs_count, 0);
}

TEST_F(XmlTest, DeclarationIsOptionalAndAcceptedWherever)
{
    ASSERT_EQ(parse("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a><?xml?><b/><?xml x?y></a><?xml ?>"), 0);
    ASSERT_EQ(doc.nodes_count, 1);
    EXPECT_EQ(doc.nodes[0].childs_count, 1);
    ASSERT_EQ(parse("<?xmlfoo bar?>>?><a/>"), 0); // skipped to the first '?' then the next '>'
    EXPECT_TRUE(logged("garbage character > in state VACUUM"));
    EXPECT_EQ(doc.nodes_count, 1);
}

TEST_F(XmlTest, ElementTextIsCutAt511999Bytes)
{
    const size_t limit = 511999;
    std::string exact(limit, 't');

    ASSERT_EQ(parse("<a>" + exact + "</a>"), 0);
    EXPECT_EQ(doc.nodes[0].data_len, (int32_t)limit);

    // The byte after a full text is read again outside it.
    ASSERT_EQ(parse("<a>" + exact + "u</a>"), 0);
    EXPECT_EQ(doc.nodes[0].data_len, (int32_t)limit);
    EXPECT_EQ(doc.nodes[0].data[limit - 1], 't');
    EXPECT_TRUE(logged("garbage character u in state VACUUM"));

    // Running out of input with a full buffer is still running out.
    EXPECT_EQ(parse("<a>" + exact), -1);
}

TEST_F(XmlTest, NamesAndValuesFollowTheDialectsCharacterSets)
{
    ASSERT_EQ(parse("<a1_B b-c=\"d\" 9_x-=\"\" B-=\"e\tf\"/>"), 0);
    node_t* a = &doc.nodes[0];
    EXPECT_STREQ(a->name, "a1_B");
    ASSERT_EQ(a->keys_count, 3);
    EXPECT_STREQ(a->keys[1].name, "9_x-");
    EXPECT_STREQ(a->keys[1].value, "");
    EXPECT_STREQ(a->keys[2].value, "e\tf");
}

TEST_F(XmlTest, KeyLookupIgnoresCaseAndTakesTheFirst)
{
    ASSERT_EQ(parse("<a NAME=\"1\" name=\"2\" other=\"3\"/><b/>"), 0);
    EXPECT_STREQ(xml_node_get_key(&doc.nodes[0], "name"), "1");
    EXPECT_STREQ(xml_node_get_key(&doc.nodes[0], "OTHER"), "3");
    EXPECT_EQ(xml_node_get_key(&doc.nodes[0], "missing"), nullptr);
    EXPECT_EQ(xml_node_get_key(&doc.nodes[1], "name"), nullptr);
}

TEST_F(XmlTest, StorageFollowsTheContentBeyondTheOldCapacities)
{
    std::string many = "<r>";
    for (int i = 0; i < 100000; i++)
        many += "<e i=\"" + std::to_string(i) + "\"/>";
    many += "</r>";
    ASSERT_EQ(parse(many), 0);
    ASSERT_EQ(doc.nodes[0].childs_count, 100000);
    EXPECT_STREQ(doc.nodes[0].childs[99999].keys[0].value, "99999");

    std::string opens, closes;
    for (int i = 0; i < 100000; i++) {
        opens += "<d>";
        closes += "</d>";
    }
    ASSERT_EQ(parse(opens + closes), 0);
    EXPECT_EQ(xml_get_size(&doc), 100000 * 8);

    std::string long_name(600000, 'n');
    ASSERT_EQ(parse("<" + long_name + " v=\"" + std::string(600000, 'v') + "\"/>"), 0);
    EXPECT_EQ(strlen(doc.nodes[0].name), 600000u);
    EXPECT_EQ(strlen(doc.nodes[0].keys[0].value), 600000u);
}

TEST_F(XmlTest, WriterReproducesTheDialectAndItsPredictedSize)
{
    ASSERT_EQ(parse("<?xml version=\"1.0\"?>\n<a k=\"v\" e=\"\">text<b/>lost<c x=\"&amp;\"></c>\n</a><d />"), 0);
    std::string out = written();
    EXPECT_EQ(out, "<a k=\"v\" e=\"\">text<b></b>\n<c x=\"&amp;\"></c>\n</a>\n<d></d>\n");
    EXPECT_EQ(xml_get_size(&doc), (int32_t)out.size());

    // Written output parses back to the same output.
    document_t again;
    ASSERT_EQ(xml_parse(out.c_str(), &again), 0);
    EXPECT_EQ(xml_get_size(&again), (int32_t)out.size());
    xml_free(&again);
}

TEST_F(XmlTest, WriterAndDumpReportTheirWork)
{
    ASSERT_EQ(parse("<a k=\"v\">t<b><c/></b></a>"), 0);
    EXPECT_EQ(xml_write(dir.file("no/such/dir").c_str(), &doc), -1);
    EXPECT_TRUE(logged("xml_write: can not create " + dir.file("no/such/dir") + " file"));
    EXPECT_EQ(xml_dump(&doc), 0);
    std::string text = log();
    size_t at = 0;
    // Each level indents the node's name by two more blanks.
    for (std::string line : {"xml_node_dump: NODE: a", "xml_node_dump: KEY: k=v", "xml_node_dump: DATA: t",
                             "xml_node_dump:   NODE: b", "xml_node_dump:     NODE: c", "xml_dump: finished"}) {
        size_t found = text.find(line + "\n", at);
        ASSERT_NE(found, std::string::npos) << line;
        at = found + line.size();
    }
    // A nameless child counts -1 in its parent's size.
    ASSERT_EQ(parse("<a><b/></a>"), 0);
    doc.nodes[0].childs[0].name = nullptr;
    EXPECT_EQ(xml_get_node_size(&doc.nodes[0]), 2 + 6 - 1);
}

} // namespace
