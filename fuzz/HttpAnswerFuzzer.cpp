// Arbitrary bytes as the backend's answer to one HTTP request of the host client. A loopback
// server thread reads the request, writes the input as it stands and closes its side, so every
// run ends without waiting for a time-out. Whatever the bytes, the exchange returns with the
// request's id; a sanitizer report or a hang is a finding.
#include "FuzzQuiet.h"
#include "common/Thread.h"
#include "rsi/RequestType.h"
#include "rsi/host/HttpConnection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace {

using namespace qel::rsi::client;

// Accepts one connection per run and answers it with the run's bytes.
class AnswerServer {
public:
    AnswerServer() {
        m_listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (m_listener < 0 || ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(m_listener, 4) != 0 ||
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            std::abort();
        }
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] {
            qel::common::system::setCurrentThreadName("fuzz-http-srv");
            serve();
        });
    }
    ~AnswerServer() {
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            m_stopping = true;
        }
        ::shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        ::close(m_listener);
    }

    std::uint16_t port() const { return m_port; }
    void setAnswer(std::string answer) {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_answer = std::move(answer);
    }

private:
    void serve() {
        for (;;) {
            int const connection = ::accept(m_listener, nullptr, nullptr);
            if (connection < 0) {
                std::lock_guard<std::mutex> const lock(m_mutex);
                if (m_stopping) {
                    return;
                }
                continue;
            }
            answer(connection);
            ::close(connection);
        }
    }
    void answer(int connection) {
        // The client's GET has no body: its header ends the request.
        std::string request;
        char chunk[1024];
        while (request.find("\r\n\r\n") == std::string::npos) {
            ssize_t const got = ::recv(connection, chunk, sizeof(chunk), 0);
            if (got <= 0) {
                return;
            }
            request.append(chunk, static_cast<std::size_t>(got));
        }
        std::string answer;
        {
            std::lock_guard<std::mutex> const lock(m_mutex);
            answer = m_answer;
        }
        std::size_t sent = 0;
        while (sent < answer.size()) {
            ssize_t const put = ::send(connection, answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
            if (put <= 0) {
                return;
            }
            sent += static_cast<std::size_t>(put);
        }
        // End of answer; then wait for the client to let go, so its reads never meet a reset.
        ::shutdown(connection, SHUT_WR);
        while (::recv(connection, chunk, sizeof(chunk), 0) > 0) {
        }
    }

    int m_listener = -1;
    std::uint16_t m_port = 0;
    std::thread m_thread;
    std::mutex m_mutex;
    std::string m_answer;     // guarded by m_mutex
    bool m_stopping = false;  // guarded by m_mutex
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    qel::fuzz::silenceLogging();
    static AnswerServer server;
    server.setAnswer(std::string(reinterpret_cast<char const*>(data), size));

    host::RsiEndpoint endpoint;
    endpoint.host = "127.0.0.1";
    endpoint.port = server.port();
    host::HttpConnection connection(endpoint, 2000, 64 * 1024);
    Request request;
    request.type = RequestTypeGetElement;
    request.requestId = 7;
    request.service = "onlinekvs";
    request.resource = "items";
    request.element = "k-1";
    Response response;
    connection.exchange(request, response);
    if (response.getId() != 7) {
        std::abort();  // every answer, good or bad, belongs to the request that asked
    }
    return 0;
}
