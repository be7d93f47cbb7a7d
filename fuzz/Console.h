#pragma once

/// The server did what it must not do: says it in one line and ends the process, so that the input
/// is kept.
[[noreturn, gnu::format(printf, 1, 2)]] void Broken(const char* pcFormat, ...);

/// What the server prints goes to a file that ends with the process, unless TALVEN_FUZZ_VERBOSE is
/// set; it writes no log file. \return where to read it, empty when it goes to the real console
const char* TakeConsole();
