// The device's file and memory layer, as the library imports it by name. On this build it
// sits on POSIX open/lseek/read/close and malloc/free. Only the message-level reader uses it.
#pragma once

#include <cstddef>

enum : int { DUL_FS_OK = 0, DUL_FS_ERROR = -1 };

// The flags value the message-level reader passes; on this layer it means "open to read".
constexpr int kDulFsOpenRead = 0x10001;
constexpr int kDulFsModeDefault = 0644;

enum : int { DUL_FS_SEEK_SET = 0, DUL_FS_SEEK_CUR = 1, DUL_FS_SEEK_END = 2 };

// Opens `path` for reading and stores the descriptor in *fd. DUL_FS_OK on success.
int DulFsOpen(int *fd, const char *path, int flags, int mode);
// The new position, or a negative value on failure.
long DulFsSeek(int fd, long offset, int whence);
// The number of bytes read (0 at the end or on failure).
long DulFsRead(int fd, void *buffer, size_t size);
int DulFsClose(int fd);

void *DulOsMemAlloc(size_t size);
void DulOsMemRelease(void *pointer);
