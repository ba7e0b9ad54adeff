// An RSI client wrapper that accepts every subscription and sends nothing: benchmarks feed events
// to an item directly.
#pragma once

#include "rsi/IRSIClientWrapper.h"

namespace qel::benchmarks {

class SilentWrapper : public onlineservices::framework::core::IRSIClientWrapper {
public:
    void sendRequest(std::shared_ptr<rsi::client::Request> const&,
                     std::weak_ptr<rsi::client::ResponseHandler> const&) override {}
    unsigned int subscribe(std::shared_ptr<rsi::client::Request> const&,
                           std::weak_ptr<rsi::client::ResponseHandler> const&,
                           std::weak_ptr<rsi::client::EventHandler> const&) override {
        return 1;
    }
    void unsubscribe(unsigned int) override {}
    void disconnect() override {}
    void start() override {}
    void stop() override {}
};

}  // namespace qel::benchmarks
