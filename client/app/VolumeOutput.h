#pragma once

#include <string>

#include "talven/FileImages.h"
#include "talven/Reconstruction.h"

namespace talven
{

/// The volumes of a reconstruction on their way into files, all in one form.
class CVolumeOutput
{
public:
    /// \param rJob  has the volume; outlives this
    explicit CVolumeOutput(CReconstruction& rJob) : m_rJob(rJob) {}

    /// \param rForm   fits the volume
    /// \param dPixel  Angstrom per voxel; 0: not known
    void SetUp(const VolumeForm& rForm, const JobSize& rSize, double dPixel);
    /// Whether a file can be written, before the work begins.
    [[nodiscard]] bool Check(const std::string& strPath);
    /// Writes the volume that the server has now. Where the form leaves the range open, it is this
    /// volume's.
    /// \param strLabel  how it was made
    /// \param rAlso     is shown the slices, too
    [[nodiscard]] bool Write(const std::string& strPath, const std::string& strLabel,
                             const ImageSink& rAlso = nullptr);

    /// Of the last file.
    const MrcHeader& GetHeader() const { return m_aFile.GetHeader(); }
    const std::string& GetError() const { return m_strError; }

private:
    bool mFindRange(VolumeForm& rForm);
    bool mDownload(CVolumeFile& rFile, const ImageSink& rAlso);
    template <class T>
    bool mCheck(bool bDone, const T& rDoer)
    {
        return bDone || Fail(m_strError, rDoer.GetError());
    }

    CReconstruction& m_rJob;
    VolumeForm m_aForm;
    JobSize m_aSize;
    double m_dPixel = 0;
    CVolumeFile m_aFile;
    std::string m_strError;
};

}  // namespace talven
