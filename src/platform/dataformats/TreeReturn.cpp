#include "dataformats/TreeReturn.h"

namespace qel::dataformats::data {

std::shared_ptr<Value const> TreeReturn::share(std::unique_ptr<Value> tree) {
    if (tree == nullptr) {
        return nullptr;
    }
    return std::shared_ptr<Value const>(tree.release(),
                                        [self = shared_from_this()](Value const* last) { self->takeBack(last); });
}

void TreeReturn::takeBack(Value const* tree) {
    std::unique_ptr<Value const> owned(tree);
    try {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_returned.push_back(std::move(owned));
    } catch (...) {
        // No room to keep it: freed here after all, as without this class.
    }
}

std::size_t TreeReturn::returnedCount() {
    std::lock_guard<std::mutex> const lock(m_mutex);
    return m_returned.size();
}

void TreeReturn::freeReturned() {
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        if (m_returned.empty()) {
            return;
        }
        m_freeing.swap(m_returned);
    }
    m_freeing.clear();  // outside the lock; both vectors keep their capacity
}

}  // namespace qel::dataformats::data
