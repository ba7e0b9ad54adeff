// What the RSI client answers to a request, and the shape of every event of a subscription.
//
// Contract: default-constructed by the caller and filled by the client through the setters.
// Readers get the decoded body as a `Value const*` that lives as long as the response, or share
// it with `shareData` to keep it longer (an event handed on to another thread). The body is
// read-only once set: whoever shares it reads it, nobody writes into it.
// Movable, not copyable (one response per answer or event).
#pragma once

#include "dataformats/Value.h"

#include <cstdint>
#include <memory>
#include <string>

namespace qel::rsi::client {

class Response {
public:
    Response() = default;
    Response(Response&&) = default;
    Response& operator=(Response&&) = default;
    Response(Response const&) = delete;
    Response& operator=(Response const&) = delete;

    // HTTP status; 0 while nothing was received.
    std::int16_t getStatus() const { return m_status; }
    // The decoded body, or null. `binary` asks for undecoded bytes; this client always decodes
    // (binary bodies arrive as a `Blob`), so the argument does not change the result.
    qel::dataformats::data::Value const* getData(bool binary) const;
    // The same body, shared; null when there is none.
    std::shared_ptr<qel::dataformats::data::Value const> shareData() const { return m_data; }
    std::string const& getEtag() const { return m_etag; }
    std::string const& getLocation() const { return m_location; }
    // The `requestId` of the request this answer or event belongs to.
    std::uint32_t getId() const { return m_id; }
    bool getBinaryDataFlag() const { return m_binaryData; }

    void setStatus(std::int16_t status) { m_status = status; }
    void setData(std::unique_ptr<qel::dataformats::data::Value> data) { m_data = std::move(data); }
    void setSharedData(std::shared_ptr<qel::dataformats::data::Value const> data) { m_data = std::move(data); }
    void setEtag(std::string etag) { m_etag = std::move(etag); }
    void setLocation(std::string location) { m_location = std::move(location); }
    void setId(std::uint32_t id) { m_id = id; }
    void setBinaryDataFlag(bool binary) { m_binaryData = binary; }

private:
    std::int16_t m_status = 0;
    std::shared_ptr<qel::dataformats::data::Value const> m_data;
    std::string m_etag;
    std::string m_location;
    std::uint32_t m_id = 0;
    bool m_binaryData = false;
};

}  // namespace qel::rsi::client
