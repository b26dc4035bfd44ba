#pragma once

// FileHandle: the framework's file handle as IPC messages carry it, an open descriptor that is closed when the last
// copy of the handle goes. Copies share the descriptor, as references to one handle object would.

#include "platform/OwnedFd.h"

#include <memory>
#include <string>

namespace service {

class FileHandle {
public:
    // Takes ownership of `fd`.
    explicit FileHandle(platform::OwnedFd fd);

    int fileDescriptor() const { return m_fd->get(); }
    // "<NSFileHandle: fd N>", as "%@" prints the handle.
    std::string description() const;

    // Two handles are equal when they are copies of one handle.
    bool operator==(const FileHandle& other) const { return m_fd == other.m_fd; }

private:
    std::shared_ptr<const platform::OwnedFd> m_fd;
};

}
