#include "fuzz/Console.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

void Broken(const char* pcFormat, ...)
{
    std::va_list aArgs;
    va_start(aArgs, pcFormat);
    std::fputs("Broken: ", stderr);
    std::vfprintf(stderr, pcFormat, aArgs);
    std::fputs("\n", stderr);
    va_end(aArgs);
    std::abort();
}

void SilenceServer()
{
    unsetenv("HOME");
    if (std::getenv("TALVEN_FUZZ_VERBOSE") != nullptr) return;
    if (std::freopen("/dev/null", "w", stdout) == nullptr) Broken("no /dev/null");
}
