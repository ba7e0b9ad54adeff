// Reads the backend's answer to one HTTP/1.1 request from the connection's bytes, as they arrive.
//
// Contract: `feed` takes the next bytes received and says whether the answer is complete, needs
// more bytes or cannot be read; `endOfStream` says that the backend closed its side (which ends an
// answer that runs until the close). Interim answers (1xx, such as "100 Continue") are skipped to
// the final one. Bytes after the final answer are counted as left over, never taken as the next
// request's answer: a connection with bytes left over must be dropped, as must one the backend
// does not keep open (`isReusable`). A body over `maxBodyBytes` fails the answer (`isOverBound`).
// No network of its own: one reader per answer, used by one thread.
#pragma once

#include "common/Logger.h"
#include "rsi/Response.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace qel::rsi::client::host {

class HttpAnswerReader {
public:
    enum class Progress { NeedMore, Complete, Failed };

    explicit HttpAnswerReader(std::size_t maxBodyBytes);
    ~HttpAnswerReader();
    HttpAnswerReader(HttpAnswerReader const&) = delete;
    HttpAnswerReader& operator=(HttpAnswerReader const&) = delete;

    Progress feed(char const* data, std::size_t size);
    Progress endOfStream();

    // After `Failed`: what went wrong, and whether it was the body bound.
    std::string const& failure() const;
    bool isOverBound() const;

    // After `Complete`.
    int status() const;
    std::size_t leftoverBytes() const;
    bool isReusable() const;
    // Moves status, ETag, Location and the decoded body (JSON, else binary) into `response`;
    // a body that should be JSON and is not is logged with `description`.
    void moveInto(Response& response, common::logging::Logger const& logger, std::string const& description);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace qel::rsi::client::host
