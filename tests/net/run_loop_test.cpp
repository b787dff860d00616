// The run loop: posted work from any thread, and timers. Quitting from
// another thread is covered with Ajax's completions (ajax_test).
#include "net/run_loop.h"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>

namespace wren {
namespace {

using namespace std::chrono_literals;

TEST(RunLoopTest, PostedWorkFromManyThreadsRunsOnTheLoopInPostingOrder) {
  constexpr int kThreads = 4, kTasks = 200;
  RunLoop loop;
  std::vector<std::vector<int>> seen(kThreads);
  int ran = 0;
  std::vector<std::thread> posters;  // each posts its own tasks in order
  for (int t = 0; t < kThreads; ++t)
    posters.emplace_back([&, t] {
      for (int i = 0; i < kTasks; ++i) loop.post([&, t, i] { seen[t].push_back(i), ++ran; });
    });
  std::thread runner([&] { loop.runUntil([&] { return ran == kThreads * kTasks; }); });
  for (auto& p : posters) p.join();
  runner.join();
  std::vector<int> inOrder(kTasks);
  std::iota(inOrder.begin(), inOrder.end(), 0);
  EXPECT_EQ(seen, std::vector<std::vector<int>>(kThreads, inOrder));
}

TEST(RunLoopTest, TimersFireInDueOrderCancelledOnesNeverAndReArmingDoesNotStarvePosts) {
  RunLoop loop;
  std::vector<int> fired;
  for (int ms : {30, 0, 20}) loop.addTimer(std::chrono::milliseconds(ms), [&, ms] { fired.push_back(ms); });
  loop.cancelTimer(loop.addTimer(10ms, [&] { fired.push_back(10); }));
  loop.runUntil([&] { return fired.size() >= 3; });
  EXPECT_EQ(fired, (std::vector<int>{0, 20, 30}));
  bool posted = false;
  std::function<void()> again = [&] { loop.addTimer(0ms, again); };
  loop.addTimer(0ms, again);
  loop.post([&] { posted = true; });
  loop.runUntil([&] { return posted; });  // would never return if the timer kept every turn
}

}  // namespace
}  // namespace wren
