#pragma once

// OwnedFd: one file descriptor with a single owner, closed when the owner goes, so that no error path can leak one.
// The IPC runtime moves descriptors between the kernel, frames and values with it; the file manager holds the files
// and folders it has open with it.

namespace platform {

class OwnedFd {
public:
    OwnedFd() = default;
    explicit OwnedFd(int fd) : m_fd(fd) { }
    OwnedFd(OwnedFd&& other) noexcept : m_fd(other.release()) { }
    OwnedFd& operator=(OwnedFd&& other) noexcept;
    OwnedFd(const OwnedFd&) = delete;
    OwnedFd& operator=(const OwnedFd&) = delete;
    ~OwnedFd();

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    // Gives up ownership without closing.
    int release();
    void reset(int fd = -1);

    // A new descriptor for the same open file, closed on exec; empty when the system refuses (EMFILE ...).
    static OwnedFd duplicate(int fd);

private:
    int m_fd = -1;
};

}
