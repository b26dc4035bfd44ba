#pragma once

// CopyOnWrite<T>: a T shared between copies until one of them is changed.
//
// Copies share one reference-counted box. mutate() gives a writable T, first copying the box when anyone else
// still holds it. The uniqueness test is an acquire load that pairs with the release in every other holder's
// drop, so a copy handed to another thread, read there and dropped, cannot race with the owner's next change
// (std::shared_ptr::use_count() is a relaxed load and gives no such ordering).
//
// A moved-from CopyOnWrite holds nothing and reads as an empty T, so a moved-from value is still a valid one.

#include <atomic>
#include <cstddef>
#include <utility>

namespace platform {

template<typename T>
class CopyOnWrite {
public:
    CopyOnWrite() = default;
    explicit CopyOnWrite(T value) : m_box(new Box { { 1 }, std::move(value) }) { }
    CopyOnWrite(const CopyOnWrite& other) noexcept : m_box(other.m_box)
    {
        if (m_box)
            m_box->references.fetch_add(1, std::memory_order_relaxed);
    }
    CopyOnWrite(CopyOnWrite&& other) noexcept : m_box(std::exchange(other.m_box, nullptr)) { }
    CopyOnWrite& operator=(CopyOnWrite other) noexcept
    {
        std::swap(m_box, other.m_box);
        return *this;
    }
    ~CopyOnWrite() { release(); }

    const T& get() const { return m_box ? m_box->value : empty(); }

    T& mutate()
    {
        if (!m_box) {
            m_box = new Box { { 1 }, T {} };
        } else if (m_box->references.load(std::memory_order_acquire) != 1) {
            Box* copy = new Box { { 1 }, m_box->value };
            release();
            m_box = copy;
        }
        return m_box->value;
    }

    // True when both share one box (or both hold nothing): their contents are then equal without looking.
    bool sharesWith(const CopyOnWrite& other) const { return m_box == other.m_box; }

private:
    struct Box {
        std::atomic<std::size_t> references;
        T value;
    };

    static const T& empty()
    {
        static const T instance {};
        return instance;
    }

    void release() noexcept
    {
        if (m_box && m_box->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete m_box;
        m_box = nullptr;
    }

    Box* m_box = nullptr;
};

}
