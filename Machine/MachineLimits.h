#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace talven
{

/// What the control groups of this process let it use of the machine.
///
/// A group lies in others, and the smallest limit counts: that of the process's group, or of one
/// above it, up to the root of what is mounted below /sys/fs/cgroup. Version 2, version 1, and the
/// controllers of both where a system has both. In a container that shows its own group as the root
/// the limits of that root count. What cannot be read sets no limit.
class CMachineLimits
{
public:
    static constexpr std::uint64_t g_ulNone = std::numeric_limits<std::uint64_t>::max();

    /// Finds the groups. \param strRoot  a folder in which proc and sys are looked for, for tests
    explicit CMachineLimits(const std::string& strRoot = {});

    /// Memory of the smallest limit, bytes, or g_ulNone.
    std::uint64_t GetMemory() const;
    /// What the limits leave now, bytes, or g_ulNone. Files that the kernel has read and can drop
    /// do not count as used.
    std::uint64_t GetFreeMemory() const;
    /// Cores of the smallest quota, a part of one counts as one; 0: no quota.
    int GetCores() const;

    /// Cores that this process can keep busy: those that it may run on, capped by GetCores(); at
    /// least 1.
    static int CountCores();

private:
    std::vector<std::string> m_vstrMemory, m_vstrCpu;  // folders of the groups
};

}  // namespace talven
