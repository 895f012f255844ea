#pragma once

/// @file
/// The timer list: one sorted list of nodes on one clock, run by its owner's loop. A node's storage belongs to the
/// caller and must stay in place while the node runs. A tick is 1/100 s of the platform's clock.

#include "zor_types.h"

/// What an expired node calls, with the three arguments given to `timerStart`.
using tTimerCallback = void (*)(uintptr_t arg1, uintptr_t arg2, uintptr_t arg3);

/// A timer; zero-filled is a valid node that does not run.
struct tTimerNode {
  list_head node;           ///< place in the timer list; null links while the node does not run
  uint64 expiry;            ///< clock value, in ticks, at which the node is due
  tTimerCallback callback;  ///< called once when due; null: nothing is called
  uintptr_t args[3];        ///< handed to `callback`
};

/// A list of running timers, the one due first at the front. Zero-filled it may be looked at, and has none.
struct tTimerLst {
  list_head nodes;  ///< running `tTimerNode` records in order of `expiry`; equal ones in order of starting
};

/// What `timerListNextTimeout` answers when no timer runs.
constexpr uint32 TIMER_NONE = 0xFFFFFFFFU;

/// Makes `list` empty. Nodes that ran on it are forgotten.
void timerListInit(tTimerLst* list);

/// Starts `node`, or starts it anew if it runs.
///
/// @param[in,out] list      list that runs the node
/// @param[in,out] node      the node
/// @param[in]     ticks     time from now until it is due; 0: at the next check
/// @param[in]     callback  called when due, null for none
/// @param[in]     arg1,arg2,arg3  handed to `callback`
void timerStart(tTimerLst* list, tTimerNode* node, uint64 ticks, tTimerCallback callback, uintptr_t arg1,
                uintptr_t arg2, uintptr_t arg3);

/// Starts `node` again, whether it runs or not, with the callback and arguments of its last `timerStart`.
///
/// @param[in] ticks  time from now until it is due; 0: at the next check
void timerRestart(tTimerLst* list, tTimerNode* node, uint64 ticks);

/// Stops `node`; one that does not run is left as it is.
void timerStop(tTimerLst* list, tTimerNode* node);

/// @return how long to wait, in ticks of real time rounded up, until the first node is due: 0 when it is due now,
///         `TIMER_NONE` when no node runs. A longer wait than 32 bits hold is answered as the largest number below
///         that.
uint32 timerListNextTimeout(const tTimerLst* list);

/// Calls back every node that is due by now, in order of expiry. Each is stopped before its callback runs. A callback
/// may start, restart or stop any node, its own and others that are due; a node started by a callback waits for the
/// next check, even with 0 ticks, so that a check always ends.
void timerListCheck(tTimerLst* list);

/// The clock under the timer list, one for each platform: tests put a clock of their own behind it.
///
/// @return ticks since some fixed moment; never runs backwards.
uint64 zorClockTicks();

/// @return how many ticks of `zorClockTicks` pass in 1/100 s of real time, 1 or more; more than 1 only in labs.
uint32 zorClockSpeed();
