#include "fake_platform.h"

namespace {

// Each expiry adds its node's letter to `fired`; node `a` then does `action` from inside its callback.
struct TimerTest : testing::Test {
  TimerTest() {
    fake = FakePlatform{};
    fake.clock = 1000;
    timerListInit(&list);
  }
  void start(char letter, uint64 ticks) {
    timerStart(&list, &nodes[letter], ticks, expired, reinterpret_cast<uintptr_t>(this), uintptr_t(letter), 3);
  }
  std::string check_after(uint64 ticks) {
    fake.clock += ticks;
    timerListCheck(&list);
    return std::exchange(fired, "");
  }
  static void expired(uintptr_t self, uintptr_t letter, uintptr_t three) {
    auto* test = reinterpret_cast<TimerTest*>(self);
    test->fired += three == 3 ? static_cast<char>(letter) : '?';
    if (letter == 'a' && test->action) test->action();
  }

  tTimerLst list;
  std::map<char, tTimerNode> nodes;  // elements stay in place; a new one is filled with zeros
  std::string fired;
  std::function<void()> action;
};

TEST_F(TimerTest, FiresInOrderOfExpiryThenOfStart) {
  tTimerLst never_made = {};
  EXPECT_EQ(timerListNextTimeout(&never_made), TIMER_NONE);
  timerListCheck(&never_made);
  const std::pair<char, uint64> started[] = {{'a', 30}, {'b', 10}, {'c', 20}, {'d', 10}, {'c', 25}};
  for (const auto& [letter, ticks] : started) start(letter, ticks);
  EXPECT_EQ(timerListNextTimeout(&list), 10U);
  EXPECT_EQ(check_after(9), "");
  fake.clock += 2;
  EXPECT_EQ(timerListNextTimeout(&list), 0U) << "overdue";
  EXPECT_EQ(check_after(0), "bd");
  EXPECT_EQ(check_after(13), "") << "started anew, c has lost its first expiry";
  EXPECT_EQ(check_after(100), "ca");
  EXPECT_EQ(timerListNextTimeout(&list), TIMER_NONE);
}

TEST_F(TimerTest, TimeoutIsClampedAndExpiryDoesNotWrap) {
  for (uint64 ticks : {uint64{TIMER_NONE}, UINT64_MAX}) {
    start('a', ticks);
    EXPECT_EQ(timerListNextTimeout(&list), TIMER_NONE - 1);
  }
  start('b', UINT64_MAX - fake.clock - 1);
  EXPECT_EQ(check_after(UINT64_MAX - fake.clock), "ba");
  fake.clock = 9;
  fake.clock_speed = 4;
  for (const auto& [ticks, wait] : {std::pair<uint64, uint32>{1, 1}, {4, 1}, {5, 2}, {400, 100}}) {
    start('a', ticks);
    EXPECT_EQ(timerListNextTimeout(&list), wait) << "in real time, rounded up";
  }
}

TEST_F(TimerTest, CallbackStopsMovesAndStartsNodesAndTheCheckEnds) {
  for (char letter : {'a', 'b', 'c', 'd', 'e'}) start(letter, letter == 'e' ? 5 : 1);
  action = [&] {
    for (char letter : {'b', 'b', 'e', 'x'}) timerStop(&list, &nodes[letter]);
    timerRestart(&list, &nodes['c'], 5);
    timerRestart(&list, &nodes['y'], 0);  // has no callback
    for (char letter : {'a', 'f'}) start(letter, 0);
  };
  EXPECT_EQ(check_after(1), "ad");
  action = [&] { timerStop(&list, &nodes['a']); };
  EXPECT_EQ(check_after(0), "af");
  EXPECT_EQ(check_after(5), "c");
}

}  // namespace
