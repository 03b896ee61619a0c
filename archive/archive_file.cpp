// POSIX implementations of the archive readers' file operations.
#include "archive/archive_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ncb::archive {

int OpenForRead(const char* path) {
    if (!path) return -1;
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (fd >= 0 && (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode))) {
        ::close(fd);  // like CreateFileA, a folder is not a file to read
        return -1;
    }
    return fd;
}

int CreateAlways(const char* path) {
    if (!path) return -1;
    return ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

void CloseFile(int fd) {
    if (fd >= 0) ::close(fd);
}

int64_t FileSize(int fd) {
    struct stat st;
    if (fd < 0 || ::fstat(fd, &st) != 0) return -1;
    return static_cast<int64_t>(st.st_size);
}

bool SeekTo(int fd, uint64_t position) {
    if (fd < 0 || position > static_cast<uint64_t>(INT64_MAX)) return false;
    return ::lseek(fd, static_cast<off_t>(position), SEEK_SET) >= 0;
}

int64_t ReadUpTo(int fd, void* buffer, size_t count) {
    auto* p = static_cast<unsigned char*>(buffer);
    size_t done = 0;
    while (done < count) {
        ssize_t n = ::read(fd, p + done, count - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<int64_t>(done);
}

bool ReadExact(int fd, void* buffer, size_t count) {
    return ReadUpTo(fd, buffer, count) == static_cast<int64_t>(count);
}

bool WriteAll(int fd, const void* buffer, size_t count) {
    const auto* p = static_cast<const unsigned char*>(buffer);
    size_t done = 0;
    while (done < count) {
        ssize_t n = ::write(fd, p + done, count - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace ncb::archive
