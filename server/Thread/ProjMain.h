#pragma once

#include <optional>
#include <string>

#include "server/Recon/DoForwardProj.h"
#include "server/Thread/JobMain.h"

/// The reprojection job: from the volume to the stack.
class CProjMain : public CJobMain
{
public:
    CProjMain() : CJobMain("Proj", true) {}
    [[nodiscard]] bool Prepare(std::string& rReason) override;

private:
    [[nodiscard]] bool mRun(const JobShare& rShare) override;

    std::optional<CDoForwardProj> m_aDoForwardProj;
};
