// Finds the addresses of the backend's host name for the host client, bounded by a time-out.
//
// Contract: `resolve` never blocks longer than the time-out it is given. An address literal is
// answered at once. A name is looked up on the resolver's own thread ("rsi-resolve"), one lookup
// at a time; a lookup that outlasts the caller's time-out is reported as not finished and keeps
// running, and the next `resolve` waits for that same lookup instead of starting another, so a
// hanging lookup never piles up threads. Every answer of a finished lookup is used once; nothing
// is cached. The destructor joins the thread, waiting for a lookup that still runs (the system's
// lookup ends by its own time-outs). Thread-safe.
#pragma once

#include "common/Logger.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qel::rsi::client::host {

class NameResolver {
public:
    struct Result {
        std::vector<std::string> addresses;  // address literals, in the lookup's order
        std::string error;                   // empty when addresses were found
    };
    // A blocking lookup of a host name; the system's by default. Tests give a stand-in.
    using Lookup = std::function<Result(std::string const& host)>;

    static Result systemLookup(std::string const& host);

    explicit NameResolver(std::string host, Lookup lookup = {});
    ~NameResolver();
    NameResolver(NameResolver const&) = delete;
    NameResolver& operator=(NameResolver const&) = delete;

    Result resolve(std::uint32_t timeoutMs);

private:
    struct Pending {
        bool done = false;
        Result result;
    };

    std::shared_ptr<Pending> startLookup();  // called with m_mutex held

    common::logging::Logger const m_logger{"rsi.host.resolve"};
    std::string const m_host;
    Lookup const m_lookup;
    std::mutex m_mutex;
    std::condition_variable m_finished;
    std::shared_ptr<Pending> m_pending;  // guarded by m_mutex; the lookup not yet taken by a caller
    std::thread m_thread;                // guarded by m_mutex
};

}  // namespace qel::rsi::client::host
