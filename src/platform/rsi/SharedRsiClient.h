// Where the framework finds the process-wide RSI client.
//
// Contract: until `SetSharedRsiClient` is first called, `GetSharedRsiClient()` returns the process's
// host HTTP/WebSocket client (made on first need; endpoint in docs/rsi-wire-protocol.md). From then
// on it returns the installed client; null installs none, so that tests can run without any RSI
// client. Tests install an in-memory client this way.
// Both are thread-safe. Whoever already holds the old client keeps it alive.
#pragma once

#include "rsi/ISharedRsiClient.h"

#include <memory>

namespace qel::rsi::client {

std::shared_ptr<ISharedRsiClient> GetSharedRsiClient();
void SetSharedRsiClient(std::shared_ptr<ISharedRsiClient> client);

}  // namespace qel::rsi::client
