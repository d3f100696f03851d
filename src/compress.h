// Gzip output of a buffer, and the small tar reader that unpacks attached
// TGZ archives.
#ifndef KELM_COMPRESS_H
#define KELM_COMPRESS_H

// Writes size bytes of data as the gzip file path; 0 or -1.
int compress_buffer(const char* path, const char* data, int size);

// Unpacks a gzip-compressed ustar archive into directory: regular files
// (type '0') and directories (type '5') are created, every member gets the
// archive's mode and owner. Members of other types must carry no body. The
// padding of a member is taken from the last non-empty file's size, so an
// empty file must not follow a file whose size is not a multiple of 512.
// 0, or -1 when the archive or a file can't be opened.
int decompress_file(const char* archive, const char* directory);

#endif
