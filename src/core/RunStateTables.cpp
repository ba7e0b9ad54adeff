#include "core/RunStateTables.h"

namespace qel::onlineservices::framework::core {

namespace {

using C = ConditionName;
using R = RunState;

std::vector<ConditionRequest> const& connectConditions() {
    static std::vector<ConditionRequest> const conditions{
        {C::RSI_SERVICEMANAGEMENT_AVALAIABLE, true},
        {C::RSI_BACKENDJOBS_AVAILABLE, true},
        {C::RSI_CAPABILITIESMANAGEMENT_AVAILABLE, true},
        {C::RSI_ONLINEKVS_AVAILABLE, true},
        {C::RSI_TOKENMANAGEMENT_AVAILABLE, true},
        {C::POSTED_CAPABILITIES, true},
        {C::POSTED_JOBENTRIES, true},
        {C::POSTED_OPERATION_ENTRIES, true},
        {C::SUBSCRIBED_SERVICEMANAGEMENT, true},
    };
    return conditions;
}

}  // namespace

std::unique_ptr<UsecaseTable> buildUsecaseTable() {
    auto table = std::make_unique<UsecaseTable>();
    (*table)[UseCase::RUNNING] = {{R::DISCONNECTED, R::CREATED}, {R::INVALID, R::CREATED}, {R::CREATED, R::STARTED},
                                  {R::STARTED, R::RESUMED},      {R::STOPPED, R::STARTED}, {R::PAUSED, R::RESUMED}};
    (*table)[UseCase::PAUSE] = {{R::DISCONNECTED, R::CREATED}, {R::INVALID, R::CREATED}, {R::CREATED, R::STARTED},
                                {R::STARTED, R::PAUSED},       {R::STOPPED, R::STARTED}, {R::RESUMED, R::PAUSED}};
    (*table)[UseCase::DISABLEREASON] = {{R::DISCONNECTED, R::CREATED}, {R::INVALID, R::CREATED},
                                        {R::CREATED, R::STARTED},      {R::STARTED, R::PAUSED},
                                        {R::RESUMED, R::PAUSED},       {R::PAUSED, R::STOPPED}};
    (*table)[UseCase::DISCONNECT] = {{R::INVALID, R::DISCONNECTED}, {R::CREATED, R::DISCONNECTED},
                                     {R::STARTED, R::DISCONNECTED}, {R::RESUMED, R::DISCONNECTED},
                                     {R::PAUSED, R::DISCONNECTED},  {R::STOPPED, R::DISCONNECTED}};
    (*table)[UseCase::SHUTDOWN] = {{R::DISCONNECTED, R::DESTROYED}, {R::INVALID, R::DESTROYED},
                                   {R::CREATED, R::DESTROYED},      {R::STARTED, R::DESTROYED},
                                   {R::RESUMED, R::DESTROYED},      {R::PAUSED, R::DESTROYED},
                                   {R::STOPPED, R::DESTROYED}};
    return table;
}

std::unique_ptr<TransitionTable> buildTransitionTable() {
    auto table = std::make_unique<TransitionTable>();
    auto& t = *table;
    t[{R::INVALID, R::CREATED}] = connectConditions();
    t[{R::DISCONNECTED, R::CREATED}] = connectConditions();
    t[{R::CREATED, R::STARTED}] = {{C::SUBSCRIBED_PRIVACYSETUP, true}, {C::POSTED_KVS, true}};
    t[{R::STARTED, R::RESUMED}] = {{C::SUBSCRIBED_KVS, true},
                                   {C::SUBSCRIBED_BACKENDJOBS, true},
                                   {C::SUBSCRIBED_TOKENMANAGEMENT, true},
                                   {C::CONNECTED_NETWORKING, true}};
    t[{R::STARTED, R::PAUSED}] = {{C::SUBSCRIBED_KVS, true}};
    t[{R::RESUMED, R::PAUSED}] = {{C::CONNECTED_NETWORKING, false}, {C::SUBSCRIBED_TOKENMANAGEMENT, false}};
    t[{R::PAUSED, R::RESUMED}] = {{C::SUBSCRIBED_TOKENMANAGEMENT, true}, {C::CONNECTED_NETWORKING, true}};
    t[{R::PAUSED, R::STOPPED}] = {
        {C::SUBSCRIBED_BACKENDJOBS, false}, {C::SUBSCRIBED_KVS, false}, {C::SUBSCRIBED_PRIVACYSETUP, false}};
    t[{R::STOPPED, R::STARTED}] = {{C::SUBSCRIBED_PRIVACYSETUP, true}};
    // An empty list is taken at once. DISCONNECTED -> DESTROYED is deliberately absent: the client
    // takes an unlisted transition at once too, after saying it is not allowed.
    t[{R::INVALID, R::DESTROYED}] = {};
    t[{R::CREATED, R::DESTROYED}] = {{C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::STARTED, R::DESTROYED}] = {
        {C::SUBSCRIBED_KVS, false}, {C::SUBSCRIBED_PRIVACYSETUP, false}, {C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::RESUMED, R::DESTROYED}] = {{C::SUBSCRIBED_TOKENMANAGEMENT, false},
                                     {C::SUBSCRIBED_BACKENDJOBS, false},
                                     {C::SUBSCRIBED_KVS, false},
                                     {C::SUBSCRIBED_PRIVACYSETUP, false},
                                     {C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::PAUSED, R::DESTROYED}] = {{C::SUBSCRIBED_BACKENDJOBS, false},
                                    {C::SUBSCRIBED_KVS, false},
                                    {C::SUBSCRIBED_PRIVACYSETUP, false},
                                    {C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::STOPPED, R::DESTROYED}] = {{C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::INVALID, R::DISCONNECTED}] = {{C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::CREATED, R::DISCONNECTED}] = {{C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::STARTED, R::DISCONNECTED}] = {
        {C::SUBSCRIBED_KVS, false}, {C::SUBSCRIBED_PRIVACYSETUP, false}, {C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::RESUMED, R::DISCONNECTED}] = {{C::SUBSCRIBED_TOKENMANAGEMENT, false},
                                        {C::SUBSCRIBED_KVS, false},
                                        {C::SUBSCRIBED_PRIVACYSETUP, false},
                                        {C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::PAUSED, R::DISCONNECTED}] = {
        {C::SUBSCRIBED_KVS, false}, {C::SUBSCRIBED_PRIVACYSETUP, false}, {C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    t[{R::STOPPED, R::DISCONNECTED}] = {{C::SUBSCRIBED_SERVICEMANAGEMENT, false}};
    return table;
}

std::unique_ptr<SkipConditionList> buildSkipConditions(FrameworkSubConfig const& config,
                                                       ClientWorkload const& workload) {
    bool const s = config.skipServiceSubscription || !workload.hasServiceItems;
    bool const t = config.skipTokenSubscription || !workload.hasTokenItems;
    bool const p = config.skipPrivacySubscription || !workload.hasPrivacyItems;
    bool const j = config.skipJobSubscription || !workload.hasJobItems;
    bool const e = config.skipJobEntries || !workload.hasJobEntries;
    bool const o = config.skipOperationEntries || !workload.hasOperationEntries;
    bool const c = config.skipCapabilities || !workload.hasCapabilities;
    bool const k = config.skipKVSSubscription || !workload.hasKvsItems || !workload.hasKvsEntries;
    // Networking is registered per service of the service list.
    bool const n = config.skipNetworkingRegistration || !workload.hasServiceItems;

    auto list = std::make_unique<SkipConditionList>();
    list->emplace_back(s && t, C::RSI_SERVICEMANAGEMENT_AVALAIABLE);
    list->emplace_back(t, C::RSI_TOKENMANAGEMENT_AVAILABLE);
    list->emplace_back(s || t, C::SUBSCRIBED_TOKENMANAGEMENT);
    list->emplace_back(s, C::SUBSCRIBED_SERVICEMANAGEMENT);
    list->emplace_back(p, C::SUBSCRIBED_PRIVACYSETUP);
    list->emplace_back(j && e && o, C::RSI_BACKENDJOBS_AVAILABLE);
    list->emplace_back(j, C::SUBSCRIBED_BACKENDJOBS);
    list->emplace_back(e, C::POSTED_JOBENTRIES);
    list->emplace_back(o, C::POSTED_OPERATION_ENTRIES);
    list->emplace_back(s, C::SUBSCRIBED_SERVICEMANAGEMENT);  // a harmless repeat, kept
    list->emplace_back(n, C::CONNECTED_NETWORKING);
    list->emplace_back(k, C::RSI_ONLINEKVS_AVAILABLE);
    list->emplace_back(k, C::SUBSCRIBED_KVS);
    list->emplace_back(k, C::POSTED_KVS);
    list->emplace_back(c, C::RSI_CAPABILITIESMANAGEMENT_AVAILABLE);
    list->emplace_back(c, C::POSTED_CAPABILITIES);
    return list;
}

}  // namespace qel::onlineservices::framework::core
