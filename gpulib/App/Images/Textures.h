#pragma once

#include "gpulib/App/Images/AnglesTexture.h"
#include "gpulib/App/Images/PreweightTex.h"
#include "gpulib/App/Images/ProjIndexTex.h"
#include "gpulib/App/Images/ProjsTexture.h"
#include "gpulib/App/Images/ProjweightTex.h"
#include "gpulib/App/Images/RangeTexture.h"
#include "gpulib/App/Images/VolTexture.h"

/// Everything that the kernels of one job read on one device.
///
/// The members are filled by the job; the workers of a job take the images by value, after they
/// were created.
struct CTextures
{
    const DeviceImage& GetAnglesArray() const { return m_aAnglesTex.GetImage(); }
    const DeviceImage& GetProjsArray() const { return m_aProjsTex.GetImage(); }
    const DeviceImage& GetRawProjsArray() const { return m_aProjsTex.GetRawImage(); }
    const DeviceImage& GetRangeArray() const { return m_aRangeTex.GetImage(); }
    const DeviceImage& GetVolArray() const { return m_aVolTex.GetImage(); }
    const DeviceImage& GetPreWeightArray() const { return m_aPreweightTex.GetImage(); }
    const DeviceImage& GetProjWeightArray() const { return m_aProjweightTex.GetImage(); }
    const DeviceImage& GetProjIndexArray() const { return m_aProjIndexTex.GetImage(); }

    CAnglesTexture m_aAnglesTex;
    CProjsTexture m_aProjsTex;
    CRangeTexture m_aRangeTex;
    CVolTexture m_aVolTex;
    CPreweightTex m_aPreweightTex;
    CProjweightTex m_aProjweightTex;
    CProjIndexTex m_aProjIndexTex;
};
