#pragma once

#include <memory>
#include <string>

#include "server/Recon/DoReconBase.h"
#include "server/Thread/JobMain.h"

/// The reconstruction job: from the uploads to the volume and, but for plain back projection, the
/// R-factors.
class CReconMain : public CJobMain
{
public:
    CReconMain() : CJobMain("Recon", true) {}
    [[nodiscard]] bool Prepare(std::string& rReason) override;

    /// Writes the volume, one float section per slice, to the file of the setting DebugVolume.
    /// Ready for use in a debugger; no command comes here. \return false when there is no volume or
    /// the file cannot be written
    [[nodiscard]] static bool SaveVol();

private:
    bool mHasWork(const JobShare& rShare) const override;
    [[nodiscard]] bool mRun(const JobShare& rShare) override;
    void mRelease() override;
    void mDiscard() override;

    std::unique_ptr<const CDoReconBase> m_pDoReconBase;
    bool m_bIterative = false;
};
