// Arbitrary bytes as the backend's answer to one HTTP request of the host client, handed to the
// connection's answer reader in the pieces a socket might deliver (the input's length picks the
// size of the first few pieces, so the seeds stay plain answers), then the close of the backend's side. Whatever the bytes, the reader ends with a final
// answer or a failure and never takes an interim answer for the final one; a complete answer
// moves into the response the exchange hands back. A sanitizer report or a hang is a finding.
#include "FuzzQuiet.h"
#include "rsi/Response.h"
#include "rsi/host/HttpAnswerReader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

using qel::rsi::client::Response;
using qel::rsi::client::host::HttpAnswerReader;

constexpr std::size_t MAX_BODY_BYTES = 64 * 1024;
constexpr int SMALL_PIECES = 8;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    qel::fuzz::silenceLogging();
    std::size_t const piece = 1 + size % 64;
    char const* bytes = reinterpret_cast<char const*>(data);
    std::size_t remaining = size;

    HttpAnswerReader reader(MAX_BODY_BYTES);
    auto progress = HttpAnswerReader::Progress::NeedMore;
    for (int feeds = 0; remaining > 0 && progress == HttpAnswerReader::Progress::NeedMore; ++feeds) {
        // A few small pieces cut the header and the first chunk lines anywhere; then the rest at
        // once, as a socket read of a large answer delivers it.
        std::size_t const now = feeds < SMALL_PIECES ? std::min(piece, remaining) : remaining;
        progress = reader.feed(bytes, now);
        bytes += now;
        remaining -= now;
    }
    if (progress == HttpAnswerReader::Progress::NeedMore) {
        progress = reader.endOfStream();
    }
    if (progress == HttpAnswerReader::Progress::Complete) {
        bool const interim = reader.status() >= 100 && reader.status() <= 199;
        if (interim || (reader.isReusable() && reader.leftoverBytes() != 0)) {
            std::abort();  // an interim answer taken as final, or a connection reused out of step
        }
        static qel::common::logging::Logger const logger{"fuzz.http"};
        Response response;
        reader.moveInto(response, logger, "GET /onlinekvs/items/k-1");
        if (response.getStatus() != reader.status()) {
            std::abort();
        }
    } else if (progress == HttpAnswerReader::Progress::Failed && reader.failure().empty()) {
        std::abort();  // every failure says why
    }
    return 0;
}
