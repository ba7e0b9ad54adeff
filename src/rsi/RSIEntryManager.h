// Makes the application's entries exist at the backend with the right values, without blind
// writes: read each entry, compare, and post only what differs.
//
// Contract: `post` sends one read per entry and returns; the rest runs on the RSI worker thread.
// An entry whose values match the backend's is done without a write; otherwise it is updated in
// place (when it allows that and its element id is known) or created. Each entry's outcome goes
// to its set, which holds the entries of the call until they answered and reports to the
// caller's callback. Status 200 to 226 counts as success; there is no retry beyond the request
// job's own. Must be owned by a `std::shared_ptr`: its response
// handlers refer back to it weakly.
#pragma once

#include "common/Logger.h"
#include "config/FrameworkConfig.h"
#include "core/IUpdateConditionCallback.h"
#include "dataformats/Value.h"
#include "rsi/IRSIClientWrapper.h"
#include "rsi/RSIEntry.h"
#include "rsi/RSIEntrySet.h"

#include <memory>
#include <vector>

namespace qel::onlineservices::framework::core {

class RSIEntryManager : public std::enable_shared_from_this<RSIEntryManager> {
public:
    RSIEntryManager(std::shared_ptr<FrameworkConfig> const& config,
                    std::shared_ptr<IRSIClientWrapper> const& rsiClient);

    void post(std::vector<std::shared_ptr<RSIEntry>> const& entries,
              std::shared_ptr<IUpdateConditionCallback> const& callback);

    // The body of a write: the entry's values, plus its keys when the element is created.
    std::unique_ptr<qel::dataformats::data::Value> createValue(RSIEntry const& entry, bool create) const;
    std::unique_ptr<qel::dataformats::data::Value> createValue(std::shared_ptr<RSIEntry> const& entry,
                                                               bool create) const {
        return createValue(*entry, create);
    }

    // The steps of a post: read each entry of `set`, then compare and write what differs.
    void _processEntrySet(std::shared_ptr<RSIEntrySet> const& set);
    void _handleResponseGet(std::shared_ptr<RSIEntry> const& entry, qel::rsi::client::RequestState const& state,
                            qel::rsi::client::Response const& response);

private:
    enum class Stage { Get, Create, Update };

    void _handleResponsePost(std::shared_ptr<RSIEntry> const& entry, bool created,
                             qel::rsi::client::RequestState const& state, qel::rsi::client::Response const& response);
    // True when the backend's first element carries every value of the entry; learns its id.
    bool _compareWithBackend(RSIEntry& entry, qel::rsi::client::Response const& response) const;
    void _sendPost(std::shared_ptr<RSIEntry> const& entry);
    // A response handler that calls the stage's member on this manager for `entry`, while both live.
    std::shared_ptr<RSIResponseHandler> _bindHandler(Stage stage, std::shared_ptr<RSIEntry> const& entry);

    qel::common::logging::Logger const m_logger;
    std::shared_ptr<IRSIClientWrapper> const m_rsiClient;
};

}  // namespace qel::onlineservices::framework::core
