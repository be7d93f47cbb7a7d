#pragma once

#include <cstddef>

/// Memory of the machine as seen by this process, bytes.
class Util_Memory
{
public:
    /// What this process may use: physical memory, or the least limit of its control groups when
    /// that is lower.
    static std::size_t GetMachine();
    /// What programs can still take without swapping and without going beyond the limits of our
    /// control groups, or less when the system tells only what is free; SIZE_MAX when it does not
    /// say.
    static std::size_t GetAvailable();
    /// What this process holds already, 0 when the system does not say.
    static std::size_t GetResident();
    /// From now on the machine has tBytes and this process holds nothing of it; 0: asks the system
    /// again. For tests that have to meet the limits early.
    static void Assume(std::size_t tBytes);
    /// Makes the pages of [pvData, pvData + tBytes) present and writable, their content unchanged.
    /// Only a hint: does nothing where the system cannot.
    static void Populate(void* pvData, std::size_t tBytes);
    /// Gives back the whole pages of [pvData, pvData + tBytes), of memory from an allocator: their
    /// content is 0 from then on, or what it was. Does nothing for less than tLeast bytes.
    static void Release(void* pvData, std::size_t tBytes, std::size_t tLeast);
};
