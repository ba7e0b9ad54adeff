// A value built on first use and never destroyed.
//
// Contract: for process-wide state that threads may still touch while the process exits (the
// log sinks, the time source). The destructor is trivial, so no exit handler is registered and
// the value stays usable until the very end; what it owns is released by the operating system.
#pragma once

#include <new>
#include <utility>

namespace qel::common::system {

template <typename T>
class NoDestructor {
public:
    template <typename... Args>
    explicit NoDestructor(Args&&... args) {
        new (m_storage) T(std::forward<Args>(args)...);
    }
    NoDestructor(NoDestructor const&) = delete;
    NoDestructor& operator=(NoDestructor const&) = delete;

    T& get() { return *std::launder(reinterpret_cast<T*>(m_storage)); }
    T* operator->() { return &get(); }

private:
    alignas(T) unsigned char m_storage[sizeof(T)];
};

}  // namespace qel::common::system
