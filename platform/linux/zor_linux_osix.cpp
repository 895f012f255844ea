#include "zor_osix.h"

#include <semaphore.h>

#include <ctime>

#include "zor_linux.h"
#include "zor_timer.h"

namespace {

struct tSlot {
  sem_t sem;
  bool used;
};

tSlot slots[4];
constexpr uint32 SLOTS = sizeof(slots) / sizeof(slots[0]);

}  // namespace

tOsixSemId OsixCreateMSem(uint32) {
  for (uint32 i = 0; i < SLOTS; i++) {
    if (slots[i].used) continue;
    if (sem_init(&slots[i].sem, 0, 1) != 0) return 0;
    slots[i].used = true;
    return i + 1;
  }
  return 0;
}

void OsixDeleteSem(tOsixSemId sem) {
  if (sem == 0 || sem > SLOTS || !slots[sem - 1].used) return;
  sem_destroy(&slots[sem - 1].sem);
  slots[sem - 1].used = false;
}

uint64 zorClockTicks() {
  constexpr uint64 ticks_per_second = 100;
  constexpr uint64 nanoseconds_per_tick = 1'000'000'000 / ticks_per_second;
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const uint64 speed = zorClockSpeed();
  // The speed comes before the division, so that a fast clock's ticks are as fine as the time they stand for.
  return static_cast<uint64>(now.tv_sec) * ticks_per_second * speed +
         static_cast<uint64>(now.tv_nsec) * speed / nanoseconds_per_tick;
}

uint32 zorClockSpeed() {
  return zorLinuxConf().clock_speed;
}
