// Gzip output and the tar reader: what tar and gzip make unpacks the same,
// with the reader's padding quirk and its limits kept.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <string>

#include "compress.h"
#include "log.h"
#include "testutil.h"
#include "utils.h"

namespace
{

struct CompressTest : ::testing::Test {
    TempDir dir;
    void SetUp() override { open_test_log(dir.file("test.log")); }
    void TearDown() override { log_disable(); }
    bool logged(const std::string& text) { return read_text(dir.file("test.log")).find(text) != std::string::npos; }
};

// A ustar header for one member, with its checksum.
std::string tar_header(const std::string& name, size_t size, char type, const char* mode = "0000644")
{
    std::string header(512, '\0');
    memcpy(&header[0], name.data(), name.size());
    memcpy(&header[100], mode, 7);
    memcpy(&header[108], "0000000", 7);
    memcpy(&header[116], "0000000", 7);
    char size_text[12];
    snprintf(size_text, sizeof size_text, "%011zo", size);
    memcpy(&header[124], size_text, 11);
    memcpy(&header[136], "00000000000", 11);
    header[156] = type;
    memcpy(&header[257], "ustar", 6);
    memcpy(&header[263], "00", 2);
    memset(&header[148], ' ', 8);
    unsigned sum = 0;
    for (unsigned char c : header)
        sum += c;
    char sum_text[8];
    snprintf(sum_text, sizeof sum_text, "%06o", sum);
    memcpy(&header[148], sum_text, 7);
    return header;
}

std::string padded(const std::string& body)
{
    return body + std::string((512 - body.size() % 512) % 512, '\0');
}

TEST_F(CompressTest, CompressedBufferIsPlainGzip)
{
    std::string data = "hello, gzip\n";
    ASSERT_EQ(compress_buffer(dir.file("a.gz").c_str(), data.data(), (int)data.size()), 0);
    EXPECT_EQ(run_command("gzip -dc " + dir.file("a.gz")), data);
    EXPECT_EQ(compress_buffer(dir.file("b.gz").c_str(), "x", -1), -1);
    EXPECT_TRUE(logged("ERROR: : compress_buffer: invalid parameters\n"));
    write_text(dir.file("plain"), "");
    EXPECT_EQ(compress_buffer(dir.file("plain/c.gz").c_str(), "x", 1), -1);
}

TEST_F(CompressTest, TarArchiveUnpacksWithModesAndDirectories)
{
    mkdir(dir.file("src").c_str(), 0755);
    mkdir(dir.file("src/sub").c_str(), 0750);
    write_text(dir.file("src/sub/odd"), std::string(1000, 'o'));
    write_text(dir.file("src/exact"), std::string(1048576, 'e'));        // exactly one block, no padding
    write_text(dir.file("src/bigger"), std::string(1048576 + 700, 'b')); // a block and a remainder
    chmod(dir.file("src/sub/odd").c_str(), 0741);
    int status;
    run_command("tar --format=ustar -C " + dir.file("src") + " -czf " + dir.file("a.tgz") + " sub sub/odd exact bigger",
                &status);
    ASSERT_EQ(status, 0);
    mkdir(dir.file("out").c_str(), 0755);
    ASSERT_EQ(decompress_file(dir.file("a.tgz").c_str(), dir.file("out").c_str()), 0);
    EXPECT_EQ(read_text(dir.file("out/sub/odd")), std::string(1000, 'o'));
    EXPECT_EQ(read_text(dir.file("out/exact")), std::string(1048576, 'e'));
    EXPECT_EQ(read_text(dir.file("out/bigger")), std::string(1048576 + 700, 'b'));
    struct stat st;
    ASSERT_EQ(stat(dir.file("out/sub/odd").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0741u);
    ASSERT_EQ(stat(dir.file("out/sub").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0750u);
    EXPECT_TRUE(logged("decompress_file: extracting " + dir.file("out") + "/sub/, type 5\n"));
}

TEST_F(CompressTest, EmptyFileAfterAnUnevenOneDropsThatPadding)
{
    // "odd" has 100 bytes, so 412 bytes of padding follow it. The empty file
    // behind it drops 412 more bytes: here the first 412 of the next header,
    // so the member after it is read from the middle of its record.
    std::string next = padded("NEXTBODY");
    std::string tar = tar_header("odd", 100, '0') + padded(std::string(100, 'x')) + tar_header("empty", 0, '0') +
                      tar_header("next", 8, '0') + next + std::string(1024, '\0');
    std::string gz = dir.file("quirk.tar");
    write_text(gz, tar);
    int status;
    run_command("gzip -n " + gz, &status);
    ASSERT_EQ(status, 0);
    mkdir(dir.file("out").c_str(), 0755);
    ASSERT_EQ(decompress_file((gz + ".gz").c_str(), dir.file("out").c_str()), 0);
    EXPECT_EQ(read_text(dir.file("out/odd")), std::string(100, 'x'));
    EXPECT_TRUE(is_file(dir.file("out/empty").c_str()));
    EXPECT_FALSE(exists(dir.file("out/next").c_str()));

    // Without the odd file before it the same empty file is harmless.
    std::string clean = tar_header("empty", 0, '0') + tar_header("next", 8, '0') + next + std::string(1024, '\0');
    write_text(dir.file("clean.tar"), clean);
    run_command("gzip -n " + dir.file("clean.tar"), &status);
    ASSERT_EQ(decompress_file(dir.file("clean.tar.gz").c_str(), dir.file("out").c_str()), 0);
    EXPECT_EQ(read_text(dir.file("out/next")), "NEXTBODY");
}

TEST_F(CompressTest, OtherMemberTypesCreateNothingAndTruncationKeepsWhatCame)
{
    std::string tar =
        tar_header("link", 0, '2') + tar_header("old", 0, '\0') + tar_header("f", 2000, '0') + std::string(700, 'y');
    write_text(dir.file("t.tar"), tar);
    int status;
    run_command("gzip -n " + dir.file("t.tar"), &status);
    ASSERT_EQ(status, 0);
    mkdir(dir.file("out").c_str(), 0755);
    ASSERT_EQ(decompress_file(dir.file("t.tar.gz").c_str(), dir.file("out").c_str()), 0);
    EXPECT_FALSE(exists(dir.file("out/link").c_str()));
    EXPECT_TRUE(logged("/old, type -48\n"));
    EXPECT_EQ(read_text(dir.file("out/f")), std::string(700, 'y'));
}

TEST_F(CompressTest, MissingArchiveOrDirectoryFails)
{
    EXPECT_EQ(decompress_file(dir.file("missing.tgz").c_str(), dir.path.c_str()), -1);
    write_text(dir.file("one.tar"), tar_header("f", 1, '0') + padded("z"));
    int status;
    run_command("gzip -n " + dir.file("one.tar"), &status);
    EXPECT_EQ(decompress_file(dir.file("one.tar.gz").c_str(), dir.file("no/such/dir").c_str()), -1);
    EXPECT_TRUE(logged("ERROR: : decompress_file: can not open file\n"));
}

} // namespace
