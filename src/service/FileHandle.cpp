#include "service/FileHandle.h"

namespace service {

FileHandle::FileHandle(platform::OwnedFd fd)
    : m_fd(std::make_shared<const platform::OwnedFd>(std::move(fd)))
{
}

std::string FileHandle::description() const { return "<NSFileHandle: fd " + std::to_string(fileDescriptor()) + ">"; }

}
