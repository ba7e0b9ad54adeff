#include "dataformats/Json.h"

#include "common/Logger.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace qel::dataformats::json {
namespace {

using common::logging::LogLevel;
using common::logging::Logger;
using Nlohmann = nlohmann::json;

constexpr std::size_t MAX_REASON_LENGTH = 120;

Logger const& logger() {
    static Logger const instance("platform.json");
    return instance;
}

// nlohmann's messages carry an exception tag, a line/column prefix and the offending token
// (`token`), which may be any input bytes of any length; the log keeps only the fixed wording.
std::string shortReason(std::string_view what, std::string const& token = {}) {
    if (!what.empty() && what.front() == '[') {
        auto tagEnd = what.find("] ");
        what.remove_prefix(tagEnd != std::string_view::npos ? tagEnd + 2 : 0);
    }
    if (what.substr(0, 11) == "parse error") {
        auto prefixEnd = what.find(": ");
        what.remove_prefix(prefixEnd != std::string_view::npos ? prefixEnd + 2 : 0);
    }
    std::string reason(what);
    for (std::string const& quoted : {"; last read: '" + token + "'", " '" + token + "'"}) {
        auto at = reason.find(quoted);
        if (at != std::string::npos) {
            reason.erase(at, quoted.size());
        }
    }
    reason.resize(std::min(reason.size(), MAX_REASON_LENGTH));
    for (char& c : reason) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7f) {
            c = '?';
        }
    }
    return reason;
}

// Builds our tree straight from nlohmann's SAX events, one pass, with an explicit stack of open
// containers so that nesting costs heap, not call depth.
class TreeBuilder {
public:
    bool null() { return place(std::make_unique<data::Null>()) != nullptr; }
    bool boolean(bool value) { return place(std::make_unique<data::Boolean>(value)) != nullptr; }
    bool number_integer(Nlohmann::number_integer_t value) {
        return place(std::make_unique<data::Integer>(value)) != nullptr;
    }
    bool number_unsigned(Nlohmann::number_unsigned_t value) {
        if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return place(std::make_unique<data::Integer>(static_cast<std::int64_t>(value))) != nullptr;
        }
        return place(std::make_unique<data::Float>(static_cast<double>(value))) != nullptr;
    }
    bool number_float(Nlohmann::number_float_t value, Nlohmann::string_t const& /*text*/) {
        return place(std::make_unique<data::Float>(value)) != nullptr;
    }
    bool string(Nlohmann::string_t& value) { return place(std::make_unique<data::String>(std::move(value))) != nullptr; }
    // Only binary formats produce these; kept so that the handler is complete.
    bool binary(Nlohmann::binary_t& value) {
        return place(std::make_unique<data::Blob>(std::string(value.begin(), value.end()))) != nullptr;
    }

    bool start_object(std::size_t /*elements*/) { return open<data::Object>(); }
    bool key(Nlohmann::string_t& name) {
        m_open.back().key = std::move(name);
        return true;
    }
    bool end_object() { return close(); }
    bool start_array(std::size_t /*elements*/) { return open<data::Array>(); }
    bool end_array() { return close(); }

    bool parse_error(std::size_t position, std::string const& lastToken, Nlohmann::exception const& error) {
        fail(position, shortReason(error.what(), lastToken));
        return false;
    }

    void fail(std::optional<std::size_t> position, std::string reason) {
        m_failed = true;
        m_errorPosition = position;
        m_errorReason = std::move(reason);
    }
    bool failed() const { return m_failed; }
    std::unique_ptr<data::Value> takeResult() { return std::move(m_root); }

    void logFailure() const {
        std::string const& reason = m_errorReason.empty() ? std::string("unknown failure") : m_errorReason;
        if (m_errorPosition) {
            logger() << LogLevel::Warning << "JSON parse error at byte " << *m_errorPosition << ": " << reason;
        } else {
            logger() << LogLevel::Warning << "JSON parse error: " << reason;
        }
    }

private:
    struct OpenContainer {
        data::Array* array = nullptr;    // set for an array
        data::Object* object = nullptr;  // set for an object
        std::string key;                 // name of the object member that comes next
    };

    // Hangs `value` into the innermost open container, or makes it the root.
    data::Value* place(std::unique_ptr<data::Value> value) {
        if (m_open.empty()) {
            m_root = std::move(value);
            return m_root.get();
        }
        auto& current = m_open.back();
        if (current.array != nullptr) {
            return current.array->pushNew(std::move(value));
        }
        return current.object->setNew(current.key, std::move(value));
    }

    template <typename Container>
    bool open() {
        if (m_open.size() >= MAX_DEPTH) {
            fail(std::nullopt, "nested deeper than " + std::to_string(MAX_DEPTH) + " levels");
            return false;
        }
        auto container = std::make_unique<Container>();
        auto* raw = container.get();
        place(std::move(container));
        OpenContainer entry;
        if constexpr (std::is_same_v<Container, data::Array>) {
            entry.array = raw;
        } else {
            entry.object = raw;
        }
        m_open.push_back(std::move(entry));
        return true;
    }

    bool close() {
        m_open.pop_back();
        return true;
    }

    std::unique_ptr<data::Value> m_root;
    std::vector<OpenContainer> m_open;
    bool m_failed = false;
    std::optional<std::size_t> m_errorPosition;
    std::string m_errorReason;
};

// Converts our tree into nlohmann's, whose writer does the escaping and the float formatting.
class NlohmannBuilder final : public data::ConstVisitor {
public:
    static Nlohmann convert(data::Value const& value) {
        NlohmannBuilder builder;
        value.accept(builder);
        return std::move(builder.m_result);
    }

    void visitNull() override { m_result = nullptr; }
    void visitBoolean(bool value) override { m_result = value; }
    void visitInteger(std::int64_t value) override { m_result = value; }
    void visitFloat(double value) override { m_result = value; }
    void visitString(data::BufferDescriptor<char const> value) override {
        m_result = std::string(value.data, value.size);
    }
    // JSON has no bytes: they go out as a string (invalid UTF-8 is replaced when written).
    void visitBlob(data::BufferDescriptor<char const> value) override { m_result = std::string(value.data, value.size); }
    void visitArray(data::PtrVector<data::Value> const& elements) override {
        m_result = Nlohmann::array();
        for (auto const& element : elements) {
            m_result.push_back(convert(*element));
        }
    }
    void visitObject(data::PtrMap<std::string, data::Value> const& members) override {
        m_result = Nlohmann::object();
        for (auto const& [name, value] : members) {
            m_result.emplace(name, convert(*value));
        }
    }

private:
    Nlohmann m_result;
};

}  // namespace

std::unique_ptr<data::Value> parse(std::string_view text) {
    TreeBuilder builder;
    bool parsed = false;
    try {
        // strict: text after the value is an error, not ignored.
        parsed = Nlohmann::sax_parse(text.data(), text.data() + text.size(), &builder, Nlohmann::input_format_t::json,
                                     /*strict=*/true, /*ignore_comments=*/false);
    } catch (std::exception const& error) {
        builder.fail(std::nullopt, shortReason(error.what()));
    } catch (...) {
        builder.fail(std::nullopt, "unknown failure");
    }
    if (!parsed || builder.failed()) {
        builder.logFailure();
        return nullptr;
    }
    return builder.takeResult();
}

std::string stringify(data::Value const* value) {
    if (value == nullptr) {
        return "null";
    }
    try {
        return NlohmannBuilder::convert(*value).dump(-1, ' ', false, Nlohmann::error_handler_t::replace);
    } catch (std::exception const& error) {
        logger() << LogLevel::Warning << "JSON write error: " << shortReason(error.what());
    } catch (...) {
        logger() << LogLevel::Warning << "JSON write error";
    }
    return {};
}

std::string jsonStringFromValue(data::Value const* value) { return stringify(value); }

}  // namespace qel::dataformats::json
