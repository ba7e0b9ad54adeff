// Where the framework finds the process-wide RSI client.
//
// Contract: `GetSharedRsiClient()` returns the installed client, or null when none is installed.
// `SetSharedRsiClient` installs one (null uninstalls); tests install an in-memory client this way.
// Both are thread-safe. Whoever already holds the old client keeps it alive.
#pragma once

#include "rsi/ISharedRsiClient.h"

#include <memory>

namespace qel::rsi::client {

std::shared_ptr<ISharedRsiClient> GetSharedRsiClient();
void SetSharedRsiClient(std::shared_ptr<ISharedRsiClient> client);

}  // namespace qel::rsi::client
