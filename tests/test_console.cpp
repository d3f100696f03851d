// Wrapping of console text: blanks, newlines, long words, and UTF-8
// characters of every length, at chosen widths.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "console.h"

static std::string wrap(const std::string& text, int width)
{
    char* buffer = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&buffer, &size);
    EXPECT_EQ(0, console_wrap(out, text.data(), text.size(), width));
    fclose(out);
    std::string result(buffer, size);
    free(buffer);
    return result;
}

static std::string repeat(const std::string& piece, int n)
{
    std::string out;
    for (int k = 0; k < n; k++)
        out += piece;
    return out;
}

// Columns as the console counts them: two-byte characters one, three-byte
// ones two, four-byte ones one.
static int columns_of(const std::string& line)
{
    int columns = 0;
    for (unsigned char c : line) {
        if (c >= 0x80 && c <= 0xBF)
            continue;
        columns += (c >= 0xE0 && c <= 0xEF) ? 2 : 1;
    }
    return columns;
}

static bool valid_utf8(const std::string& line)
{
    for (size_t k = 0; k < line.size();) {
        unsigned char c = line[k];
        size_t n = c < 0x80 ? 0 : c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : 99;
        if (n == 99 || k + n >= line.size() + (n ? 0 : 1))
            return false;
        for (size_t m = 1; m <= n; m++)
            if (((unsigned char)line[k + m] & 0xC0) != 0x80)
                return false;
        k += n + 1;
    }
    return true;
}

TEST(ConsoleWrap, BreaksAtBlanks)
{
    EXPECT_EQ("aaa bbb\nccc", wrap("aaa bbb ccc", 10));
    // A text of exactly the width followed by a blank stays on one line and
    // the blank is dropped; so is a newline right after a full line.
    EXPECT_EQ(repeat("x", 80) + "\nnext", wrap(repeat("x", 80) + " next", 80));
    EXPECT_EQ("123456789 \nnext", wrap("123456789 next", 10));
    EXPECT_EQ("0123456789\nz", wrap("0123456789\nz", 10));
    // Newlines end lines early and start the count again.
    EXPECT_EQ("ab\ncd ef \ngh", wrap("ab\ncd ef gh", 6));
    // A blank at the very start of a line is no place to break.
    EXPECT_EQ("a\n bbbbbbbbb\nb", wrap("a\n bbbbbbbbbb", 10));
    // Long words are cut at the width.
    EXPECT_EQ("see\nabcdefghij\nklm", wrap("see abcdefghijklm", 10));
    // A prompt keeps the cursor behind its text.
    EXPECT_EQ("Continue (yes/no) [yes]: ", wrap("Continue (yes/no) [yes]: ", 80));
    EXPECT_EQ("\n\n", wrap("\n\n", 80));
}

TEST(ConsoleWrap, MultiByteCharactersCountTheirColumns)
{
    const std::string cjk = "\xe5\xae\x89"; // two columns
    const std::string e_acute = "\xc3\xa9"; // one column
    // 40 CJK characters fill an 80-column line, which is then ended; the
    // 41st goes below.
    EXPECT_EQ(repeat(cjk, 40) + "\n" + cjk, wrap(repeat(cjk, 41), 80));
    EXPECT_EQ(repeat(e_acute, 10) + "\n" + e_acute, wrap(repeat(e_acute, 11), 10));
    // A wide character that would pass the edge moves down with its word,
    // or alone when its word fills the line.
    EXPECT_EQ("aa\nbbbbbb" + cjk, wrap("aa bbbbbb" + cjk, 10));
    // Four-byte characters count one column.
    const std::string emoji = "\xf0\x9f\x98\x80";
    EXPECT_EQ(repeat(emoji, 10) + "\n" + emoji, wrap(repeat(emoji, 11), 10));
}

TEST(ConsoleWrap, MalformedBytesPassThroughWithoutSwallowingText)
{
    // A lead byte without its continuation bytes does not eat the newline
    // that follows, and stray continuation bytes count as one column each.
    EXPECT_EQ("\xc3\nab", wrap("\xc3\nab", 10));
    EXPECT_EQ("\x80\x80\x80\x80\x80\n\x80", wrap("\x80\x80\x80\x80\x80\x80", 5));
    EXPECT_EQ("ab\xe5", wrap("ab\xe5", 10));
}

// Random texts of words in all character lengths: no line passes the width,
// no character is split, and nothing but the break blanks is lost.
TEST(ConsoleWrap, RandomTextsNeverOverflowOrSplitCharacters)
{
    const std::vector<std::string> pieces = {
        "a", "Z", "\xc3\xa9", "\xc3\xbc", "\xe5\xae\x89", "\xe8\xa3\x85", "\xf0\x9f\x98\x80", " ", " ", "\n"};
    std::mt19937 random(7);
    for (int round = 0; round < 2000; round++) {
        int width = 10 + (int)(random() % 71);
        std::string text;
        int count = (int)(random() % 200);
        for (int k = 0; k < count; k++)
            text += pieces[random() % pieces.size()];
        std::string out = wrap(text, width);

        size_t start = 0;
        while (start <= out.size()) {
            size_t end = out.find('\n', start);
            std::string line = out.substr(start, end == std::string::npos ? std::string::npos : end - start);
            ASSERT_LE(columns_of(line), width) << "text [" << text << "] width " << width;
            ASSERT_TRUE(valid_utf8(line)) << "text [" << text << "] width " << width;
            if (end == std::string::npos)
                break;
            start = end + 1;
        }
        // Removing all blanks and newlines from both sides leaves the same
        // characters in the same order.
        auto squeeze = [](std::string s) {
            std::string r;
            for (char c : s)
                if (c != ' ' && c != '\n')
                    r += c;
            return r;
        };
        ASSERT_EQ(squeeze(text), squeeze(out));
    }
}

TEST(ConsoleText, PaddingAndConcat)
{
    char* padding = make_padding(3);
    EXPECT_STREQ("   ", padding);
    free(padding);
    padding = make_padding(-5);
    EXPECT_STREQ("", padding);
    free(padding);

    int capacity = 8;
    char* text = (char*)malloc(capacity);
    strcpy(text, "abc");
    char tail[] = "defg";
    text = concat(text, tail, &capacity); // joint length + 1 == capacity
    EXPECT_STREQ("abcdefg", text);
    EXPECT_EQ(8, capacity);
    free(text);
}
