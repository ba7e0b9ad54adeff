#include "support/LogCapture.h"

#include "common/Logger.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using qel::common::logging::LogConfig;
using qel::common::logging::LogLevel;
using qel::common::logging::Logger;

// Counts how often it was streamed, so a test can see whether a disabled record formats.
struct Probe {
    mutable int* streamed;
};
std::ostream& operator<<(std::ostream& out, Probe const& probe) {
    ++*probe.streamed;
    return out << "probe";
}

TEST(Logger, RecordJoinsPiecesAndEndsWithTheStatement) {
    qel::test::LogCapture log;
    Logger logger("framework_nav.notifier");
    logger << LogLevel::Info << "a" << 1 << std::string("b") << 'c' << true << 2.5 << -7L << 42u;
    logger << LogLevel::Error << "second";

    auto const entries = log.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].message, "a1bc12.5-742");
    EXPECT_EQ(entries[0].context, "framework_nav.notifier");
    EXPECT_EQ(entries[0].level, LogLevel::Info);
    EXPECT_EQ(entries[1].message, "second");
}

TEST(Logger, RecordBelowThresholdFormatsNothing) {
    qel::test::LogCapture log;
    LogConfig::setThreshold(LogLevel::Warning);
    int streamed = 0;
    Logger logger("ctx");
    logger << LogLevel::Info << "dropped " << Probe{&streamed};
    logger << LogLevel::Warning << "kept " << Probe{&streamed};

    EXPECT_EQ(streamed, 1);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"kept probe"});
}

TEST(Logger, ConcurrentRecordsStayWhole) {
    qel::test::LogCapture log;
    Logger logger("ctx");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&logger, t] {
            for (int i = 0; i < 200; ++i) {
                logger << LogLevel::Debug << "thread " << t << " line " << i;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(log.countPrefix(LogLevel::Debug, "thread "), 800u);
    EXPECT_EQ(log.count(LogLevel::Debug, "thread 3 line 199"), 1u);
}

TEST(Logger, RemovedSinkHearsNothingMore) {
    auto sink = std::make_shared<qel::common::logging::CaptureSink>();
    LogConfig::addSink(sink);
    Logger("ctx") << LogLevel::Error << "one";
    LogConfig::removeSink(sink);
    Logger("ctx") << LogLevel::Error << "two";
    ASSERT_EQ(sink->entries().size(), 1u);
    EXPECT_EQ(sink->entries()[0].message, "one");
}

}  // namespace
