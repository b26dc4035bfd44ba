#include "rest/OperationQueue.h"

#include <algorithm>

namespace rest {

OperationQueue::OperationQueue(std::string label)
    : m_serial(platform::Queue::makeSerial(std::move(label)))
{
}

void OperationQueue::async(platform::Task task)
{
    auto operation = std::make_shared<Operation>();
    {
        std::lock_guard lock(m_mutex);
        m_operations.push_back(operation);
    }
    m_serial->async([self = shared_from_this(), operation, task = std::move(task)] {
        // The operation leaves the list however it ends, an escaping exception included.
        struct Unlist {
            OperationQueue& queue;
            const Operation& operation;
            ~Unlist() { queue.finished(operation); }
        } unlist { *self, *operation };
        if (!operation->isCancelled())
            task();
    });
}

void OperationQueue::after(std::chrono::nanoseconds delay, platform::Task task)
{
    m_serial->after(
        delay, [self = shared_from_this(), task = std::move(task)]() mutable { self->async(std::move(task)); });
}

void OperationQueue::sync(platform::Task task)
{
    m_serial->sync(std::move(task));
}

bool OperationQueue::isCurrent() const
{
    return m_serial->isCurrent();
}

const std::string& OperationQueue::label() const
{
    return m_serial->label();
}

std::vector<std::shared_ptr<Operation>> OperationQueue::operations() const
{
    std::lock_guard lock(m_mutex);
    return m_operations;
}

void OperationQueue::finished(const Operation& operation)
{
    std::lock_guard lock(m_mutex);
    std::erase_if(m_operations, [&](const auto& listed) { return listed.get() == &operation; });
}

}
