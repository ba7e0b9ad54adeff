// The backend simulator: the backend's resources over HTTP and one WebSocket path, on loopback.
//
//   BackendSimulator simulator;
//   simulator.loadScenario(R"({"services":[{"name":"nav","baseUrl":"https://nav"}]})");
//   simulator.start();                                 // ephemeral port; see port()
//   simulator.failNext("/onlinekvs/items", 500);      // the next answer there is a 500
//   simulator.closeAllWebSockets();
//
// Contract: every operation is thread-safe and never throws; control operations run on the
// simulator's one I/O thread ("backend-sim") and return once done, so an event they cause has
// been queued for sending when they return. The state (resources, records, faults, delays)
// survives `stop` and `start`; subscriptions and connections do not. Wire protocol, scenario
// format and control endpoints: docs/rsi-wire-protocol.md.
#pragma once

#include "BackendState.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace qel::sim::backend {

class BackendSimulator {
public:
    struct Options {
        std::size_t maxMessageBytes = 1024 * 1024;  // per HTTP request body and WebSocket message
        // Other than loopback, the control endpoints (which have no authentication) are reachable
        // from other machines too.
        std::string bindAddress = "127.0.0.1";
    };

    BackendSimulator();
    explicit BackendSimulator(Options const& options);
    ~BackendSimulator();
    BackendSimulator(BackendSimulator const&) = delete;
    BackendSimulator& operator=(BackendSimulator const&) = delete;

    bool loadScenario(std::string const& jsonText);
    bool loadScenarioFile(std::string const& path);

    // Listens on the bind address (127.0.0.1 unless the options say otherwise) at `port` (0: an
    // ephemeral port). False if running, or the address is bad or taken.
    bool start(std::uint16_t port = 0);
    // Drops every connection at once, as a crashed backend would.
    void stop();
    bool isRunning() const;
    // The port bound by the last successful `start`.
    std::uint16_t port() const;

    void setServiceAvailable(std::string const& service, bool available);
    bool setDisableReasons(std::string const& serviceName, std::vector<std::string> const& reasons);
    std::string rotateToken(std::string const& idOrName, std::string const& token = {});
    std::string pushJob(std::string const& jobJson);
    bool setKvsValue(std::string const& idOrName, std::string const& value);
    void failNext(std::string const& path, int status, std::uint32_t count = 1);
    void delayAnswers(std::string const& path, std::uint32_t ms);
    // Close handshake on every WebSocket, after the messages already sent to it; returns how many
    // there were. Messages sent to a closing WebSocket are dropped.
    std::size_t closeAllWebSockets();
    // Sends `text` as it stands on every WebSocket (to play a misbehaving backend).
    std::size_t sendRawToWebSockets(std::string const& text);

    std::vector<ReceivedMessage> received() const;
    void clearReceived();
    // Waits (real time, as a safety limit) until `count` requests and messages were received
    // since the last `clearReceived`, each answered; false at the limit.
    bool waitForReceived(std::size_t count, std::uint32_t limitMs = 5000) const;
    std::vector<JobAcknowledgement> acknowledgements() const;
    std::size_t subscriptionCount() const;
    // Everything the control endpoints tell, as one JSON object (`GET /_control/state`); the
    // console's feed sends the same text after every change.
    std::string stateJson() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace qel::sim::backend
