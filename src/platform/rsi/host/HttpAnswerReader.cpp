#include "rsi/host/HttpAnswerReader.h"

#include "dataformats/Json.h"

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include <cstring>
#include <optional>

namespace qel::rsi::client::host {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
using common::logging::LogLevel;

// Bytes the parser may leave unread while it waits for the rest of a header or chunk line; Beast
// bounds headers itself, this bounds what it might not.
constexpr std::size_t MAX_UNPARSED_BYTES = 64 * 1024;

bool isInterim(unsigned status) {
    return status >= 100 && status <= 199;
}

}  // namespace

// Hidden: its members carry Boost types, which the library must not export.
struct __attribute__((visibility("hidden"))) HttpAnswerReader::Impl {
    explicit Impl(std::size_t maxBytes) : maxBodyBytes(maxBytes) { startMessage(); }

    void startMessage() {
        parser.emplace();
        // Not eager: Beast 1.74 loses the body-limit error of a header when it parses on into the body.
        parser->body_limit(maxBodyBytes);
    }

    Progress feed(char const* data, std::size_t size) {
        if (progress == Progress::Complete) {
            leftover += size;
        }
        if (progress != Progress::NeedMore) {
            return progress;
        }
        auto const room = unparsed.prepare(size);
        std::memcpy(room.data(), data, size);
        unparsed.commit(size);
        return parseUnparsed();
    }

    Progress parseUnparsed() {
        while (unparsed.size() > 0) {
            beast::error_code error;
            std::size_t const used = parser->put(unparsed.data(), error);
            unparsed.consume(used);
            if (error == http::error::need_more) {
                break;
            }
            if (error) {
                return fail(error);
            }
            if (parser->is_done()) {
                if (!isInterim(parser->get().result_int())) {
                    return complete();
                }
                startMessage();
            } else if (used == 0) {
                break;
            }
        }
        if (unparsed.size() > MAX_UNPARSED_BYTES) {
            return fail(http::error::header_limit);
        }
        return progress;
    }

    Progress endOfStream() {
        if (progress != Progress::NeedMore) {
            return progress;
        }
        if (!parser->got_some()) {
            return fail(http::error::end_of_stream);
        }
        beast::error_code error;
        parser->put_eof(error);
        if (error) {
            return fail(error);
        }
        return parser->is_done() ? complete() : fail(http::error::partial_message);
    }

    Progress complete() {
        leftover = unparsed.size();
        unparsed.consume(unparsed.size());
        keepAlive = parser->get().keep_alive();
        finalStatus = static_cast<int>(parser->get().result_int());
        return progress = Progress::Complete;
    }

    Progress fail(beast::error_code const& error) {
        overBound = error == http::error::body_limit;
        failure = error.message();
        return progress = Progress::Failed;
    }

    std::size_t const maxBodyBytes;
    std::optional<http::response_parser<http::string_body>> parser;
    beast::flat_buffer unparsed;
    Progress progress = Progress::NeedMore;
    std::size_t leftover = 0;
    bool keepAlive = false;
    int finalStatus = 0;
    bool overBound = false;
    std::string failure;
};

HttpAnswerReader::HttpAnswerReader(std::size_t maxBodyBytes) : m_impl(std::make_unique<Impl>(maxBodyBytes)) {}

HttpAnswerReader::~HttpAnswerReader() = default;

HttpAnswerReader::Progress HttpAnswerReader::feed(char const* data, std::size_t size) {
    return m_impl->feed(data, size);
}

HttpAnswerReader::Progress HttpAnswerReader::endOfStream() {
    return m_impl->endOfStream();
}

std::string const& HttpAnswerReader::failure() const {
    return m_impl->failure;
}

bool HttpAnswerReader::isOverBound() const {
    return m_impl->overBound;
}

int HttpAnswerReader::status() const {
    return m_impl->finalStatus;
}

std::size_t HttpAnswerReader::leftoverBytes() const {
    return m_impl->leftover;
}

bool HttpAnswerReader::isReusable() const {
    return m_impl->progress == Progress::Complete && m_impl->keepAlive && m_impl->leftover == 0;
}

void HttpAnswerReader::moveInto(Response& response, common::logging::Logger const& logger,
                                std::string const& description) {
    auto answer = m_impl->parser->release();
    response.setStatus(static_cast<std::int16_t>(answer.result_int()));
    response.setEtag(std::string(answer[http::field::etag]));
    response.setLocation(std::string(answer[http::field::location]));
    std::string& body = answer.body();
    if (body.empty()) {
        return;
    }
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

}  // namespace qel::rsi::client::host
