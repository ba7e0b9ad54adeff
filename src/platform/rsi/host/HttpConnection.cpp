#include "rsi/host/HttpConnection.h"

#include "dataformats/Json.h"
#include "rsi/RequestType.h"
#include "rsi/host/BlockingAsio.h"
#include "rsi/host/RsiWireFormat.h"

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace qel::rsi::client::host {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using common::logging::LogLevel;

constexpr std::int16_t BAD_REQUEST = 400;
constexpr std::int16_t SERVICE_UNAVAILABLE = 503;  // not sent: the framework retries
constexpr std::int16_t GATEWAY_TIMEOUT = 504;      // sent, no usable answer: never repeated
constexpr char const* JSON_MEDIA_TYPE = "application/json";

std::optional<http::verb> verbOf(std::uint32_t type) {
    switch (type) {
        case RequestTypeGetResource:
        case RequestTypeGetElement:
        case RequestTypeGetService: return http::verb::get;
        case RequestTypePostElement:
        case RequestTypePostResource: return http::verb::post;
        default: return std::nullopt;
    }
}

// The keep-alive connection was closed by the backend before it read anything of ours.
bool isStaleConnection(beast::error_code const& error) {
    return error == http::error::end_of_stream || error == net::error::eof ||
           error == net::error::connection_reset || error == net::error::broken_pipe;
}

http::request<http::string_body> buildMessage(Request const& request, http::verb verb, std::string const& host) {
    http::request<http::string_body> message{verb, wire::targetOf(request), 11};
    message.set(http::field::host, host);
    message.set(http::field::accept, request.acceptType.empty() ? JSON_MEDIA_TYPE : request.acceptType);
    if (hasBody(request.type) && request.data != nullptr) {
        message.set(http::field::content_type, request.contentType.empty() ? JSON_MEDIA_TYPE : request.contentType);
        message.body() = dataformats::json::jsonStringFromValue(request.data.get());
    }
    message.keep_alive(true);
    message.prepare_payload();
    return message;
}

// Returns whether the backend keeps the connection open.
bool fillResponse(common::logging::Logger const& logger, std::string const& description,
                  http::response<http::string_body>&& answer, Response& response) {
    response.setStatus(static_cast<std::int16_t>(answer.result_int()));
    response.setEtag(std::string(answer[http::field::etag]));
    response.setLocation(std::string(answer[http::field::location]));
    std::string& body = answer.body();
    if (!body.empty()) {
        auto const contentType = answer[http::field::content_type];
        if (contentType.empty() || contentType.find("json") != beast::string_view::npos) {
            auto value = dataformats::json::parse(body);
            if (value == nullptr) {
                logger << LogLevel::Warning << description << ": answer body is not valid JSON";
            }
            response.setData(std::move(value));
        } else {
            response.setData(std::make_unique<dataformats::data::Blob>(std::move(body)));
            response.setBinaryDataFlag(true);
        }
    }
    return answer.keep_alive();
}

}  // namespace

// Hidden: its members carry Boost types, which the library must not export.
struct __attribute__((visibility("hidden"))) HttpConnection::Impl {
    Impl(RsiEndpoint endpointIn, std::uint32_t timeoutMs, std::size_t maxBytes, NameResolver::Lookup lookup)
        : endpoint(std::move(endpointIn)),
          timeout(timeoutMs),
          maxMessageBytes(maxBytes),
          resolver(endpoint.host, std::move(lookup)) {}

    // Empty when connected; otherwise what failed.
    std::string connect() {
        auto const found = resolver.resolve(static_cast<std::uint32_t>(timeout.count()));
        if (!found.error.empty()) {
            return "name lookup failed: " + found.error;
        }
        std::vector<tcp::endpoint> endpoints;
        for (auto const& address : found.addresses) {
            beast::error_code invalid;
            auto const parsed = net::ip::make_address(address, invalid);
            if (!invalid) {
                endpoints.emplace_back(parsed, endpoint.port);
            }
        }
        stream.emplace(ioc);
        stream->expires_after(timeout);
        auto const error = runToEnd(ioc, [&](auto handler) { stream->async_connect(endpoints, std::move(handler)); });
        if (error) {
            stream.reset();
            return "connect to " + endpoint.text() + " failed: " + error.message();
        }
        // Small requests go out at once instead of waiting for the previous answer's ACK.
        beast::error_code ignored;
        stream->socket().set_option(tcp::no_delay(true), ignored);
        return {};
    }

    // Whether the backend has closed the idle connection (or sent something unasked): looked at
    // before writing, so that a request is only ever repeated when it surely was not sent.
    bool isClosedByPeer() {
        auto& socket = stream->socket();
        beast::error_code error;
        socket.non_blocking(true, error);
        char byte = 0;
        socket.receive(net::buffer(&byte, 1), tcp::socket::message_peek, error);
        beast::error_code ignored;
        socket.non_blocking(false, ignored);
        return error != net::error::would_block;
    }

    // `written` tells how many bytes of the request reached the socket.
    beast::error_code roundTrip(http::request<http::string_body>& message,
                                http::response_parser<http::string_body>& parser, std::size_t& written) {
        written = 0;
        stream->expires_after(timeout);
        if (auto const error = runToEnd(ioc, [&](auto handler) {
                http::async_write(*stream, message,
                                  [&written, handler = std::move(handler)](beast::error_code writeError,
                                                                           std::size_t bytes) mutable {
                                      written = bytes;
                                      handler(writeError, bytes);
                                  });
            })) {
            return error;
        }
        // The header first: reading header and body in one go skips the check of Content-Length
        // against the body limit (seen with Boost 1.74).
        if (auto const error = runToEnd(
                ioc, [&](auto handler) { http::async_read_header(*stream, buffer, parser, std::move(handler)); })) {
            return error;
        }
        return runToEnd(ioc, [&](auto handler) { http::async_read(*stream, buffer, parser, std::move(handler)); });
    }

    void drop() {
        if (stream) {
            beast::error_code ignored;
            stream->socket().shutdown(tcp::socket::shutdown_both, ignored);
        }
        stream.reset();
        buffer.clear();
    }

    RsiEndpoint const endpoint;
    std::chrono::milliseconds const timeout;
    std::size_t const maxMessageBytes;
    NameResolver resolver;
    net::io_context ioc;
    std::optional<beast::tcp_stream> stream;
    beast::flat_buffer buffer;
};

HttpConnection::HttpConnection(RsiEndpoint endpoint, std::uint32_t timeoutMs, std::size_t maxMessageBytes,
                               NameResolver::Lookup lookup)
    : m_impl(std::make_unique<Impl>(std::move(endpoint), timeoutMs, maxMessageBytes, std::move(lookup))) {}

HttpConnection::~HttpConnection() {
    m_impl->drop();
}

RequestState HttpConnection::exchange(Request const& request, Response& response) {
    response.setId(request.requestId);
    auto const verb = verbOf(request.type);
    if (!verb) {
        m_logger << LogLevel::Error << "Refused request of type " << request.type << " over HTTP";
        response.setStatus(BAD_REQUEST);
        return {RequestStateFailed, "request type not sent over HTTP"};
    }
    std::lock_guard<std::mutex> const lock(m_mutex);
    auto message = buildMessage(request, *verb, m_impl->endpoint.text());
    std::string const description = std::string(methodName(request.type)) + " " + std::string(message.target());

    for (int attempt = 0;; ++attempt) {
        if (m_impl->stream && m_impl->isClosedByPeer()) {
            m_logger << LogLevel::Debug << description << ": idle connection was closed by the backend, reconnecting";
            m_impl->drop();
        }
        if (!m_impl->stream) {
            std::string const failure = m_impl->connect();
            if (!failure.empty()) {
                return answerNotSent(description, failure, response);
            }
        }
        http::response_parser<http::string_body> parser;
        parser.body_limit(m_impl->maxMessageBytes);
        std::size_t written = 0;
        auto const error = m_impl->roundTrip(message, parser, written);
        if (error && written == 0) {
            // Nothing of the request reached the backend, so it may go out once more on a fresh
            // connection when the backend had closed this one.
            if (attempt == 0 && isStaleConnection(error)) {
                m_logger << LogLevel::Debug << description << ": connection closed before sending, reconnecting";
                m_impl->drop();
                continue;
            }
            return answerNotSent(description, "sending failed: " + error.message(), response);
        }
        // From here on the backend may have the request: it is never sent again.
        if (error == beast::error::timeout) {
            return answerGatewayTimeout(description,
                                        "no answer within " + std::to_string(m_impl->timeout.count()) + " ms",
                                        response);
        }
        if (error == http::error::body_limit) {
            return answerGatewayTimeout(description,
                                        "answer over " + std::to_string(m_impl->maxMessageBytes) + " bytes refused",
                                        response);
        }
        if (error) {
            return answerGatewayTimeout(description, "connection broken after sending: " + error.message(), response);
        }
        if (!fillResponse(m_logger, description, parser.release(), response)) {
            m_impl->drop();
        }
        return {RequestStateSucceeded, ""};
    }
}

RequestState HttpConnection::answerGatewayTimeout(std::string const& description, std::string const& reason,
                                                  Response& response) {
    return answerFailure(description, reason, GATEWAY_TIMEOUT, response);
}

RequestState HttpConnection::answerNotSent(std::string const& description, std::string const& reason,
                                           Response& response) {
    return answerFailure(description, "not sent, " + reason, SERVICE_UNAVAILABLE, response);
}

RequestState HttpConnection::answerFailure(std::string const& description, std::string const& note,
                                           std::int16_t status, Response& response) {
    m_logger << LogLevel::Warning << description << ": " << note << "; answering " << status;
    m_impl->drop();
    response.setStatus(status);
    return {RequestStateFailed, note};
}

}  // namespace qel::rsi::client::host
