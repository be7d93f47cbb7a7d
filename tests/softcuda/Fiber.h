#pragma once

#include <ucontext.h>

#include <memory>

#include "softcuda/Types.h"

#if defined(__has_feature)  // how clang says it
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1
#elif __has_feature(thread_sanitizer)
#define __SANITIZE_THREAD__ 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#elif defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

/// For code that switches: what it touches is not shared between threads of the program.
#define UNSEEN [[gnu::no_sanitize("thread"), gnu::noinline]]

namespace SoftCuda
{
/// Something that a thread of the machine can run on and leave in the middle, and that sanitizers
/// know as such. To ThreadSanitizer it is a thread, and switching orders nothing by itself: only
/// Publish() and Observe() do.
struct Context
{
    ucontext_t aState{};
    const void* pvStack = nullptr;
    std::size_t tStack = 0;
    void* pvFakeStack = nullptr;  // AddressSanitizer's
    void* pvThread = nullptr;     // ThreadSanitizer's
};

/// One CUDA thread of a block with barriers.
struct Fiber : Context
{
    Fiber();
    std::unique_ptr<char[]> pcStack;
    uint3 aThread{};
    bool bDone = false;
};

/// Leaves rFrom, which this thread runs on, for rTo. \param bEnd  nobody comes back to rFrom
void Switch(Context& rFrom, Context& rTo, bool bEnd = false);
/// The first thing that a context does which was begun and not left. \param rFrom  where from
void Arrive(Context& rFrom);

inline void Publish([[maybe_unused]] void* pvMark)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_release(pvMark);
#endif
}
inline void Observe([[maybe_unused]] void* pvMark)
{
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(pvMark);
#endif
}
}  // namespace SoftCuda
