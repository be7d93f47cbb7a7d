#pragma once

#include <cstddef>
#include <memory>

// Memory of the host backend.

struct HostRelease
{
    std::size_t tBytes = 0;  ///< of the block
    void operator()(void* pvData) const;
};
using HostBlock = std::unique_ptr<void, HostRelease>;

/// Gives back memory of AllocateZeroed() from its begin on, in whole huge pages.
class CHostPages
{
public:
    explicit CHostPages(void* pvFirst) : m_pcFirst(static_cast<char*>(pvFirst)) {}
    /// All before pvEnd is 0 from now on, or what it was.
    void ReleaseTo(void* pvEnd);

private:
    char* m_pcFirst;
};

/// Zero-filled memory, aligned to 64 bytes; big blocks are backed by huge pages where the machine
/// has them, take memory when they are written and give it back when they are freed. \return null
/// when the machine does not have that much left
HostBlock AllocateZeroed(std::size_t tBytes);
