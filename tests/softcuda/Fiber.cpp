#include "tests/softcuda/Fiber.h"

namespace SoftCuda
{
Fiber::Fiber()
{
    tStack = 128 * 1024;
    pcStack = std::make_unique_for_overwrite<char[]>(tStack);
    pvStack = pcStack.get();
#if defined(__SANITIZE_THREAD__)
    pvThread = __tsan_create_fiber(0);
#endif
}

UNSEEN void Switch(Context& rFrom, Context& rTo, [[maybe_unused]] bool bEnd)
{
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_start_switch_fiber(bEnd ? nullptr : &rFrom.pvFakeStack, rTo.pvStack, rTo.tStack);
#elif defined(__SANITIZE_THREAD__)
    if (!rFrom.pvThread) rFrom.pvThread = __tsan_get_current_fiber();
    __tsan_switch_to_fiber(rTo.pvThread, __tsan_switch_to_fiber_no_sync);
#endif
    swapcontext(&rFrom.aState, &rTo.aState);
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(rFrom.pvFakeStack, nullptr, nullptr);
#endif
}

UNSEEN void Arrive([[maybe_unused]] Context& rFrom)
{
#if defined(__SANITIZE_ADDRESS__)
    __sanitizer_finish_switch_fiber(nullptr, &rFrom.pvStack, &rFrom.tStack);
#endif
}
}  // namespace SoftCuda
