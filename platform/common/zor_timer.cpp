#include "zor_timer.h"

#include <limits>

namespace {

// A list of zeros counts as empty: whoever looks at a list need not know whether it was made.
bool nothing_runs(const tTimerLst* list) {
  return list->nodes.next == nullptr || list_empty(&list->nodes);
}

tTimerNode* first_of(const list_head* head) {
  return list_entry<tTimerNode>(head->next);
}

void unlink_node(tTimerNode* node) {
  list_unlink(&node->node);
  node->node = {};
}

// Searched from the end, so that equal nodes stand in the order in which they were started.
void insert_sorted(tTimerLst* list, tTimerNode* node) {
  list_head* place = list->nodes.prev;
  while (place != &list->nodes && list_entry<tTimerNode>(place)->expiry > node->expiry) place = place->prev;
  list_insert_after(&node->node, place);
}

}  // namespace

void timerListInit(tTimerLst* list) {
  list_init(&list->nodes);
}

void timerStart(tTimerLst* list, tTimerNode* node, uint64 ticks, tTimerCallback callback, uintptr_t arg1,
                uintptr_t arg2, uintptr_t arg3) {
  node->callback = callback;
  node->args[0] = arg1;
  node->args[1] = arg2;
  node->args[2] = arg3;
  timerRestart(list, node, ticks);
}

void timerRestart(tTimerLst* list, tTimerNode* node, uint64 ticks) {
  constexpr uint64 never = std::numeric_limits<uint64>::max();
  const uint64 now = zorClockTicks();
  unlink_node(node);
  node->expiry = ticks > never - now ? never : now + ticks;
  insert_sorted(list, node);
}

// The list is not looked at: during a check the node may stand on the check's own list of due nodes.
void timerStop(tTimerLst*, tTimerNode* node) {
  unlink_node(node);
}

uint32 timerListNextTimeout(const tTimerLst* list) {
  if (nothing_runs(list)) return TIMER_NONE;
  const uint64 expiry = first_of(&list->nodes)->expiry;
  const uint64 now = zorClockTicks();
  if (expiry <= now) return 0;
  const uint64 speed = zorClockSpeed();
  const uint64 wait = (expiry - now) / speed + ((expiry - now) % speed != 0 ? 1 : 0);
  return wait < TIMER_NONE ? static_cast<uint32>(wait) : TIMER_NONE - 1;
}

void timerListCheck(tTimerLst* list) {
  if (nothing_runs(list)) return;
  // What is due now moves to a list of its own first: a node that a callback starts stays behind for the next check,
  // and one that a callback stops leaves whichever of the two lists it is on.
  const uint64 now = zorClockTicks();
  list_head due;
  list_init(&due);
  while (!list_empty(&list->nodes) && first_of(&list->nodes)->expiry <= now) {
    list_head* node = list->nodes.next;
    list_unlink(node);
    list_add_tail(node, &due);
  }
  while (!list_empty(&due)) {
    tTimerNode* node = first_of(&due);
    unlink_node(node);
    if (node->callback != nullptr) node->callback(node->args[0], node->args[1], node->args[2]);
  }
}
