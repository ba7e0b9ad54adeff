#include "rsi/RSIEntryManager.h"

#include "dataformats/Json.h"
#include "dataformats/Ref.h"
#include "rsi/Request.h"

namespace qel::onlineservices::framework::core {

using qel::common::logging::LogLevel;
using qel::dataformats::data::Ref;
using qel::rsi::client::RequestState;
using qel::rsi::client::RequestStateSucceeded;
using qel::rsi::client::Response;

namespace {

constexpr std::uint32_t ENTRY_READ_REQUEST_ID = 3;
constexpr std::uint32_t ENTRY_WRITE_REQUEST_ID = 5;
constexpr char MEDIA_TYPE_JSON[] = "application/json";

bool isSuccess(RequestState const& state, Response const& response) {
    std::int16_t const status = response.getStatus();
    return state.value == RequestStateSucceeded && status >= 200 && status <= 226;
}

// The last path segment of a location, ignoring one trailing slash.
std::string lastSegment(std::string location) {
    if (!location.empty() && location.back() == '/') {
        location.pop_back();
    }
    auto const slash = location.rfind('/');
    return slash == std::string::npos ? location : location.substr(slash + 1);
}

}  // namespace

RSIEntryManager::RSIEntryManager(std::shared_ptr<FrameworkConfig> const& config,
                                 std::shared_ptr<IRSIClientWrapper> const& rsiClient)
    : m_logger((config ? config->loggerName : std::string("framework")) + ".RSIEntryManager"),
      m_rsiClient(rsiClient) {}

void RSIEntryManager::post(std::vector<std::shared_ptr<RSIEntry>> const& entries,
                           std::shared_ptr<IUpdateConditionCallback> const& callback) {
    _processEntrySet(std::make_shared<RSIEntrySet>(entries, callback));
}

void RSIEntryManager::_processEntrySet(std::shared_ptr<RSIEntrySet> const& set) {
    if (!m_rsiClient) {
        m_logger << LogLevel::Error << "No RSI client wrapper to post entries";
        return;
    }
    set->reportIfEmpty();
    for (auto const& entry : set->entries()) {
        auto const handler = _bindHandler(Stage::Get, entry);
        entry->keepResponseHandler(handler);
        entry->setCompletion([set](bool success) { set->entrySetProcessSuccess(success); });

        auto request = std::make_shared<qel::rsi::client::Request>();
        request->type = qel::rsi::client::RequestTypeGetElement;
        request->requestId = ENTRY_READ_REQUEST_ID;
        request->service = entry->service;
        request->resource = entry->resource;
        request->queryParameters = entry->keys;
        m_rsiClient->sendRequest(request, handler);
        m_logger << LogLevel::Info << "GET sent,  waiting for response...";
    }
}

void RSIEntryManager::_handleResponseGet(std::shared_ptr<RSIEntry> const& entry, RequestState const& state,
                                         Response const& response) {
    if (!isSuccess(state, response)) {
        m_logger << LogLevel::Info << entry->description << " GET failed.";
        entry->reportUuid();
        entry->complete(false);
        return;
    }
    m_logger << LogLevel::Info << entry->description << " GET successful. Comparing values...";
    if (_compareWithBackend(*entry, response)) {
        m_logger << LogLevel::Info << "Values up to date!";
        entry->reportUuid();
        entry->complete(true);
        return;
    }
    _sendPost(entry);
}

bool RSIEntryManager::_compareWithBackend(RSIEntry& entry, Response const& response) const {
    Ref const found = Ref(response.getData(false))("data");
    unsigned long const count = found.getArraySize();
    if (count == 0) {
        m_logger << LogLevel::Info << entry.description << " doesn't yet exist";
        return false;
    }
    if (count > 1) {
        m_logger << LogLevel::Info << entry.description << " multiple entries with same key found. This should not happen!";
    }
    Ref const element = found[0];
    bool upToDate = true;
    for (auto const& [key, value] : entry.values) {
        upToDate = upToDate && element(key).asString() == value;
    }
    entry.uuid = element("id").asString();
    return upToDate;
}

void RSIEntryManager::_sendPost(std::shared_ptr<RSIEntry> const& entry) {
    std::string const uuid = entry->uuid;
    bool create = true;
    if (!uuid.empty() && entry->updateIfExisting) {
        m_logger << LogLevel::Info << "Updating entry with UUID " << uuid;
        create = false;
    }
    if (entry->alwaysCreate) {
        create = true;
    }
    auto request = std::make_shared<qel::rsi::client::Request>();
    request->type = create ? qel::rsi::client::RequestTypePostResource : qel::rsi::client::RequestTypePostElement;
    request->requestId = ENTRY_WRITE_REQUEST_ID;
    request->service = entry->service;
    request->resource = entry->resource;
    request->element = create ? std::string() : uuid;
    request->data = createValue(*entry, create);
    request->contentType = MEDIA_TYPE_JSON;
    request->acceptType = MEDIA_TYPE_JSON;

    auto const handler = _bindHandler(create ? Stage::Create : Stage::Update, entry);
    entry->keepResponseHandler(handler);
    m_rsiClient->sendRequest(request, handler);
    m_logger << LogLevel::Info << "POST sent,  waiting for response...";
}

void RSIEntryManager::_handleResponsePost(std::shared_ptr<RSIEntry> const& entry, bool created,
                                          RequestState const& state, Response const& response) {
    if (!isSuccess(state, response)) {
        m_logger << LogLevel::Error << "POST failed. Aborting. Status: " << response.getStatus();
        m_logger << LogLevel::Info << entry->description << " Response: "
                 << qel::dataformats::json::stringify(response.getData(false));
        entry->reportUuid();
        entry->complete(false);
        return;
    }
    m_logger << LogLevel::Info << entry->description << " POST successful, location header: " << response.getLocation();
    // A creation learns the element id from the location; an update keeps the one the read
    // returned when the answer carries no location.
    if (created || !response.getLocation().empty()) {
        entry->uuid = lastSegment(response.getLocation());
    }
    entry->reportUuid();
    entry->complete(true);
}

std::unique_ptr<qel::dataformats::data::Value> RSIEntryManager::createValue(RSIEntry const& entry, bool create) const {
    m_logger << LogLevel::Debug << "Creating RSI object for " << entry.description;
    auto object = std::make_unique<qel::dataformats::data::Object>();
    for (auto const& [key, value] : entry.values) {
        object->setNew(key, std::make_unique<qel::dataformats::data::String>(value));
    }
    if (create) {
        for (auto const& [key, value] : entry.keys) {
            object->setNew(key, std::make_unique<qel::dataformats::data::String>(value));
        }
    }
    return object;
}

std::shared_ptr<RSIResponseHandler> RSIEntryManager::_bindHandler(Stage stage, std::shared_ptr<RSIEntry> const& entry) {
    // Both held weakly: the entry keeps this handler, and the manager may go before the answer.
    // The entry's set keeps the entry until it answered.
    std::weak_ptr<RSIEntryManager> const manager = weak_from_this();
    std::weak_ptr<RSIEntry> const weakEntry = entry;
    return std::make_shared<RSIResponseHandler>(
        [manager, weakEntry, stage](RequestState const& state, Response const& response) {
            // The entry lives while its set waits for it; a gone manager still answers the set.
            auto const target = weakEntry.lock();
            if (!target) {
                return;
            }
            auto const self = manager.lock();
            if (!self) {
                target->complete(false);
                return;
            }
            if (stage == Stage::Get) {
                self->_handleResponseGet(target, state, response);
            } else {
                self->_handleResponsePost(target, stage == Stage::Create, state, response);
            }
        });
}

}  // namespace qel::onlineservices::framework::core
