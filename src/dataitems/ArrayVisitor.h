// Collects an array of strings from a data value into a vector.
//
// Contract: let an array value visit a fresh visitor, then take `getVector()`. Each element is
// read as a string, so an element of another kind gives an empty string in its place. Any value
// that is not an array leaves the vector empty. One visitor serves one array; not thread-safe.
#pragma once

#include "dataformats/Value.h"

#include <cstdint>
#include <string>
#include <vector>

namespace qel::onlineservices::framework::core::dataitems {

class ArrayVisitor : public qel::dataformats::data::ConstVisitor {
public:
    using Value = qel::dataformats::data::Value;
    template <typename T>
    using BufferDescriptor = qel::dataformats::data::BufferDescriptor<T>;

    void visitArray(qel::dataformats::data::PtrVector<Value> const& elements) override;

    // Only arrays are collected.
    void visitNull() override {}
    void visitBoolean(bool /*value*/) override {}
    void visitInteger(std::int64_t /*value*/) override {}
    void visitFloat(double /*value*/) override {}
    void visitString(BufferDescriptor<char const> /*value*/) override {}
    void visitBlob(BufferDescriptor<char const> /*value*/) override {}
    void visitObject(qel::dataformats::data::PtrMap<std::string, Value> const& /*members*/) override {}

    std::vector<std::string> getVector() const { return m_strings; }

private:
    std::vector<std::string> m_strings;
};

}  // namespace qel::onlineservices::framework::core::dataitems
