#include "platform/OwnedFd.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace platform {

OwnedFd& OwnedFd::operator=(OwnedFd&& other) noexcept
{
    if (this != &other)
        reset(other.release());
    return *this;
}

OwnedFd::~OwnedFd() { reset(); }

int OwnedFd::release() { return std::exchange(m_fd, -1); }

void OwnedFd::reset(int fd)
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = fd;
}

OwnedFd OwnedFd::duplicate(int fd)
{
    if (fd < 0)
        return {};
    return OwnedFd(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
}

}
