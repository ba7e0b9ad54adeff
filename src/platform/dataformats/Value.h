// The data-value tree: what JSON (and the RSI client) deliver to the framework.
//
// Contract: a `Value` is one node of a tree that owns its children. `copy()` is a deep copy the
// caller owns. `accept()` calls the visitor operation matching the node's kind. Nodes are not
// thread-safe for writing; a tree that is only read may be shared between threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace qel::dataformats::data {

class Value;

template <typename T>
using PtrVector = std::vector<std::unique_ptr<T>>;
template <typename K, typename V>
using PtrMap = std::map<K, std::unique_ptr<V>>;

// A view on contiguous memory owned by someone else.
template <typename T>
struct BufferDescriptor {
    T* data = nullptr;
    std::size_t size = 0;
};

class ConstVisitor {
public:
    virtual ~ConstVisitor() = default;
    virtual void visitNull() = 0;
    virtual void visitBoolean(bool value) = 0;
    virtual void visitInteger(std::int64_t value) = 0;
    virtual void visitFloat(double value) = 0;
    virtual void visitString(BufferDescriptor<char const> value) = 0;
    virtual void visitBlob(BufferDescriptor<char const> value) = 0;
    virtual void visitArray(PtrVector<Value> const& elements) = 0;
    virtual void visitObject(PtrMap<std::string, Value> const& members) = 0;
};

class Value {
public:
    enum class Kind { Null, Boolean, Integer, Float, String, Blob, Array, Object };

    virtual ~Value() = default;
    Value(Value const&) = delete;
    Value& operator=(Value const&) = delete;

    virtual Kind kind() const = 0;
    virtual std::unique_ptr<Value> copy() const = 0;
    virtual void accept(ConstVisitor& visitor) const = 0;

protected:
    Value() = default;
};

class Null final : public Value {
public:
    Kind kind() const override { return Kind::Null; }
    std::unique_ptr<Value> copy() const override { return std::make_unique<Null>(); }
    void accept(ConstVisitor& visitor) const override { visitor.visitNull(); }
};

class Boolean final : public Value {
public:
    explicit Boolean(bool value) : m_value(value) {}
    bool get() const { return m_value; }
    Kind kind() const override { return Kind::Boolean; }
    std::unique_ptr<Value> copy() const override { return std::make_unique<Boolean>(m_value); }
    void accept(ConstVisitor& visitor) const override { visitor.visitBoolean(m_value); }

private:
    bool m_value;
};

class Integer final : public Value {
public:
    explicit Integer(std::int64_t value) : m_value(value) {}
    std::int64_t get() const { return m_value; }
    Kind kind() const override { return Kind::Integer; }
    std::unique_ptr<Value> copy() const override { return std::make_unique<Integer>(m_value); }
    void accept(ConstVisitor& visitor) const override { visitor.visitInteger(m_value); }

private:
    std::int64_t m_value;
};

class Float final : public Value {
public:
    explicit Float(double value) : m_value(value) {}
    double get() const { return m_value; }
    Kind kind() const override { return Kind::Float; }
    std::unique_ptr<Value> copy() const override { return std::make_unique<Float>(m_value); }
    void accept(ConstVisitor& visitor) const override { visitor.visitFloat(m_value); }

private:
    double m_value;
};

class String final : public Value {
public:
    explicit String(std::string value) : m_value(std::move(value)) {}
    std::string const& get() const { return m_value; }
    Kind kind() const override { return Kind::String; }
    std::unique_ptr<Value> copy() const override { return std::make_unique<String>(m_value); }
    void accept(ConstVisitor& visitor) const override {
        visitor.visitString({m_value.data(), m_value.size()});
    }

private:
    std::string m_value;
};

// Opaque bytes; JSON has no such kind, so the writer renders them as a string.
class Blob final : public Value {
public:
    explicit Blob(std::string bytes) : m_bytes(std::move(bytes)) {}
    std::string const& get() const { return m_bytes; }
    Kind kind() const override { return Kind::Blob; }
    std::unique_ptr<Value> copy() const override { return std::make_unique<Blob>(m_bytes); }
    void accept(ConstVisitor& visitor) const override { visitor.visitBlob({m_bytes.data(), m_bytes.size()}); }

private:
    std::string m_bytes;
};

class Array final : public Value {
public:
    Array() = default;
    ~Array() override;

    // Appends `element` (ignored when null) and returns it.
    Value* pushNew(std::unique_ptr<Value> element);
    PtrVector<Value> const& elements() const { return m_elements; }

    Kind kind() const override { return Kind::Array; }
    std::unique_ptr<Value> copy() const override;
    void accept(ConstVisitor& visitor) const override { visitor.visitArray(m_elements); }

private:
    PtrVector<Value> m_elements;
};

class Object final : public Value {
public:
    Object() = default;
    ~Object() override;

    // Sets member `name` to `value`, replacing an earlier one (ignored when `value` is null);
    // returns the stored node.
    Value* setNew(std::string const& name, std::unique_ptr<Value> value);
    // The same for a node made with `new`: the object takes ownership of it.
    Value* setNew(std::string const& name, Value* value) { return setNew(name, std::unique_ptr<Value>(value)); }
    // Null when there is no such member.
    Value const* get(std::string const& name) const;
    // Removes member `name` and hands it over (null when there is none): a part of a tree moves
    // on without a copy.
    std::unique_ptr<Value> take(std::string const& name);
    PtrMap<std::string, Value> const& members() const { return m_members; }

    Kind kind() const override { return Kind::Object; }
    std::unique_ptr<Value> copy() const override;
    void accept(ConstVisitor& visitor) const override { visitor.visitObject(m_members); }

private:
    PtrMap<std::string, Value> m_members;
};

}  // namespace qel::dataformats::data
