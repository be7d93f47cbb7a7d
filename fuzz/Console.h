#pragma once

/// The server did what it must not do: says it in one line and ends the process, so that the input
/// is kept.
[[noreturn, gnu::format(printf, 1, 2)]] void Broken(const char* pcFormat, ...);

/// Drops what the server prints, unless TALVEN_FUZZ_VERBOSE is set; it writes no log file either.
void SilenceServer();
