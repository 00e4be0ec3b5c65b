// With `wakeclients`, threads that wait are woken as soon as they can go on; without it, they look
// at the next poll.
#pragma once

#include <cstdint>

#include "base/CAsleepers.h"

// Worker threads sleep here while they wait for anything but a URL (those sleep at the queue), and
// are woken when they are stopped. Never deleted: one may be left behind at the end.
extern CASleepers &heldClients;

// Wakes all worker threads that sleep, so that they see that they are stopped. Does nothing without
// `wakeclients`. Master thread, after CAWorkerThread::stop().
void CAWakeStopped();

// Wakes the master thread from its poll, because the run may be over or all workers gone. Does
// nothing without `wakeclients`. Any thread.
void CAWakeMaster();
// The signal that does it, which all threads block. No other use is made of it.
[[nodiscard]] int CAWakeSignal();
