// A request job: sends one request through the RSI client and retries it until it succeeds.
//
// Contract: 200 and 201 mark the request sent and are reported to the handler; 504 is reported at
// once without a retry; any other status arms the next retry and tells the handler nothing yet.
// A cancelled job or an expired client reports at once; so does a failed try of a job cancelled
// while it was under way, which is not retried. The handler always receives the state
// preset to succeeded and must judge the outcome by the response's status.
#pragma once

#include "rsi/IRSIJob.h"
#include "rsi/ISharedRsiClient.h"
#include "rsi/Request.h"
#include "rsi/ResponseHandler.h"

#include <atomic>
#include <memory>

namespace qel::onlineservices::framework::core {

class RSIRequest : public IRSIJob {
public:
    RSIRequest(std::shared_ptr<qel::rsi::client::Request> request,
               std::weak_ptr<qel::rsi::client::ISharedRsiClient> client,
               std::weak_ptr<qel::rsi::client::ResponseHandler> handler, qel::common::logging::Logger logger);

    void process() override;
    void confirmRequestSuccess() override;
    bool isSent() const { return m_sent.load(); }
    std::shared_ptr<qel::rsi::client::Request> const& request() const { return m_request; }

private:
    // Calls the client; true when the handler must hear about it now (no retry pending).
    bool send(qel::rsi::client::Response& response);
    void report(qel::rsi::client::RequestState const& state, qel::rsi::client::Response const& response) const;

    std::shared_ptr<qel::rsi::client::Request> const m_request;
    std::weak_ptr<qel::rsi::client::ISharedRsiClient> const m_client;
    std::weak_ptr<qel::rsi::client::ResponseHandler> const m_handler;
    std::atomic<bool> m_sent{false};
};

}  // namespace qel::onlineservices::framework::core
