// Prints every run state the client enters.
//
// Called on whichever framework thread moved the client, one state at a time and in order. It may
// print, record or signal another thread; it must not call back into the client (no `stop`, no
// `pauseConnection`, no listener registration): hand such work to the application's thread.
#pragma once

#include "Timeline.h"

#include <onlineservices/framework/IRunStateListener.h>

#include <map>

class RunStatePrinter : public qel::onlineservices::framework::core::IRunStateListener {
public:
    explicit RunStatePrinter(Timeline& timeline) : m_timeline(timeline) {}

    void onRunStateChanged(qel::onlineservices::framework::core::RunState state) override {
        using qel::onlineservices::framework::core::RunState;
        static std::map<RunState, char const*> const names{
            {RunState::INVALID, "INVALID"},   {RunState::CREATED, "CREATED"}, {RunState::STARTED, "STARTED"},
            {RunState::RESUMED, "RESUMED"},   {RunState::PAUSED, "PAUSED"},   {RunState::STOPPED, "STOPPED"},
            {RunState::DESTROYED, "DESTROYED"}, {RunState::DISCONNECTED, "DISCONNECTED"}};
        auto const name = names.find(state);
        m_timeline.print(std::string("state ") + (name != names.end() ? name->second : "UNKNOWN"));
    }

private:
    Timeline& m_timeline;
};
