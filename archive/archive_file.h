// The few file operations the archive readers need, shaped like the Windows
// calls they stand in for (CreateFileA for reading or CREATE_ALWAYS writing,
// GetFileSize, SetFilePointer, ReadFile, WriteFile) over POSIX descriptors.
//
// Reads and writes loop over short transfers and EINTR, so a "short read"
// means the end of the file or an error, as ReadFile reports it. Not here:
// sharing modes (POSIX has none) and anything beyond plain files.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ncb::archive {

// Descriptor for reading, or -1 (also for a folder).
int OpenForRead(const char* path);
// Creates or truncates a file for writing (mode 0666 less the umask), or -1.
int CreateAlways(const char* path);
void CloseFile(int fd);
// File size, or -1 when it cannot be read.
int64_t FileSize(int fd);
bool SeekTo(int fd, uint64_t position);
// Bytes read (fewer than `count` only at the end of the file), or -1.
int64_t ReadUpTo(int fd, void* buffer, size_t count);
bool ReadExact(int fd, void* buffer, size_t count);
bool WriteAll(int fd, const void* buffer, size_t count);

// Owns a descriptor; closes it on destruction.
class FileHandle {
  public:
    explicit FileHandle(int fd = -1) : fd_(fd) {}
    ~FileHandle() { CloseFile(fd_); }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    int Get() const { return fd_; }
    bool IsOpen() const { return fd_ >= 0; }
    // Closes the descriptor held and takes `fd` instead.
    void Reset(int fd) {
        if (fd != fd_) CloseFile(fd_);
        fd_ = fd;
    }

  private:
    int fd_;
};

}  // namespace ncb::archive
