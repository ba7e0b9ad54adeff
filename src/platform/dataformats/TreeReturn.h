// Frees shared trees on the thread that built them.
//
// Why: a tree built on one thread and released by another is freed into the builder's heap
// arena, under the allocator's lock, while the builder allocates the next tree under the same
// lock; a reading thread that keeps up ends up waiting on that lock for its frees. A tree shared
// through `share` instead goes back here when its last reader lets go, and the builder frees it
// at its next `freeReturned()`, in one go.
//
// Contract: `share` and `freeReturned` are called by the building thread only; the shared tree's
// last owner may be any thread. A tree waits here at most until the next `freeReturned()`;
// whatever is left when the last reference to this object goes is freed then.
#pragma once

#include "dataformats/Value.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace qel::dataformats::data {

class TreeReturn : public std::enable_shared_from_this<TreeReturn> {
public:
    TreeReturn() = default;
    TreeReturn(TreeReturn const&) = delete;
    TreeReturn& operator=(TreeReturn const&) = delete;

    // Shares `tree` read-only; null for a null tree. Call on an object owned by a shared_ptr.
    std::shared_ptr<Value const> share(std::unique_ptr<Value> tree);
    // Frees the trees whose readers have all let go since the last call.
    void freeReturned();
    // Trees back from their readers and not yet freed.
    std::size_t returnedCount();

private:
    void takeBack(Value const* tree);

    std::mutex m_mutex;
    std::vector<std::unique_ptr<Value const>> m_returned;  // guarded by m_mutex
    std::vector<std::unique_ptr<Value const>> m_freeing;   // the building thread's only
};

}  // namespace qel::dataformats::data
