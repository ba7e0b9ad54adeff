// The types of the networking interface "qel.networking.api.networking:v1_0".
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace v1::qel::networking::api::definitions {

// One granted address: the address text, its prefix length and the interface name.
struct ClientData_s {
    ClientData_s() = default;
    ClientData_s(std::string address, std::int32_t prefix, std::string name)
        : address_(std::move(address)), prefix_(prefix), name_(std::move(name)) {}

    std::string const& getAddress() const { return address_; }
    void setAddress(std::string const& address) { address_ = address; }
    std::int32_t getPrefix() const { return prefix_; }
    void setPrefix(std::int32_t prefix) { prefix_ = prefix; }
    std::string const& getName() const { return name_; }
    void setName(std::string const& name) { name_ = name; }

    bool operator==(ClientData_s const& other) const {
        return address_ == other.address_ && prefix_ == other.prefix_ && name_ == other.name_;
    }
    bool operator!=(ClientData_s const& other) const { return !(*this == other); }

private:
    std::string address_;
    std::int32_t prefix_ = 0;
    std::string name_;
};

// The service's verdict on a request; 0 grants it.
enum class ResultCodes_e : std::int32_t {
    SUCCESS = 0,
    NOT_ALLOWED = 1,
    NO_CONNECTION = 2,
    UNKNOWN_SERVICE = 3,
    UNKNOWN_ERROR = 4,
};

}  // namespace v1::qel::networking::api::definitions
