#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

using Bytes = std::vector<std::byte>;

/// The server did what it must not do: says it in one line and ends the process, so that the input
/// is kept.
[[noreturn, gnu::format(printf, 1, 2)]] void Broken(const char* pcFormat, ...);

/// What the server prints goes to a file that ends with the process, unless TALVEN_FUZZ_VERBOSE is
/// set; it writes no log file. \return where to read it, empty when it goes to the real console
const char* TakeConsole();

/// One end of a socket pair becomes the client of the server. \return the other end
int ConnectClient();

/// Serves a client that sends aBytes, closes its direction, and hangs up when it has sent all and
/// got tEnough bytes, or with the server. \return what it has got
Bytes ServeBytes(std::span<const std::byte> aBytes, const std::function<void()>& fnServe,
                 std::size_t tEnough = SIZE_MAX);
