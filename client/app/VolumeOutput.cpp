#include "VolumeOutput.h"

namespace talven
{

void CVolumeOutput::SetUp(const VolumeForm& rForm, const JobSize& rSize, double dPixel)
{
    m_aForm = rForm;
    m_aSize = rSize;
    m_dPixel = dPixel;
}

bool CVolumeOutput::Check(const std::string& strPath)
{
    CVolumeFile aFile;
    return mCheck(aFile.Create(strPath, m_aForm, m_aSize, m_dPixel, ""), aFile);
}

bool CVolumeOutput::Write(const std::string& strPath, const std::string& strLabel,
                          const ImageSink& rAlso)
{
    VolumeForm aForm = m_aForm;
    return (!aForm.NeedsRange() || mFindRange(aForm)) &&
           mCheck(m_aFile.Create(strPath, aForm, m_aSize, m_dPixel, "Talven: " + strLabel),
                  m_aFile) &&
           mPass(m_aFile, rAlso) && mCheck(m_aFile.Finish(), m_aFile);
}

bool CVolumeOutput::mFindRange(VolumeForm& rForm)
{
    CVolumeFile aNowhere;
    rForm.eMode = EMrcMode::eFloat32;
    if (!mCheck(aNowhere.Create("/dev/null", rForm, m_aSize, m_dPixel, ""), aNowhere) ||
        !mPass(aNowhere, nullptr))
        return false;
    rForm.eMode = m_aForm.eMode;
    rForm.aRange = {aNowhere.GetHeader().fMin, aNowhere.GetHeader().fMax};
    return true;
}

bool CVolumeOutput::mPass(CVolumeFile& rFile, const ImageSink& rAlso)
{
    const ImageSink Write = WriteTo(rFile);
    const ImageSink WriteAndShow = [&](int iZ, std::span<const float> fSlice, std::string& rError)
    { return rAlso(iZ, fSlice, rError) && Write(iZ, fSlice, rError); };
    return m_aSource(rAlso ? WriteAndShow : Write, m_strError);
}

}  // namespace talven
