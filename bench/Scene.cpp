#include "bench/Scene.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

#include "gpulib/Device/ProjMath.h"

Scene::Scene(int iRowsWanted, int iWidth, int iHeight, int iTilts)
    : iX(iWidth), iZ(iHeight), iProjs(iTilts), iRows(iRowsWanted)
{
    for (int n = 0; n < iProjs; ++n)
    {
        const double dAngle = (-60 + 120.0 * n / (iProjs - 1)) * std::numbers::pi / 180;
        vfCos.push_back(float(std::cos(dAngle)));
        vfSin.push_back(float(std::sin(dAngle)));
    }
    vfVolume.resize(std::size_t(iX) * iRows * iZ);
    vfProjs.resize(std::size_t(iX) * iRows * iProjs);
    std::uniform_real_distribution<float> aValues(0, 1);
    const auto FillRow = [&](std::vector<float>& rImage, int iLines, int iRow)
    {
        std::mt19937 aEngine(iRow);  // a row is the same in every scene
        for (int i = 0; i < iLines; ++i)
            for (int x = 0; x < iX; ++x)
                rImage[(std::size_t(i) * iRows + iRow) * iX + x] = aValues(aEngine);
    };
    for (int r = 0; r < iRows; ++r)
    {
        FillRow(vfVolume, iZ, r);
        FillRow(vfProjs, iProjs, r);
    }
}

double Scene::CountSamples() const
{
    double dCount = 0;
    for (int n = 0; n < iProjs; ++n)
    {
        const RayGeometry aRays = MakeRays(vfCos[n], vfSin[n], iX, iZ, iX);
        for (int x = 0; x < iX; ++x)
            for (int i = 0; i < aRays.iSamples; ++i)
            {
                const float fX = RaySample(RayMiddleX(aRays, x), -aRays.fSin, RayStep(aRays, i));
                const float fZ = RaySample(RayMiddleZ(aRays, x), aRays.fCos, RayStep(aRays, i));
                dCount += fX >= 0 && fX < iX + 1 && fZ >= 0 && fZ < iZ + 1;
            }
    }
    return dCount;
}

double Scene::CountFetched() const
{
    double dCount = 0;
    for (int n = 0; n < iProjs; ++n)
    {
        const RayGeometry aRays = MakeRays(vfCos[n], vfSin[n], iX, iZ, iX);
        for (int x = 0; x < iX; ++x)
        {
            const RaySpan aSpan =
                TouchSpan(aRays, RayMiddleX(aRays, x), RayMiddleZ(aRays, x), iX, iZ);
            dCount += std::max(aSpan.iEnd - aSpan.iFirst, 0);
        }
    }
    return dCount;
}

bool CDeviceScene::Create(const Scene& rScene)
{
    m_pScene = &rScene;
    const int iX = rScene.iX, iZ = rScene.iZ, iProjs = rScene.iProjs, iRows = rScene.iRows;
    m_vfBack.resize(rScene.vfVolume.size());
    m_aVol.SetLanes(iRows);
    m_aRaw.SetLanes(iRows);
    m_aSums.SetLanes(iRows);
    m_aCosSin.SetChannels(2);
    m_aRange.SetChannels(2);
    m_aIndex.SetUInt();
    m_aAccum.SetDouble();
    std::vector<unsigned> vuiIndex(iProjs);
    std::iota(vuiIndex.begin(), vuiIndex.end(), 0u);
    const std::vector<float> vfFirst(std::size_t(iRows) * iProjs, 0.0f);
    const std::vector<float> vfEnd(vfFirst.size(), float(iX));
    const std::vector<float> vfWeights(std::size_t(iX) * iProjs, 1.0f);
    const HostRows<const float> aRaw = {rScene.vfProjs.data(), std::size_t(iX) * iRows,
                                        std::size_t(iX), iRows};
    if (!m_aVol.Create(iX + 2, iZ + 2) || !m_aRaw.Create(iX, iProjs) ||
        !m_aSums.Create(iX, iProjs) || !m_aAccum.Create(iProjs, 1) ||
        !m_aCosSin.Create(iProjs, 1) ||
        !m_aCosSin.HostToDevice(rScene.vfCos.data(), rScene.vfSin.data()) ||
        !m_aIndex.Create(iProjs, 1) || !m_aIndex.HostToDevice(vuiIndex.data()) ||
        !m_aRange.Create(iRows, iProjs) || !m_aRange.HostToDevice(vfFirst.data(), vfEnd.data()) ||
        !m_aWeights.Create(iX, iProjs) || !m_aWeights.HostToDevice(vfWeights.data()) ||
        !m_aRaw.HostToDevice(aRaw, 0, 0, iX, iProjs) || !UploadSlices())
        return false;

    const RunImages aImages = {.iVolX = iX,
                               .iVolZ = iZ,
                               .iProjX = iX,
                               .aVol = m_aVol.GetImage(),
                               .aRawProjs = m_aRaw.GetImage(),
                               .aProjs = m_aRaw.GetImage(),
                               .aSums = m_aSums.GetImage(),
                               .aCosSin = m_aCosSin.GetImage(),
                               .aProjIndex = m_aIndex.GetImage(),
                               .aRangeX = m_aRange.GetImage(),
                               .aPreWeight = m_aWeights.GetImage(),
                               .aProjWeight = m_aWeights.GetImage()};
    m_aForward.SetImages(aImages);
    m_aFactor.SetImages(aImages);
    m_aWeight.SetImages(aImages);
    m_aBack.SetImages(aImages);
    SetRange(0, iProjs);
    return true;
}

bool CDeviceScene::UploadSlices()
{
    const std::size_t tX = std::size_t(m_pScene->iX);
    return m_aVol.HostToDevice(
        HostRows<const float>{m_pScene->vfVolume.data(), tX * m_pScene->iRows, tX, m_pScene->iRows},
        1, 1, m_pScene->iX, m_pScene->iZ);
}

bool CDeviceScene::DownloadSlices()
{
    const std::size_t tX = std::size_t(m_pScene->iX);
    return m_aVol.ToHost({m_vfBack.data(), tX * m_pScene->iRows, tX, m_pScene->iRows}, 1, 1,
                         m_pScene->iX, m_pScene->iZ);
}

bool CDeviceScene::Sweep()
{
    bool bDone = true;
    for (int n = 0; n < m_pScene->iProjs; ++n)
    {
        SetRange(n, n + 1);
        const ::SetRange aNext = {n + 1, std::min(n + 2, m_pScene->iProjs)};
        bDone = bDone && (n > 0 || ForwardDiff()) &&
                m_aBack.DoIt(m_aSet, m_pScene->fRelax, 0, m_pScene->iRows, aNext);
    }
    SetRange(0, m_pScene->iProjs);
    return bDone;
}

std::vector<float> CDeviceScene::ReadSums() const
{
    std::vector<float> vfSums(m_pScene->vfProjs.size());
    const std::size_t tX = std::size_t(m_pScene->iX);
    const bool bRead = m_aSums.ToHost({vfSums.data(), tX * m_pScene->iRows, tX, m_pScene->iRows});
    if (!bRead) vfSums.clear();
    return vfSums;
}
