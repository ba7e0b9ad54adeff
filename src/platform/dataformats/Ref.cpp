#include "dataformats/Ref.h"

namespace qel::dataformats::data {
namespace {

// Typed view of the node when it has kind `K`; null otherwise (including for a null node).
template <typename T, Value::Kind K>
T const* as(Value const* value) {
    return value != nullptr && value->kind() == K ? static_cast<T const*>(value) : nullptr;
}

Object const* asObject(Value const* value) { return as<Object, Value::Kind::Object>(value); }
Array const* asArray(Value const* value) { return as<Array, Value::Kind::Array>(value); }

}  // namespace

bool Ref::isNull() const { return m_value == nullptr || m_value->kind() == Value::Kind::Null; }

Ref Ref::operator()(char const* name) const {
    auto const* object = asObject(m_value);
    if (object == nullptr || name == nullptr) {
        return {};
    }
    return object->get(name);
}

Ref Ref::operator()(std::string const& name) const {
    auto const* object = asObject(m_value);
    return object != nullptr ? Ref(object->get(name)) : Ref();
}

Ref Ref::operator[](unsigned long index) const {
    auto const* array = asArray(m_value);
    if (array == nullptr || index >= array->elements().size()) {
        return {};
    }
    return array->elements()[index].get();
}

unsigned long Ref::getArraySize() const {
    auto const* array = asArray(m_value);
    return array != nullptr ? array->elements().size() : 0;
}

bool Ref::hasObjectKey(char const* name) const {
    auto const* object = asObject(m_value);
    return object != nullptr && name != nullptr && object->get(name) != nullptr;
}

void Ref::getObjectKeys(std::vector<std::string>& keys) const {
    auto const* object = asObject(m_value);
    if (object == nullptr) {
        return;
    }
    keys.reserve(keys.size() + object->members().size());
    for (auto const& member : object->members()) {
        keys.push_back(member.first);
    }
}

std::string Ref::asString() const {
    if (auto const* string = as<String, Value::Kind::String>(m_value)) {
        return string->get();
    }
    if (auto const* blob = as<Blob, Value::Kind::Blob>(m_value)) {
        return blob->get();
    }
    return {};
}

bool Ref::asBoolean() const {
    auto const* boolean = as<Boolean, Value::Kind::Boolean>(m_value);
    return boolean != nullptr && boolean->get();
}

std::int64_t Ref::asInteger() const {
    auto const* integer = as<Integer, Value::Kind::Integer>(m_value);
    return integer != nullptr ? integer->get() : 0;
}

double Ref::asFloat() const {
    if (auto const* number = as<Float, Value::Kind::Float>(m_value)) {
        return number->get();
    }
    if (auto const* integer = as<Integer, Value::Kind::Integer>(m_value)) {
        return static_cast<double>(integer->get());
    }
    return 0.0;
}

}  // namespace qel::dataformats::data
