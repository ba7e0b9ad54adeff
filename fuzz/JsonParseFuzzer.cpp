// Arbitrary bytes into the JSON parser. Whatever parses must write out, parse back and copy to
// the very same text; anything else (or a sanitizer report) is a finding.
#include "common/Logger.h"
#include "dataformats/Json.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace json = qel::dataformats::json;
using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    // Nearly every input is rejected with a warning; writing them all would drown the fuzzer.
    static bool const quiet = (LogConfig::setThreshold(LogLevel::Error), true);
    (void)quiet;

    auto value = json::parse(std::string_view(reinterpret_cast<char const*>(data), size));
    if (value == nullptr) {
        return 0;
    }
    std::string const text = json::stringify(value.get());
    auto reparsed = json::parse(text);
    if (reparsed == nullptr) {
        std::abort();
    }
    auto copy = reparsed->copy();
    if (json::stringify(copy.get()) != text) {
        std::abort();
    }
    return 0;
}
