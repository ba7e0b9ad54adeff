#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> g_allocations{0};
thread_local bool t_excluded = false;

void* allocate(std::size_t size) {
    if (!t_excluded) {
        g_allocations.fetch_add(1, std::memory_order_relaxed);
    }
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

namespace qel::benchmarks {

std::uint64_t allocationCount() {
    return g_allocations.load(std::memory_order_relaxed);
}

void excludeThisThreadFromCount() {
    t_excluded = true;
}

}  // namespace qel::benchmarks

// The aligned and nothrow forms are left to the library; the framework's path uses these two.
void* operator new(std::size_t size) {
    return allocate(size);
}

void* operator new[](std::size_t size) {
    return allocate(size);
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
