// Dialog builders: line labels and selection properties, sorting, joining,
// and prompts with their rule chains.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "env.h"
#include "log.h"
#include "seq_dialog_lines.h"
#include "testutil.h"
#include "xml.h"

namespace
{

struct LinesTest : ::testing::Test {
    TempDir dir;
    session_t session;
    document_t doc;

    void SetUp() override
    {
        open_test_log(dir.file("lines.log"));
        env_set_string(&session, "CURRENT_DIALOG", "d");
    }
    void TearDown() override
    {
        xml_free(&doc);
        log_disable();
    }
    node_t* parse(const std::string& xml)
    {
        xml_free(&doc);
        EXPECT_EQ(xml_parse(xml.c_str(), &doc), 0);
        EXPECT_GE(doc.nodes_count, 1);
        return &doc.nodes[0];
    }
    // The label make_line builds for the element, or "<failed>".
    std::string label(const std::string& xml, int kind, const char* id = nullptr, int32_t* out_id = nullptr)
    {
        line_t out = {};
        if (make_line(&session, parse(xml), &out, kind, id) != 0)
            return "<failed>";
        std::string text = out.text;
        if (out_id)
            *out_id = out.id;
        free(out.text);
        return text;
    }
    std::string prop(const char* name) { return env_get_string(&session, name); }
};

TEST_F(LinesTest, ListLabelsShowNumberTextAndDefault)
{
    EXPECT_EQ(label(R"(<line id="02" text="Install"/>)", LINE_KIND_LIST), "2. Install");
    EXPECT_EQ(label(R"(<line id="2" text="Install" default="false"/>)", LINE_KIND_LIST), "2. Install");
    EXPECT_EQ(label(R"(<line id="2" index="a" text="Install"/>)", LINE_KIND_LIST), "a. Install");
    env_set_string(&session, "WORD", "always");
    EXPECT_EQ(label(R"(<line id="2" text="Install" default="${WORD}"/>)", LINE_KIND_LIST), "2. Install [always]");
    int32_t id = 0;
    EXPECT_EQ(label(R"(<line id="2" text="Install"/>)", LINE_KIND_LIST, "7", &id), "7. Install");
    EXPECT_EQ(id, 7);
    EXPECT_EQ(label(R"(<line/>)", LINE_KIND_LIST, nullptr, &id), "0. ");
}

TEST_F(LinesTest, CheckboxDefaultsApplyOnlyOnTheFirstShowing)
{
    // Any default, "false" included, checks the line the first time.
    EXPECT_EQ(label(R"(<line id="2" text="Docs" default="false"/>)", LINE_KIND_CHECKBOX), "2. [x] Docs");
    EXPECT_EQ(label(R"(<line id="4" text="Tools"/>)", LINE_KIND_CHECKBOX), "4. [ ] Tools");
    EXPECT_EQ(prop("d_cb"), "2");
    EXPECT_EQ(prop("d_cb_list"), ";2;4");

    env_set_string(&session, "d_showed", "yes");
    env_set_string(&session, "d_cb", ";4");
    EXPECT_EQ(label(R"(<line id="2" text="Docs" default="yes"/>)", LINE_KIND_CHECKBOX), "2. [ ] Docs");
    EXPECT_EQ(label(R"(<line id="4" text="Tools"/>)", LINE_KIND_CHECKBOX), "4. [x] Tools");
    // The index is what the checked list is searched for; the list of lines
    // records the id.
    env_set_string(&session, "d_cb", ";a");
    env_set_string(&session, "d_cb_list", "");
    EXPECT_EQ(label(R"(<line id="9" index="a" text="Extra"/>)", LINE_KIND_CHECKBOX), "a. [x] Extra");
    EXPECT_EQ(prop("d_cb_list"), ";9");
    EXPECT_EQ(prop("d_cb"), ";a");
}

TEST_F(LinesTest, RadioSelectionIsExactAndFirstDefaultWins)
{
    EXPECT_EQ(label(R"(<line id="1" text="Accept"/>)", LINE_KIND_RADIOBUTTON), "1. ( ) Accept");
    EXPECT_EQ(label(R"(<line id="2" text="Decline" default="x"/>)", LINE_KIND_RADIOBUTTON), "2. (*) Decline");
    EXPECT_EQ(label(R"(<line id="3" text="Later" default="x"/>)", LINE_KIND_RADIOBUTTON), "3. ( ) Later");
    EXPECT_EQ(prop("d_rb"), "2");
    EXPECT_EQ(prop("d_rb_list"), ";1;2;3");
    env_set_string(&session, "d_rb", "12");
    EXPECT_EQ(label(R"(<line id="1" text="Accept"/>)", LINE_KIND_RADIOBUTTON), "1. ( ) Accept");
    EXPECT_EQ(label(R"(<line id="12" text="Twelve"/>)", LINE_KIND_RADIOBUTTON), "12. (*) Twelve");
}

TEST_F(LinesTest, ListsSortAscendingAndKeepDocumentOrderOnTies)
{
    list_t* lines = new_list();
    ASSERT_NE(lines, nullptr);
    add_line(&lines, 3, "c");
    add_line(&lines, 1, "a");
    add_line(&lines, 2, "first two");
    add_line(&lines, 2, "second two");
    ASSERT_EQ(sort_list(&lines), 0);
    char* text = make_list(lines);
    EXPECT_STREQ(text, "a\nfirst two\nsecond two\nc\n");
    free(text);
    free_list(lines);
}

TEST_F(LinesTest, JoinedTextsStayWithinTheirBuffer)
{
    std::string long_text(3000, 'x');
    list_t* lines = new_list();
    for (int i = 0; i < 3; i++)
        add_line(&lines, i, long_text.c_str());
    char* text = make_list(lines);
    EXPECT_EQ(strlen(text), (size_t)DIALOG_TEXT_MAX - 1);
    free(text);
    free_list(lines);
}

TEST_F(LinesTest, PromptsShowChoicesAndDefault)
{
    input_t input;
    const char* xml =
        R"(<input text="Continue" keep="GO" default="yes"><choice text="yes"/><choice text="no"/></input>)";
    ASSERT_EQ(make_input(parse(xml), &input, nullptr), 0);
    EXPECT_STREQ(input.text, "Continue (yes/no) [yes]: ");
    EXPECT_STREQ(input.keep, "GO");
    free_input(&input);

    // A default handed in wins over the attribute, the empty one included.
    ASSERT_EQ(make_input(parse(xml), &input, ""), 0);
    EXPECT_STREQ(input.text, "Continue (yes/no): ");
    free_input(&input);

    // Missing text, keep and choice text are left out.
    ASSERT_EQ(make_input(parse(R"(<input><choice/><choice text="a"/></input>)"), &input, nullptr), 0);
    EXPECT_STREQ(input.text, " (a): ");
    EXPECT_STREQ(input.keep, "");
    free_input(&input);
}

TEST_F(LinesTest, RulesChainLastFirstWithPrivateCopies)
{
    input_t input;
    const char* xml = R"(<input text="x" keep="k">)"
                      R"(<validation type="list" list="a;b" err="first"/>)"
                      R"(<validation type="pattern" pattern="^z" invert="true" refresh="yes" check="c"/>)"
                      R"(</input>)";
    ASSERT_EQ(make_input(parse(xml), &input, nullptr), 0);
    xml_free(&doc); // the rules must not point into the document
    validation_t* rule = &input.validation;
    EXPECT_STREQ(rule->pattern, "^z");
    EXPECT_STREQ(rule->invert, "true");
    EXPECT_STREQ(rule->err, "");
    rule = rule->next;
    ASSERT_NE(rule, nullptr);
    EXPECT_STREQ(rule->list, "a;b");
    EXPECT_STREQ(rule->invert, "false");
    rule = rule->next;
    ASSERT_NE(rule, nullptr);
    EXPECT_EQ(rule->type, nullptr);
    EXPECT_EQ(rule->next, nullptr);
    free_input(&input);
}

} // namespace
