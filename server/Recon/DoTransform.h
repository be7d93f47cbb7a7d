#pragma once

#include "gpulib/App/Align/Transform.h"
#include "gpulib/App/Job.h"

/// Transform of a measured projection into a projection of the stack.
class CDoTransform
{
public:
    explicit CDoTransform(const AlignJob& rJob) : m_rJob(rJob) {}
    /// \return false with the reason noted (TakeDeviceError)
    [[nodiscard]] bool DoIt(const JobShare& rShare) const
    {
        return CTransform(m_rJob).DoIt(rShare);
    }

private:
    const AlignJob& m_rJob;
};
