#include "rsi/SharedRsiClient.h"

#include "rsi/host/HostRsiClient.h"

#include <atomic>

namespace qel::rsi::client {
namespace {

// Accessed only through std::atomic_load/store; meaningful once g_installed is set.
std::shared_ptr<ISharedRsiClient> g_client;
std::atomic<bool> g_installed{false};

// Made on first need (thread-safe static); it connects only when first used.
std::shared_ptr<ISharedRsiClient> const& hostClient() {
    static std::shared_ptr<ISharedRsiClient> const client =
        std::make_shared<host::HostRsiClient>(host::HostRsiClient::defaultOptions());
    return client;
}

}  // namespace

std::shared_ptr<ISharedRsiClient> GetSharedRsiClient() {
    if (g_installed.load()) {
        return std::atomic_load(&g_client);
    }
    return hostClient();
}

void SetSharedRsiClient(std::shared_ptr<ISharedRsiClient> client) {
    std::atomic_store(&g_client, std::move(client));
    g_installed.store(true);
}

}  // namespace qel::rsi::client
