#include "rsi/host/HttpConnection.h"

#include "dataformats/Json.h"
#include "rsi/RequestType.h"
#include "rsi/host/BlockingAsio.h"
#include "rsi/host/HttpAnswerReader.h"
#include "rsi/host/RsiWireFormat.h"

#include <boost/asio/post.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <algorithm>
#include <array>
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

// Empty when `reader` holds the final answer; otherwise why there is none.
std::string whyNoAnswer(beast::error_code const& error, HttpAnswerReader const& reader,
                        std::chrono::milliseconds timeout, std::size_t maxBytes) {
    if (error == beast::error::timeout) {
        return "no answer within " + std::to_string(timeout.count()) + " ms";
    }
    if (error) {
        return "connection broken after sending: " + error.message();
    }
    if (reader.isOverBound()) {
        return "answer over " + std::to_string(maxBytes) + " bytes refused";
    }
    if (!reader.failure().empty()) {
        return "connection broken after sending: " + reader.failure();
    }
    return {};
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

    // `written` tells how many bytes of the request reached the socket. Starts the deadline that
    // bounds the answer too.
    beast::error_code write(http::request<http::string_body>& message, std::size_t& written) {
        written = 0;
        stream->expires_after(timeout);
        return runToEnd(ioc, [&](auto handler) {
            http::async_write(*stream, message,
                              [&written, handler = std::move(handler)](beast::error_code error,
                                                                       std::size_t bytes) mutable {
                                  written = bytes;
                                  handler(error, bytes);
                              });
        });
    }

    // Hands what arrives to `reader` until it has the final answer or gives up.
    beast::error_code readAnswer(HttpAnswerReader& reader) {
        for (;;) {
            std::size_t received = 0;
            auto const error = runToEnd(ioc, [&](auto handler) {
                stream->async_read_some(net::buffer(chunk), [&received, handler = std::move(handler)](
                                                                beast::error_code readError,
                                                                std::size_t bytes) mutable {
                    received = bytes;
                    handler(readError, bytes);
                });
            });
            HttpAnswerReader::Progress progress = HttpAnswerReader::Progress::NeedMore;
            if (error == net::error::eof) {
                progress = reader.endOfStream();
            } else if (error) {
                return error;
            } else {
                progress = reader.feed(chunk.data(), received);
            }
            if (progress != HttpAnswerReader::Progress::NeedMore) {
                return {};
            }
        }
    }

    // Posted by `cancel`; runs on the owner's thread inside its I/O and ends it, unless the turn it
    // was meant for is over.
    void abort(std::uint64_t forTurn) {
        if (forTurn == turn && stream) {
            stream->close();
        }
    }

    void drop() {
        if (stream) {
            beast::error_code ignored;
            stream->socket().shutdown(tcp::socket::shutdown_both, ignored);
        }
        stream.reset();
    }

    RsiEndpoint const endpoint;
    std::chrono::milliseconds const timeout;
    std::size_t const maxMessageBytes;
    NameResolver resolver;
    net::io_context ioc;
    std::optional<beast::tcp_stream> stream;
    std::array<char, 16 * 1024> chunk{};
    std::uint64_t turn = 0;  // counts the callers that owned the connection; written under the mutex
};

HttpConnection::HttpConnection(RsiEndpoint endpoint, std::uint32_t timeoutMs, std::size_t maxMessageBytes,
                               NameResolver::Lookup lookup)
    : m_impl(std::make_unique<Impl>(std::move(endpoint), timeoutMs, maxMessageBytes, std::move(lookup))) {}

HttpConnection::~HttpConnection() {
    m_impl->drop();
}

RequestState HttpConnection::exchange(Request const& request, Response& response) {
    response.setId(request.requestId);
    if (!verbOf(request.type)) {
        m_logger << LogLevel::Error << "Refused request of type " << request.type << " over HTTP";
        response.setStatus(BAD_REQUEST);
        return {RequestStateFailed, "request type not sent over HTTP"};
    }
    Call call;
    call.thread = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_calls.push_back(&call);
    m_turn.wait(lock, [&] { return !m_busy || call.cancelled.load(); });
    bool const owner = !call.cancelled.load();
    if (owner) {
        m_busy = true;
        m_owner = &call;
        ++m_impl->turn;
    }
    lock.unlock();

    RequestState state =
        owner ? exchangeOnConnection(request, call, response)
              : answerNotSent(std::string(methodName(request.type)) + " " + wire::targetOf(request), "cancelled",
                              response);

    lock.lock();
    if (owner) {
        m_busy = false;
        m_owner = nullptr;
    }
    m_calls.erase(std::find(m_calls.begin(), m_calls.end(), &call));
    lock.unlock();
    m_turn.notify_all();
    return state;
}

void HttpConnection::cancel(std::thread::id caller) {
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        for (Call* call : m_calls) {
            if (call->thread != caller) {
                continue;
            }
            call->cancelled.store(true);
            if (call == m_owner) {
                net::post(m_impl->ioc, [impl = m_impl.get(), turn = m_impl->turn] { impl->abort(turn); });
            }
        }
    }
    m_turn.notify_all();
}

RequestState HttpConnection::exchangeOnConnection(Request const& request, Call const& call, Response& response) {
    auto message = buildMessage(request, *verbOf(request.type), m_impl->endpoint.text());
    std::string const description = std::string(methodName(request.type)) + " " + std::string(message.target());

    for (int attempt = 0;; ++attempt) {
        if (call.cancelled.load()) {
            return answerNotSent(description, "cancelled", response);
        }
        if (m_impl->stream && m_impl->isClosedByPeer()) {
            m_logger << LogLevel::Debug << description << ": idle connection was closed by the backend, reconnecting";
            m_impl->drop();
        }
        if (!m_impl->stream) {
            std::string const failure = m_impl->connect();
            if (!failure.empty()) {
                return answerNotSent(description, call.cancelled.load() ? "cancelled" : failure, response);
            }
        }
        std::size_t written = 0;
        auto error = m_impl->write(message, written);
        if (error && written == 0) {
            if (call.cancelled.load()) {
                return answerNotSent(description, "cancelled", response);
            }
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
        HttpAnswerReader reader(m_impl->maxMessageBytes);
        if (!error) {
            error = m_impl->readAnswer(reader);
        }
        if (call.cancelled.load()) {
            return answerGatewayTimeout(description, "cancelled after sending", response);
        }
        std::string const failure = whyNoAnswer(error, reader, m_impl->timeout, m_impl->maxMessageBytes);
        if (!failure.empty()) {
            return answerGatewayTimeout(description, failure, response);
        }
        return takeAnswer(description, reader, response);
    }
}

RequestState HttpConnection::takeAnswer(std::string const& description, HttpAnswerReader& reader,
                                        Response& response) {
    reader.moveInto(response, m_logger, description);
    if (reader.leftoverBytes() > 0) {
        m_logger << LogLevel::Warning << description << ": " << reader.leftoverBytes()
                 << " unasked bytes after the answer; dropping the connection";
    }
    if (!reader.isReusable()) {
        m_impl->drop();
    }
    return {RequestStateSucceeded, ""};
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
