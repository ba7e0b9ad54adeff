// A 32-bit counter shared between threads.
#pragma once

#include <atomic>
#include <cstdint>

namespace qel::common::system {

class AtomicInteger {
public:
    explicit AtomicInteger(std::int32_t value = 0) : m_value(value) {}

    std::int32_t get() const { return m_value.load(); }
    void set(std::int32_t value) { m_value.store(value); }
    // Both return the new value.
    std::int32_t increment() { return ++m_value; }
    std::int32_t decrement() { return --m_value; }

private:
    std::atomic<std::int32_t> m_value;
};

}  // namespace qel::common::system
