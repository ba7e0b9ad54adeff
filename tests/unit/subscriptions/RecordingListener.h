// A listener of every kind that records what it heard ("token nav t-1") and on which thread.
#pragma once

#include "common/Thread.h"
#include "support/RsiRecorders.h"

#include <onlineservices/framework/IBackendJobListener.h>
#include <onlineservices/framework/IKVSListener.h>
#include <onlineservices/framework/IServiceDataListener.h>

#include <algorithm>
#include <string>
#include <vector>

namespace qel::test {

using onlineservices::framework::core::BackendJobAcknowledgeCode;
namespace items = onlineservices::framework::dataitems;

class RecordingListener : public onlineservices::framework::core::IServiceDataListener,
                          public onlineservices::framework::core::IKVSListener,
                          public onlineservices::framework::core::IBackendJobListener {
public:
    struct Heard {
        std::string what;
        std::string thread;
    };

    void onDisableReasonChanged(std::string const& id, std::vector<std::string> const& reasons) override {
        std::string joined;
        for (auto const& reason : reasons) {
            joined += (joined.empty() ? "" : ",") + reason;
        }
        record("reasons " + id + " " + joined);
    }
    void onTokenChanged(std::string const& id, std::string const& token) override {
        record("token " + id + " " + token);
    }
    void onBaseURLChanged(std::string const& id, std::string const& url) override {
        record("baseUrl " + id + " " + url);
    }
    void onServiceDataChanged(std::string const& id, std::shared_ptr<items::ServiceObject> const&) override {
        record("service " + id);
    }
    void onKVSItemChanged(std::string const& key, std::string const& value) override {
        record("kvs " + key + " " + value);
    }
    BackendJobAcknowledgeCode onBackendJobReceived(std::shared_ptr<items::JobObject> const& job) override {
        record("job " + job->id + " " + job->jobType);
        return jobAnswer;
    }

    std::vector<std::string> whats() const {
        std::vector<std::string> result;
        for (auto const& call : heard.all()) {
            result.push_back(call.what);
        }
        return result;
    }
    std::size_t times(std::string const& what) const {
        auto const all = whats();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), what));
    }
    // Every call so far ran on `thread`.
    bool allOn(std::string const& thread) const {
        auto const all = heard.all();
        return std::all_of(all.begin(), all.end(), [&](Heard const& call) { return call.thread == thread; });
    }

    Recorder<Heard> heard;
    BackendJobAcknowledgeCode jobAnswer = BackendJobAcknowledgeCode::SUCCESS;

private:
    void record(std::string what) { heard.add({std::move(what), common::system::currentThreadName()}); }
};

}  // namespace qel::test
