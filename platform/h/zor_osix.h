#pragma once

/// @file
/// The operating system layer's semaphores.

#include "zor_types.h"

/// Handle of a semaphore; 0 is none.
using tOsixSemId = uint32;

/// Creates a semaphore with a count of 1.
///
/// @param[in] kind  what it guards, for a platform that keeps such a list; any number
/// @return the handle, or 0 when there is none left. The caller deletes it with `OsixDeleteSem`.
tOsixSemId OsixCreateMSem(uint32 kind);

/// Deletes a semaphore. A handle that is 0, or was deleted already, does nothing.
void OsixDeleteSem(tOsixSemId sem);
