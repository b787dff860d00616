// The run loop: posted work from any thread, timers, quit.
#include "net/run_loop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace wren {
namespace {

using namespace std::chrono_literals;

TEST(RunLoopTest, PostedWorkFromManyThreadsRunsOnTheLoopInPostingOrder) {
  constexpr int kThreads = 4, kTasks = 200;
  RunLoop loop;
  std::vector<std::vector<int>> seen(kThreads);
  std::atomic<int> offLoop = 0;
  int ran = 0;
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < kTasks; ++i)
        loop.post([&, t, i] {
          if (!loop.isLoopThread()) ++offLoop;
          seen[t].push_back(i);
          ++ran;
        });
    });
  }
  std::thread runner([&] { loop.runUntil([&] { return ran == kThreads * kTasks; }); });
  for (auto& p : posters) p.join();
  runner.join();
  EXPECT_EQ(offLoop, 0);
  for (int t = 0; t < kThreads; ++t) {
    ASSERT_EQ(seen[t].size(), size_t(kTasks));
    for (int i = 0; i < kTasks; ++i) EXPECT_EQ(seen[t][i], i);
  }
}

TEST(RunLoopTest, TimersFireInDueOrderAndCancelledOnesNever) {
  RunLoop loop;
  std::vector<int> fired;
  loop.addTimer(30ms, [&] { fired.push_back(3); });
  loop.addTimer(0ms, [&] { fired.push_back(1); });
  auto cancelled = loop.addTimer(10ms, [&] { fired.push_back(99); });
  loop.addTimer(20ms, [&] { fired.push_back(2); });
  loop.cancelTimer(cancelled);
  loop.runUntil([&] { return fired.size() >= 3; });
  EXPECT_EQ(fired, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoopTest, ATimerThatReArmsItselfDoesNotStarvePostedWork) {
  RunLoop loop;
  bool posted = false;
  std::function<void()> again = [&] { loop.addTimer(0ms, again); };
  loop.addTimer(0ms, again);
  loop.post([&] { posted = true; });
  loop.runUntil([&] { return posted; });
  EXPECT_TRUE(posted);
}

TEST(RunLoopTest, QuitFromAnotherThreadEndsRun) {
  RunLoop loop;
  std::atomic<bool> started = false;
  loop.post([&] { started = true; });
  std::thread quitter([&] {
    while (!started) std::this_thread::sleep_for(1ms);
    loop.quit();
  });
  loop.run();  // returns only through quit()
  quitter.join();
  EXPECT_TRUE(started);
}

TEST(RunLoopTest, QuitBeforeRunEndsTheNextRunAtOnceOnly) {
  RunLoop loop;
  loop.quit();
  loop.run();
  int turns = 0;
  loop.post([&] { ++turns; });
  loop.runUntil([&] { return turns == 1; });
  EXPECT_EQ(turns, 1);
}

}  // namespace
}  // namespace wren
