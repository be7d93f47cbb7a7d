#include "bench/CompareJob.h"

#include "gpulib/App/Compare.h"

#include <cmath>
#include <random>

CompareScene::CompareScene(float fDegrees, int iSize) : iX(iSize), iY(iSize)
{
    std::mt19937 aRandom(1);
    std::uniform_real_distribution<float> aValues(0.0f, 2.0f);
    for (std::vector<float>* pvImage : {&vfMeasured, &vfAligned})
    {
        pvImage->resize(std::size_t(iX) * iY);
        for (float& rValue : *pvImage) rValue = aValues(aRandom);
    }
    const float fCos = std::cos(fDegrees * 0.01745329f), fSin = std::sin(fDegrees * 0.01745329f);
    afMatrix = {fCos, fSin, -fSin, fCos, -3.3f, 5.7f};
}

bool RunCompare(const CompareScene& rScene, CompareTotals& rTotals)
{
    CCompare aCompare;
    aCompare.SetTranMatrix(rScene.afMatrix);
    aCompare.SetIntScale(rScene.afScale);
    aCompare.SetRangeY(0, rScene.iY);
    const bool bLoaded = aCompare.SetMProj(rScene.vfMeasured.data(), rScene.iX, rScene.iY);
    aCompare.SetAProj(rScene.vfAligned.data(), rScene.iX, rScene.iY);
    if (!bLoaded || !aCompare.DoIt(false)) return false;
    rTotals = aCompare.GetTotals();
    return true;
}
