#pragma once

/// @file
/// Debug print and crash handler.

/// Prints a debug message on standard output at once, in order with what `printf` wrote before it.
///
/// @param[in] format  as of `printf`; the text brings its own line end
[[gnu::format(printf, 1, 2)]] void NM_DEBUG_OUTPUT(const char* format, ...);

/// Installs the crash handler: a fatal signal writes a line and, where the C library can, a backtrace to standard error
/// from a stack of its own; then the signal's default action ends the process, with a core where cores are enabled.
///
/// @param[in] argc,argv  of `main`; `argv[0]` names the process in the report and must stay valid
void zorCatchSegFault(int argc, char** argv);
