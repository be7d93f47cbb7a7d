#pragma once

#include <functional>
#include <string>
#include <utility>

#include "talven/FileImages.h"
#include "talven/Reconstruction.h"
#include "talven/VolumeFile.h"

namespace talven
{

/// Volumes on their way into files, all in one form.
class CVolumeOutput
{
public:
    /// Gives all slices of the volume in order; false: rError says why it cannot.
    using Source = std::function<bool(const ImageSink& rSlices, std::string& rError)>;

    explicit CVolumeOutput(Source Volume) : m_aSource(std::move(Volume)) {}
    /// \param rJob  has the volume; outlives this
    explicit CVolumeOutput(CReconstruction& rJob)
        : m_aSource([&rJob](const ImageSink& rSlices, std::string& rError)
                    { return rJob.Download(rSlices) || Fail(rError, rJob.GetError()); })
    {
    }

    /// \param rForm   fits the volume
    /// \param dPixel  Angstrom per voxel; 0: not known
    void SetUp(const VolumeForm& rForm, const JobSize& rSize, double dPixel);
    /// Whether a file can be written, before the work begins.
    [[nodiscard]] bool Check(const std::string& strPath);
    /// Writes the volume that the source has now. Where the form leaves the range open, it is this
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
    bool mPass(CVolumeFile& rFile, const ImageSink& rAlso);
    template <class T>
    bool mCheck(bool bDone, const T& rDoer)
    {
        return bDone || Fail(m_strError, rDoer.GetError());
    }

    Source m_aSource;
    VolumeForm m_aForm;
    JobSize m_aSize;
    double m_dPixel = 0;
    CVolumeFile m_aFile;
    std::string m_strError;
};

}  // namespace talven
