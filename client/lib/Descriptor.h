#pragma once

#include <unistd.h>

#include <utility>

namespace talven
{

/// Owns a file descriptor; -1: none.
class CDescriptor
{
public:
    explicit CDescriptor(int iFd = -1) : m_iFd(iFd) {}
    CDescriptor(CDescriptor&& rOther) noexcept : m_iFd(rOther.Release()) {}
    CDescriptor& operator=(CDescriptor&& rOther) noexcept
    {
        std::swap(m_iFd, rOther.m_iFd);
        return *this;
    }
    ~CDescriptor() { Close(); }

    bool IsOpen() const { return m_iFd != -1; }
    int Get() const { return m_iFd; }
    int Release() { return std::exchange(m_iFd, -1); }
    void Close()
    {
        if (m_iFd != -1) close(Release());
    }

private:
    int m_iFd;
};

}  // namespace talven
