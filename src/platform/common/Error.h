// The platform's one error type: a text that can be thrown with `raise()`.
//
// Contract: thrown only inside the component that raises it and caught there; it never crosses
// the framework's public interface.
#pragma once

#include <stdexcept>
#include <string>

namespace qel::common::errors {

class Error : public std::runtime_error {
public:
    explicit Error(std::string const& text) : std::runtime_error(text) {}

    [[noreturn]] void raise() const { throw *this; }
};

}  // namespace qel::common::errors
