// POSIX back end of the device's file and memory layer.
#include "diag/platform.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

int DulFsOpen(int *fd, const char *path, int /*flags*/, int /*mode*/) {
    // The library only ever reads through this layer, so every open is read-only; the
    // device's flag bits and the creation mode have nothing to say here.
    if (fd == nullptr || path == nullptr) {
        return DUL_FS_ERROR;
    }
    const int handle = open(path, O_RDONLY | O_CLOEXEC);
    if (handle < 0) {
        return DUL_FS_ERROR;
    }
    *fd = handle;
    return DUL_FS_OK;
}

long DulFsSeek(int fd, long offset, int whence) {
    int posix_whence = SEEK_SET;
    if (whence == DUL_FS_SEEK_CUR) {
        posix_whence = SEEK_CUR;
    } else if (whence == DUL_FS_SEEK_END) {
        posix_whence = SEEK_END;
    }
    return static_cast<long>(lseek(fd, static_cast<off_t>(offset), posix_whence));
}

long DulFsRead(int fd, void *buffer, size_t size) {
    // Reads until `size` bytes are in or the file ends, so a short read by the kernel does
    // not look like a short file.
    auto *out = static_cast<unsigned char *>(buffer);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = read(fd, out + done, size - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        done += static_cast<size_t>(n);
    }
    return static_cast<long>(done);
}

int DulFsClose(int fd) {
    return close(fd) == 0 ? DUL_FS_OK : DUL_FS_ERROR;
}

void *DulOsMemAlloc(size_t size) {
    return malloc(size);
}

void DulOsMemRelease(void *pointer) {
    free(pointer);
}
