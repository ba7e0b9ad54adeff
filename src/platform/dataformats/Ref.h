// A cheap, read-only, null-tolerant handle on a `Value`.
//
// Contract: no operation throws. A member or element that does not exist gives a null `Ref`, so
// `ref("a")("b")[0].asString()` is always safe. A conversion of the wrong kind gives the empty
// value of the asked type ("", false, 0). A `Ref` does not own its value: keep the tree alive.
#pragma once

#include "dataformats/Value.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qel::dataformats::data {

class Ref {
public:
    Ref() = default;
    Ref(Value const* value) : m_value(value) {}  // NOLINT(google-explicit-constructor): a handle
    Ref(Value const& value) : m_value(&value) {}  // NOLINT(google-explicit-constructor)

    Value const* get() const { return m_value; }
    bool isNull() const;  // no value, or a JSON null
    Value::Kind kind() const { return m_value != nullptr ? m_value->kind() : Value::Kind::Null; }

    Ref operator()(char const* name) const;
    Ref operator()(std::string const& name) const;
    Ref operator[](unsigned long index) const;

    unsigned long getArraySize() const;  // 0 for anything but an array
    bool hasObjectKey(char const* name) const;
    bool hasObjectKey(std::string const& name) const { return hasObjectKey(name.c_str()); }
    // Appends the member names of an object in their stored (sorted) order.
    void getObjectKeys(std::vector<std::string>& keys) const;

    std::string asString() const;    // strings and blobs
    bool asBoolean() const;          // booleans
    std::int64_t asInteger() const;  // integers (floats are not truncated: they give 0)
    double asFloat() const;          // floats and integers

private:
    Value const* m_value = nullptr;
};

}  // namespace qel::dataformats::data
