// Platform services: threads.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>

#include "platform/thread.h"

namespace vexel {
namespace {

TEST(Thread, RunsNamedRestartsAndSurvivesJoinsFromAnywhere) {
    std::string name;
    {
        Thread thread;
        ASSERT_TRUE(thread.Start(
            [&] {
                char buffer[16] = {};
                pthread_getname_np(pthread_self(), buffer, sizeof buffer);
                name = buffer;
            },
            "vexel-render-thread"));        // longer than the system's 15 characters
        EXPECT_FALSE(thread.Start([] {}));  // one thread at a time
        thread.Join();
        thread.Join();
        EXPECT_EQ(name, "vexel-render-th");
        ASSERT_TRUE(thread.Start([&] { name.clear(); }));  // restartable; destruction joins
    }
    EXPECT_EQ(name, "");

    // A body that joins its own Thread is left to end on its own instead of deadlocking.
    auto started = std::make_shared<std::promise<void>>();
    auto finished = std::make_shared<std::promise<void>>();
    std::future<void> finishedFuture = finished->get_future();
    Thread thread;
    ASSERT_TRUE(thread.Start([&thread, gate = started->get_future().share(), finished] {
        gate.wait();
        thread.Join();
        finished->set_value();
    }));
    started->set_value();
    finishedFuture.get();
}

}  // namespace
}  // namespace vexel
