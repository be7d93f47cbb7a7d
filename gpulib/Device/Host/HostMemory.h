#pragma once

#include <cstddef>
#include <memory>

// Memory of the host backend.

struct HostRelease
{
    void operator()(void* pvData) const;
};
using HostBlock = std::unique_ptr<void, HostRelease>;

/// Zero-filled memory, aligned to 64 bytes; big blocks are backed by huge pages where the machine
/// has them. \return null when the machine does not have that much left
HostBlock AllocateZeroed(std::size_t tBytes);
