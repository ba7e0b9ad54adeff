#include "rsi/SharedRsiClient.h"

namespace qel::rsi::client {
namespace {

// Accessed only through std::atomic_load/store. Nothing is installed by default yet: the host
// HTTP/WebSocket client arrives later and will become the default here.
std::shared_ptr<ISharedRsiClient> g_client;

}  // namespace

std::shared_ptr<ISharedRsiClient> GetSharedRsiClient() {
    return std::atomic_load(&g_client);
}

void SetSharedRsiClient(std::shared_ptr<ISharedRsiClient> client) {
    std::atomic_store(&g_client, std::move(client));
}

}  // namespace qel::rsi::client
