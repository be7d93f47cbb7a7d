#include "fuzz/Console.h"

#include <unistd.h>

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

const char* TakeConsole()
{
    unsetenv("HOME");
    if (std::getenv("TALVEN_FUZZ_VERBOSE") != nullptr) return "";
    char acName[] = "/tmp/talven-fuzz-XXXXXX";
    const int iFile = mkstemp(acName);
    if (iFile == -1 || std::freopen(acName, "a", stdout) == nullptr) Broken("no file for output");
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    close(iFile);
    unlink(acName);
    return "/proc/self/fd/1";
}
