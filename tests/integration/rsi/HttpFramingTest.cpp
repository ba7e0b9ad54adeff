// Answers stay in step with requests on the keep-alive connection, whatever extra a backend sends,
// and a request whose answer was lost is never sent twice.
#include "IntegrationSupport.h"
#include "RawPeer.h"
#include "dataformats/Json.h"

#include <gtest/gtest.h>

#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include <atomic>

namespace qel::test {
namespace {

using namespace rsi::client;
namespace http = boost::beast::http;

std::string okAnswer(std::string const& body) {
    return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

std::atomic<int> droppedReads{0};

// Answers every request with {"for":"<its target>"}; the element "chatty" gets an unasked second
// answer in the same write, the element "patient" a "100 Continue" before its answer, and the
// element "dropped" no answer: the connection is closed once it was read.
void answerByTarget(RawPeer::Socket& connection) {
    boost::beast::flat_buffer buffer;
    for (;;) {
        http::request<http::string_body> request;
        boost::system::error_code error;
        http::read(connection, buffer, request, error);
        if (error) {
            return;
        }
        std::string const target(request.target());
        if (target == "/backendjobs/jobs/dropped") {
            ++droppedReads;
            connection.close(error);
            return;
        }
        std::string bytes = okAnswer(R"({"for":")" + target + R"("})");
        if (target == "/onlinekvs/items/chatty") {
            bytes += okAnswer(R"({"for":"nobody"})");
        } else if (target == "/onlinekvs/items/patient") {
            bytes = "HTTP/1.1 100 Continue\r\n\r\n" + bytes;
        }
        boost::asio::write(connection, boost::asio::buffer(bytes), error);
        if (error) {
            return;
        }
    }
}

class HttpFramingTest : public ::testing::Test {
protected:
    std::string get(std::string const& element, std::int16_t expectedStatus = 200) {
        Response response;
        client.request(*makeRequest(RequestTypeGetElement, 4, "onlinekvs", "items", element), response);
        EXPECT_EQ(response.getStatus(), expectedStatus) << element;
        return dataformats::json::stringify(response.getData(false));
    }

    void SetUp() override { droppedReads = 0; }

    RawPeer backend{answerByTarget};
    host::HostRsiClient client{clientOptions(backend.port())};
};

TEST_F(HttpFramingTest, InterimContinueIsSkippedAndAnUnaskedAnswerIsNeverTakenForTheNextOne) {
    EXPECT_EQ(get("patient"), R"({"for":"/onlinekvs/items/patient"})");
    EXPECT_EQ(get("kvs-1"), R"({"for":"/onlinekvs/items/kvs-1"})");
    EXPECT_EQ(get("patient"), R"({"for":"/onlinekvs/items/patient"})");
    EXPECT_EQ(get("kvs-2"), R"({"for":"/onlinekvs/items/kvs-2"})");
    EXPECT_FALSE(backend.waitForConnections(1, 0)) << "in step, so the connection is kept";

    EXPECT_EQ(get("chatty"), R"({"for":"/onlinekvs/items/chatty"})");
    EXPECT_EQ(get("kvs-3"), R"({"for":"/onlinekvs/items/kvs-3"})");
    EXPECT_TRUE(backend.waitForConnections(1)) << "the connection out of step was dropped";
    EXPECT_EQ(get("kvs-4"), R"({"for":"/onlinekvs/items/kvs-4"})");
    EXPECT_EQ(get("chatty"), R"({"for":"/onlinekvs/items/chatty"})");
    EXPECT_EQ(get("kvs-5"), R"({"for":"/onlinekvs/items/kvs-5"})");
}

TEST_F(HttpFramingTest, RequestThatReachedTheBackendIsNeverSentAgain) {
    EXPECT_EQ(get("kvs-1"), R"({"for":"/onlinekvs/items/kvs-1"})");
    Response response;
    auto const request = makeRequest(RequestTypePostElement, 6, "backendjobs", "jobs", "dropped");
    RequestState const state = client.request(*request, response);
    EXPECT_EQ(response.getStatus(), 504) << "sent, so not retried by the framework either";
    EXPECT_EQ(state.note.rfind("connection broken after sending: ", 0), 0u) << state.note;
    EXPECT_EQ(droppedReads.load(), 1) << "the request was not sent again on a new connection";
}

}  // namespace
}  // namespace qel::test
