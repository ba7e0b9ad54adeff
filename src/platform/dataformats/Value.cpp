#include "dataformats/Value.h"

namespace qel::dataformats::data {

// Children are destroyed recursively; the parser bounds the depth of what it builds, so the
// recursion stays shallow for every tree that comes from text.
Array::~Array() = default;

Value* Array::pushNew(std::unique_ptr<Value> element) {
    if (element == nullptr) {
        return nullptr;
    }
    m_elements.push_back(std::move(element));
    return m_elements.back().get();
}

std::unique_ptr<Value> Array::copy() const {
    auto result = std::make_unique<Array>();
    result->m_elements.reserve(m_elements.size());
    for (auto const& element : m_elements) {
        result->m_elements.push_back(element->copy());
    }
    return result;
}

Object::~Object() = default;

Value* Object::setNew(std::string const& name, std::unique_ptr<Value> value) {
    if (value == nullptr) {
        return nullptr;
    }
    auto& slot = m_members[name];
    slot = std::move(value);
    return slot.get();
}

Value const* Object::get(std::string const& name) const {
    auto found = m_members.find(name);
    return found != m_members.end() ? found->second.get() : nullptr;
}

std::unique_ptr<Value> Object::take(std::string const& name) {
    auto found = m_members.find(name);
    if (found == m_members.end()) {
        return nullptr;
    }
    std::unique_ptr<Value> taken = std::move(found->second);
    m_members.erase(found);
    return taken;
}

std::unique_ptr<Value> Object::copy() const {
    auto result = std::make_unique<Object>();
    for (auto const& [name, value] : m_members) {
        // The source is sorted already, so every insertion lands at the end.
        result->m_members.emplace_hint(result->m_members.end(), name, value->copy());
    }
    return result;
}

}  // namespace qel::dataformats::data
