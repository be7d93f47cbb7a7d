#include "bench/CompareJob.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "gpulib/App/Align/Compare.h"
#include "gpulib/App/Job.h"

CompareScene::CompareScene(float fDegrees, int iSize) : iX(iSize), iY(iSize)
{
    std::mt19937 aRandom(1);
    std::uniform_real_distribution<float> aValues(0.0f, 2.0f);
    for (Util_Volume* pImage : {&aMeasured, &aAligned})
    {
        pImage->SetSize(iX, iY, 1);
        std::generate_n(pImage->GetData(), pImage->GetVoxels(), [&] { return aValues(aRandom); });
    }
    const float fCos = std::cos(fDegrees * 0.01745329f), fSin = std::sin(fDegrees * 0.01745329f);
    afMatrix = {fCos, fSin, -fSin, fCos, -3.3f, 5.7f};
}

bool RunCompare(CompareScene& rScene, CompareTotals& rTotals)
{
    AlignJob aJob;
    aJob.pMProjs = &rScene.aMeasured;
    aJob.pProjs = &rScene.aAligned;
    aJob.afMatrix = rScene.afMatrix;
    aJob.afScale = rScene.afScale;
    CCompare aCompare(aJob);
    if (!aCompare.DoIt({.iSizeY = rScene.iY})) return false;
    rTotals = aCompare.GetTotals();
    return true;
}
