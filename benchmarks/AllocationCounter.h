// Heap allocations made by this benchmark binary, counted by its replaced global operator new.
//
// Contract: `allocationCount()` is the number of allocations so far on every thread except those
// that called `excludeThisThreadFromCount()` (a test backend's writer, say, whose cost is not the
// client's). Counting is one relaxed atomic increment per allocation.
#pragma once

#include <cstdint>

namespace qel::benchmarks {

std::uint64_t allocationCount();
void excludeThisThreadFromCount();

}  // namespace qel::benchmarks
