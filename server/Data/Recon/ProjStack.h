#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Util/Util_Volume.h"
#include "server/Data/RequestPlan.h"

struct Extents;

/// A stack of images that a client sizes and then fills one by one: what the tilt series and the
/// measured projections have in common.
class CProjStack
{
public:
    Util_Volume* GetProjs() const
    {
        return m_pProjs.get();
    }  ///< [proj][y][x]; null before its size
    std::uint32_t GetX() const { return m_pProjs ? std::uint32_t(m_pProjs->GetSizeX()) : 0; }
    std::uint32_t GetY() const { return m_pProjs ? std::uint32_t(m_pProjs->GetSizeY()) : 0; }
    std::uint32_t GetNumProjs() const { return m_pProjs ? std::uint32_t(m_pProjs->GetSizeZ()) : 0; }
    std::size_t GetBytes() const { return mCountBytes(GetX(), GetY(), GetNumProjs()); }

protected:
    /// \param ulRowBytes, ulProjBytes  kept beside the pixels of a row and of a projection
    CProjStack(std::uint64_t ulRowBytes, std::uint64_t ulProjBytes)
        : m_ulRowBytes(ulRowBytes), m_ulProjBytes(ulProjBytes)
    {
    }
    /// The size that a request asks for, and the memory.
    [[nodiscard]] bool mCheckSize(const Extents& rSize, std::string& rReason) const;
    std::uint64_t mCountBytes(std::uint64_t ulX, std::uint64_t ulY, std::uint64_t ulN) const
    {
        return ulN * (ulY * (4 * ulX + m_ulRowBytes) + m_ulProjBytes);
    }

    std::unique_ptr<Util_Volume> m_pProjs;

private:
    const std::uint64_t m_ulRowBytes, m_ulProjBytes;
};
