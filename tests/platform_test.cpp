// Platform services: module loading, the monotonic counter, sleeping and threads.
#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>

#include "platform/module.h"
#include "platform/perf_counter.h"
#include "platform/sleep.h"
#include "platform/thread.h"

namespace vexel {
namespace {

TEST(ModuleLoading, ResolvesWhatExistsAndNothingElse) {
    EXPECT_FALSE(ModuleHandle("libVexelAbsentModule.so"));
    EXPECT_EQ(LoadModule(nullptr), nullptr);
    EXPECT_EQ(LoadModule(""), nullptr);
    EXPECT_EQ(FindSymbol(nullptr, "cos"), nullptr);

    ModuleHandle math("libm.so.6");
    ASSERT_TRUE(math);
    EXPECT_EQ(math.Symbol("VexelNoSuchSymbol"), nullptr);
    EXPECT_EQ(math.Symbol(nullptr), nullptr);
    auto cosine = math.Function<double (*)(double)>("cos");
    ASSERT_NE(cosine, nullptr);
    EXPECT_EQ(cosine(0.0), 1.0);

    ModuleHandle moved(std::move(math));
    EXPECT_FALSE(math);
    ModuleHandle assigned;
    assigned = std::move(moved);
    EXPECT_FALSE(moved);
    EXPECT_NE(assigned.Symbol("cos"), nullptr);
    assigned.KeepLoaded();
    EXPECT_FALSE(assigned);
}

TEST(PerfCounter, IsMonotonicWithASaneFrequency) {
    const int64_t frequency = PerfCounterFrequency();
    EXPECT_GE(frequency, 1000);  // at least millisecond resolution

    int64_t previous = ReadPerfCounter();
    for (int i = 0; i < 10000; ++i) {
        const int64_t now = ReadPerfCounter();
        ASSERT_GE(now, previous);
        previous = now;
    }
    const int64_t before = ReadPerfCounter();
    Sleep(2);
    // A sleep lasts at least as long as asked; no upper bound is assumed.
    EXPECT_GE(ReadPerfCounter() - before, 2 * frequency / 1000);
    Sleep(0);
}

TEST(Thread, RunsNamedBodyAndJoins) {
    Thread thread;
    std::atomic<bool> ran{false};
    std::string name;
    ASSERT_TRUE(thread.Start(
        [&] {
            char buffer[16] = {};
            pthread_getname_np(pthread_self(), buffer, sizeof buffer);
            name = buffer;
            ran = true;
        },
        "vexel-render-thread"));
    EXPECT_TRUE(thread.IsStarted());
    EXPECT_FALSE(thread.Start([] {}));  // one thread at a time
    thread.Join();
    EXPECT_TRUE(ran);
    EXPECT_FALSE(thread.IsStarted());
    EXPECT_EQ(name, "vexel-render-th");
    thread.Join();  // a second join has nothing to wait for

    ran = false;
    ASSERT_TRUE(thread.Start([&] { ran = true; }));  // restartable after a join
    thread.Join();
    EXPECT_TRUE(ran);
    EXPECT_FALSE(thread.Start(nullptr));
}

TEST(Thread, DestructionJoinsAndSelfJoinDoesNotDeadlock) {
    std::atomic<int> done{0};
    {
        Thread thread;
        ASSERT_TRUE(thread.Start([&] {
            Sleep(1);
            ++done;
        }));
    }
    EXPECT_EQ(done, 1);

    // The body outlives its Thread's ownership once it detaches itself, so it owns what it touches.
    auto started = std::make_shared<std::promise<void>>();
    auto finished = std::make_shared<std::promise<void>>();
    std::future<void> finishedFuture = finished->get_future();
    Thread thread;
    ASSERT_TRUE(thread.Start([&thread, gate = started->get_future().share(), finished] {
        gate.wait();    // Start has returned
        thread.Join();  // from the thread itself: left to end on its own
        finished->set_value();
    }));
    started->set_value();
    finishedFuture.get();
}

}  // namespace
}  // namespace vexel
