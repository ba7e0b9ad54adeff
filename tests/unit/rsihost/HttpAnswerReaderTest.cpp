// The host client's HTTP answer reader, fed the way a socket delivers bytes.
#include "dataformats/Json.h"
#include "rsi/host/HttpAnswerReader.h"

#include <gtest/gtest.h>

#include <string>

namespace qel::test {
namespace {

using rsi::client::Response;
using rsi::client::host::HttpAnswerReader;
using Progress = HttpAnswerReader::Progress;

constexpr std::size_t BOUND = 1024;

Progress feedInPieces(HttpAnswerReader& reader, std::string const& bytes, std::size_t piece) {
    Progress progress = Progress::NeedMore;
    for (std::size_t at = 0; at < bytes.size() && progress == Progress::NeedMore; at += piece) {
        std::string const now = bytes.substr(at, piece);
        progress = reader.feed(now.data(), now.size());
    }
    return progress;
}

std::string bodyOf(HttpAnswerReader& reader) {
    Response response;
    reader.moveInto(response, common::logging::Logger("test.http"), "GET /x");
    return std::to_string(response.getStatus()) + " " + dataformats::json::stringify(response.getData(false));
}

TEST(HttpAnswerReaderTest, InterimAnswersAreSkippedWhereverTheBytesAreCut) {
    std::string const bytes =
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 102 Processing\r\nX-A: 1\r\n\r\n"
        "HTTP/1.1 201 Created\r\nContent-Length: 8\r\n\r\n{\"a\":12}";
    for (std::size_t piece : {1u, 7u, 4096u}) {
        HttpAnswerReader reader(BOUND);
        ASSERT_EQ(feedInPieces(reader, bytes, piece), Progress::Complete) << piece;
        EXPECT_TRUE(reader.isReusable());
        EXPECT_EQ(bodyOf(reader), R"(201 {"a":12})");
    }
}

TEST(HttpAnswerReaderTest, CloseEndsAnAnswerWithoutLengthAndFailsAnUnfinishedOne) {
    HttpAnswerReader untilClose(BOUND);
    std::string const open = "HTTP/1.0 200 OK\r\n\r\n[1,2]";
    EXPECT_EQ(untilClose.feed(open.data(), open.size()), Progress::NeedMore);
    ASSERT_EQ(untilClose.endOfStream(), Progress::Complete);
    EXPECT_FALSE(untilClose.isReusable());
    EXPECT_EQ(bodyOf(untilClose), "200 [1,2]");

    HttpAnswerReader onlyInterim(BOUND);
    std::string const interim = "HTTP/1.1 100 Continue\r\n\r\n";
    EXPECT_EQ(onlyInterim.feed(interim.data(), interim.size()), Progress::NeedMore);
    EXPECT_EQ(onlyInterim.endOfStream(), Progress::Failed);
    EXPECT_EQ(onlyInterim.failure(), "end of stream");

    HttpAnswerReader cut(BOUND);
    std::string const partial = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n{}";
    EXPECT_EQ(cut.feed(partial.data(), partial.size()), Progress::NeedMore);
    EXPECT_EQ(cut.endOfStream(), Progress::Failed);
    EXPECT_FALSE(cut.isOverBound());
}

TEST(HttpAnswerReaderTest, BodyOverTheBoundFailsAtTheHeaderOrAsItGrows) {
    HttpAnswerReader announced(BOUND);
    std::string const big = "HTTP/1.1 200 OK\r\nContent-Length: 1025\r\n\r\n" + std::string(1025, 'x');
    EXPECT_EQ(announced.feed(big.data(), big.size()), Progress::Failed);
    EXPECT_TRUE(announced.isOverBound());

    HttpAnswerReader chunked(BOUND);
    std::string const head = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    std::string const chunk = "200\r\n" + std::string(0x200, 'x') + "\r\n";
    EXPECT_EQ(chunked.feed(head.data(), head.size()), Progress::NeedMore);
    EXPECT_EQ(feedInPieces(chunked, chunk + chunk + chunk, 100), Progress::Failed);
    EXPECT_TRUE(chunked.isOverBound());

    HttpAnswerReader garbage(BOUND);
    EXPECT_EQ(garbage.feed("SMTP ready\r\n\r\n", 14), Progress::Failed);
    EXPECT_FALSE(garbage.isOverBound());
}

}  // namespace
}  // namespace qel::test
