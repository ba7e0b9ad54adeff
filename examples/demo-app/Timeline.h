// Prints what happens to the client as one line per event, with the milliseconds since start:
//
//   [    412 ms] state RESUMED
//
// Listeners run on framework threads, so printing is serialised here; a line is flushed at once so
// that a program reading the output sees it as it happens.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

class Timeline {
public:
    Timeline() : m_start(std::chrono::steady_clock::now()) {}

    void print(std::string const& what);

private:
    std::chrono::steady_clock::time_point const m_start;
    std::mutex m_mutex;  // one line at a time
};
