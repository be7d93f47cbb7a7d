#pragma once

namespace talven
{

/// Ctrl-C, SIGTERM and SIGHUP as a flag and a readable descriptor, so that everything is cleaned up
/// on the way out. A Ctrl-C after that ends the program at once; the other two may come in numbers:
/// from every thread of a parent that ends, from an engine that repeats itself.
class CInterrupt
{
public:
    /// Once, before any thread; also ignores SIGPIPE and SIGXFSZ, which are errors of a write here.
    static void Install();
    /// Readable from the first signal on.
    static int GetFd();
    static bool IsSet();
    /// While this is set the first signal only says that it is enough.
    static void SetKeeping(bool bKeeping);
    static bool IsEnough();
};

}  // namespace talven
