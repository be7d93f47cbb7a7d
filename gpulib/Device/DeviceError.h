#pragma once

#include <string>

/// Notes why a device operation failed on this thread; the first reason is kept until it is taken.
/// Always returns false, so that a failing operation can end with `return DeviceFail(...)`.
[[gnu::format(printf, 1, 2)]] bool DeviceFail(const char* pcFormat, ...);

/// Hands over the reason noted on this thread, empty when there is none, and forgets it.
std::string TakeDeviceError();
