#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

using Bytes = std::vector<std::byte>;

/// When the server did what it must not do: says what was expected in one line and ends the
/// process, so that the input is kept.
void Expect(bool bTrue, const std::string& strWhat);

/// What the server prints goes to a file that ends with the process, unless TALVEN_FUZZ_VERBOSE is
/// set; it writes no log file. \return where to read it, empty when it goes to the real console
const char* TakeConsole();

/// One end of a socket pair becomes the client of the server. \return the other end
int ConnectClient();

/// Serves a client that sends aBytes and closes its direction. \return what it has got
Bytes ServeBytes(std::span<const std::byte> aBytes, const std::function<void()>& fnServe);
