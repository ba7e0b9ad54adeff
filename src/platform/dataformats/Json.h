// JSON text to data values and back, over nlohmann-json.
//
// Contract: nothing here throws. Bad input (malformed, truncated, nested deeper than
// `MAX_DEPTH`) gives a null pointer and one warning line; the JSON literal `null` gives a
// `Null` node. The writer escapes as JSON requires and replaces invalid UTF-8.
#pragma once

#include "dataformats/Value.h"

#include <memory>
#include <string>
#include <string_view>

namespace qel::dataformats::json {

inline constexpr std::size_t MAX_DEPTH = 256;

std::unique_ptr<data::Value> parse(std::string_view text);

// Compact JSON text of `value`; "null" for a null pointer; empty (and a warning) if writing fails.
std::string stringify(data::Value const* value);

// The same text as `stringify`, under the name request bodies use.
std::string jsonStringFromValue(data::Value const* value);

}  // namespace qel::dataformats::json
