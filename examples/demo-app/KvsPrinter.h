// Prints every value the backend holds for the application's key-value items.
//
// Called on the item's own queue thread, one call per change. Keep it short: the next change of
// the same item waits for it. Never call `updateKVSItem` from here: it blocks until the backend
// answers, and the answer is delivered on the thread this callback holds up.
#pragma once

#include "Timeline.h"

#include <onlineservices/framework/IKVSListener.h>

class KvsPrinter : public qel::onlineservices::framework::core::IKVSListener {
public:
    explicit KvsPrinter(Timeline& timeline) : m_timeline(timeline) {}

    void onKVSItemChanged(std::string const& key, std::string const& value) override {
        m_timeline.print("kvs " + key + " = " + value);
    }

private:
    Timeline& m_timeline;
};
