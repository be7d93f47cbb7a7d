#pragma once

#include "gpulib/Device/GBackProj.h"

class Util_Volume;
struct CTextures;

/// Updates a batch of slices from the working rows of one set, in place.
class CBackProjImpl
{
public:
    void SetTextures(const CTextures& rTextures);
    void SetVolSize(int iVolX, int iVolZ) { m_aGBackProj.SetVolSize(iVolX, iVolZ); }
    void SetProjX(int iProjX) { m_aGBackProj.SetProjSize(iProjX); }
    void SetSetRange(const int* piRange) { m_aGBackProj.SetSetRange(piRange[0], piRange[1]); }
    void SetRelax(float fRelax) { m_aGBackProj.SetRelax(fRelax); }

    /// SART update of rows iY, iY + 1, ... (iRows of them) of the band.
    [[nodiscard]] bool DoIt(int iY, int iRows) { return m_aGBackProj.DoIt(iY, iRows); }
    /// EM update likewise.
    [[nodiscard]] bool DoItEm(int iY, int iRows) { return m_aGBackProj.DoItEm(iY, iRows); }
    /// Stores the slices as rows iY, iY + 1, ... of the volume, which are complete after
    /// CBackend::FinishDownload().
    [[nodiscard]] bool StartToHost(Util_Volume& rVolume, int iY, int iRows) const;

private:
    const CTextures* m_pTextures = nullptr;
    GBackProj m_aGBackProj;
};
