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

namespace qel::rsi::client::host {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using common::logging::LogLevel;

constexpr std::int16_t BAD_REQUEST = 400;
constexpr std::int16_t GATEWAY_TIMEOUT = 504;
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

// The idle keep-alive connection was closed by the backend before it read anything of ours.
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
    Impl(RsiEndpoint endpointIn, std::uint32_t timeoutMs, std::size_t maxBytes)
        : endpoint(std::move(endpointIn)), timeout(timeoutMs), maxMessageBytes(maxBytes) {}

    beast::error_code connect() {
        tcp::resolver::results_type endpoints;
        if (auto const error = resolveWithin(ioc, endpoint.host, endpoint.port, timeout, endpoints)) {
            return error;
        }
        stream.emplace(ioc);
        stream->expires_after(timeout);
        auto const error = runToEnd(ioc, [&](auto handler) { stream->async_connect(endpoints, std::move(handler)); });
        if (!error) {
            // Small requests go out at once instead of waiting for the previous answer's ACK.
            beast::error_code ignored;
            stream->socket().set_option(tcp::no_delay(true), ignored);
        }
        return error;
    }

    beast::error_code roundTrip(http::request<http::string_body>& message,
                                http::response_parser<http::string_body>& parser) {
        stream->expires_after(timeout);
        if (auto const error =
                runToEnd(ioc, [&](auto handler) { http::async_write(*stream, message, std::move(handler)); })) {
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
    net::io_context ioc;
    std::optional<beast::tcp_stream> stream;
    beast::flat_buffer buffer;
};

HttpConnection::HttpConnection(RsiEndpoint endpoint, std::uint32_t timeoutMs, std::size_t maxMessageBytes)
    : m_impl(std::make_unique<Impl>(std::move(endpoint), timeoutMs, maxMessageBytes)) {}

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
        bool const reused = m_impl->stream.has_value();
        if (!reused) {
            if (auto const error = m_impl->connect()) {
                return answerGatewayTimeout(description, "connect to " + m_impl->endpoint.text() + " failed: " +
                                                             error.message(), response);
            }
        }
        http::response_parser<http::string_body> parser;
        parser.body_limit(m_impl->maxMessageBytes);
        auto const error = m_impl->roundTrip(message, parser);
        if (error && reused && attempt == 0 && !parser.got_some() && isStaleConnection(error)) {
            m_logger << LogLevel::Debug << description << ": idle connection was closed, reconnecting";
            m_impl->drop();
            continue;
        }
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
            return answerGatewayTimeout(description, "connection broken: " + error.message(), response);
        }
        if (!fillResponse(m_logger, description, parser.release(), response)) {
            m_impl->drop();
        }
        return {RequestStateSucceeded, ""};
    }
}

RequestState HttpConnection::answerGatewayTimeout(std::string const& description, std::string const& reason,
                                                  Response& response) {
    m_logger << LogLevel::Warning << description << ": " << reason << "; answering " << GATEWAY_TIMEOUT;
    m_impl->drop();
    response.setStatus(GATEWAY_TIMEOUT);
    return {RequestStateFailed, reason};
}

}  // namespace qel::rsi::client::host
