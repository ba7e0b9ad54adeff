// The qel-networking-sim program on a private bus, driven through its HTTP control endpoint.
#include "support/PrivateDBus.h"
#include "unit/networking/NetworkingRig.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <sys/wait.h>

namespace {

using namespace qel::test;
namespace http = boost::beast::http;

// The program as a child process; stopped with SIGTERM at the end. The shell prints the pid the
// program takes over by exec, then the program prints its control port.
class SimProgram {
public:
    SimProgram() : m_output(::popen("echo $$; exec " QEL_NETWORKING_SIM_LAUNCHER "'" QEL_NETWORKING_SIM_PATH "' --control-port 0", "r")) {
        if (m_output != nullptr && std::fscanf(m_output, "%d control port: %hu", &m_pid, &m_port) != 2) {
            m_port = 0;
        }
    }
    ~SimProgram() { stop(); }
    // The program's exit status after SIGTERM.
    int stop() {
        if (m_output == nullptr) {
            return -1;
        }
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
        }
        int const status = ::pclose(m_output);
        m_output = nullptr;
        return status;
    }
    std::uint16_t port() const { return m_port; }

    // One request to the control endpoint: "status body".
    std::string control(http::verb verb, std::string const& target, std::string const& body = {}) const {
        boost::asio::io_context ioc;
        boost::asio::ip::tcp::socket socket(ioc);
        boost::system::error_code error;
        socket.connect({boost::asio::ip::address_v4::loopback(), m_port}, error);
        if (error) {
            return "connect failed";
        }
        http::request<http::string_body> request{verb, target, 11};
        request.set(http::field::host, "127.0.0.1");
        request.body() = body;
        request.prepare_payload();
        http::write(socket, request, error);
        boost::beast::flat_buffer buffer;
        http::response<http::string_body> response;
        http::read(socket, buffer, response, error);
        return std::to_string(response.result_int()) + " " + response.body();
    }

private:
    FILE* m_output;
    pid_t m_pid = -1;
    std::uint16_t m_port = 0;
};

TEST(NetworkingSimProgram, ServesTheInterfaceAndObeysItsControlEndpoint) {
    PrivateDBus bus;
    ASSERT_TRUE(bus.started());
    ::setenv("QEL_COMMONAPI_BINDING", "dbus", 1);  // the child inherits it too
    SimProgram program;
    ASSERT_NE(program.port(), 0);
    auto const proxy = proxyAt("qel.networking.api");
    ::setenv("QEL_COMMONAPI_BINDING", "inprocess", 1);
    ASSERT_NE(proxy, nullptr);
    ASSERT_TRUE(eventually([&] { return proxy->isAvailable(); }));
    std::atomic<int> ocuLost{0};
    proxy->getOcuConnStateChangeEvent().subscribe([&ocuLost](bool const& available) { ocuLost += available ? 0 : 1; });

    CommonAPI::CallStatus status = CommonAPI::CallStatus::UNKNOWN;
    ClientData_s ipv4;
    ClientData_s ipv6;
    ResultCodes_e result = ResultCodes_e::SUCCESS;
    EXPECT_EQ(program.control(http::verb::post, "/_control/refuse", R"({"service":"demoservice","code":3,"count":1})"),
              R"(200 {"status":"ok"})");
    proxy->getInternetAccess("demoservice", status, ipv4, ipv6, result);
    EXPECT_EQ(result, ResultCodes_e::UNKNOWN_SERVICE);
    proxy->getInternetAccess("demoservice", status, ipv4, ipv6, result);
    EXPECT_EQ(status, CommonAPI::CallStatus::SUCCESS);
    EXPECT_EQ(result, ResultCodes_e::SUCCESS);
    EXPECT_EQ(ipv4, ClientData_s("192.168.100.2", 24, "ocu0"));

    EXPECT_EQ(program.control(http::verb::post, "/_control/ocu", R"({"available":false})"), R"(200 {"status":"ok"})");
    ASSERT_TRUE(eventually([&] { return ocuLost.load() == 1; }));
    EXPECT_EQ(program.control(http::verb::post, "/_control/leave"), R"(200 {"status":"ok"})");
    ASSERT_TRUE(eventually([&] { return !proxy->isAvailable(); }));
    EXPECT_EQ(program.control(http::verb::post, "/_control/rejoin"), R"(200 {"status":"ok"})");
    ASSERT_TRUE(eventually([&] { return proxy->isAvailable(); }));

    EXPECT_EQ(program.control(http::verb::post, "/_control/nosuch", "{}").substr(0, 4), "404 ");
    EXPECT_EQ(program.control(http::verb::get, "/_control/nosuch").substr(0, 4), "404 ");
    EXPECT_EQ(program.control(http::verb::get, "/../etc/passwd").substr(0, 4), "404 ");
    EXPECT_EQ(program.control(http::verb::post, "/_control/refuse", "{}"),
              R"(400 {"error":"\"service\" is missing"})");
    EXPECT_EQ(program.control(http::verb::post, "/_control/grant", R"({"service":{"id":1}})"),
              R"(400 {"error":"\"service\" is missing"})");
    EXPECT_EQ(program.control(http::verb::post, "/_control/ocu", R"({"available":"no"})"),
              R"(400 {"error":"\"available\" is missing or not true or false"})");
    EXPECT_EQ(program.control(http::verb::post, "/_control/fail", R"({"service":"s","count":-1})").substr(0, 4),
              "400 ");
    EXPECT_EQ(program.control(http::verb::post, "/_control/refuse", R"({"service":"nav","code":2})"),
              R"(200 {"status":"ok"})");
    EXPECT_EQ(program.control(http::verb::get, "/_control/state"),
              R"(200 {"calls":[{"method":"getInternetAccess","outcome":"refused 3","service":"demoservice"},)"
              R"({"method":"getInternetAccess","outcome":"granted 192.168.100.2 fd00::2","service":"demoservice"}],)"
              R"("ocuAvailable":false,"onBus":true,"services":[)"
              R"({"ipv4":{"address":"192.168.100.2","name":"ocu0","prefix":24},)"
              R"("ipv6":{"address":"fd00::2","name":"ocu0","prefix":64},"rule":null,"service":"demoservice"},)"
              R"({"ipv4":{"address":"192.168.100.2","name":"ocu0","prefix":24},)"
              R"("ipv6":{"address":"fd00::2","name":"ocu0","prefix":64},)"
              R"("rule":{"code":2,"mode":"refuse","remaining":0},"service":"nav"}]})");
    std::string const page = program.control(http::verb::get, "/");
    EXPECT_EQ(page.substr(0, 4), "200 ");
    EXPECT_NE(page.find("networking.js"), std::string::npos);
    int const exitStatus = program.stop();
    EXPECT_TRUE(WIFEXITED(exitStatus) && WEXITSTATUS(exitStatus) == 0);
}

}  // namespace
