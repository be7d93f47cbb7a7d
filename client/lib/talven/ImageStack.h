#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "talven/Alignment.h"
#include "talven/Text.h"

namespace talven
{

/// Images of one size in a file or a folder: a tilt series, flat frames, a volume.
///
/// Images are read one by one, so that a stack may be larger than the memory. Stacks are read by
/// one thread at a time, all of them together: not every library behind them stands more.
class CImageStack
{
public:
    enum class EFrames
    {
        eFlat,  ///< the beam without a specimen
        eDark   ///< the detector without the beam
    };

    virtual ~CImageStack() = default;
    CImageStack(const CImageStack&) = delete;
    CImageStack& operator=(const CImageStack&) = delete;

    const std::string& GetPath() const { return m_strPath; }
    const ImageSize& GetSize() const { return m_aSize; }
    int GetSections() const { return m_iSections; }
    double GetPixel() const { return m_dPixel; }  ///< Angstrom, 0: not stated

    /// Reads image iZ, shape [y][x] with the lowest row first, X * Y floats. A value that is no
    /// finite number is an error.
    [[nodiscard]] bool ReadSection(int iZ, std::span<float> fPixels);
    /// Reads whole rows of image iZ from row iY on, and no more than these where the file allows
    /// it.
    [[nodiscard]] bool ReadRows(int iZ, int iY, std::span<float> fPixels);

    /// The angles that the file holds beside the images, degrees within +-360; none: rAngles is
    /// empty then.
    [[nodiscard]] virtual bool ReadAngles(std::vector<float>& rAngles);
    /// The frames that the file holds beside the images; none: rFrames is nullptr then.
    [[nodiscard]] virtual bool OpenFrames(EFrames eFrames, std::unique_ptr<CImageStack>& rFrames);

    /// Begins with the name of the file.
    const std::string& GetError() const { return m_strError; }

protected:
    CImageStack() = default;
    /// Fills in fPixels, which has the right size. What is not finite is found by the caller.
    [[nodiscard]] virtual bool mRead(int iZ, std::span<float> fPixels) = 0;
    /// The same with some rows.
    [[nodiscard]] virtual bool mReadRows(int iZ, int iY, std::span<float> fPixels);
    bool mFail(const std::string& strWhat);
    /// Passes on why a stack that this one is made of failed.
    bool mFailAs(const CImageStack& rPart) { return Fail(m_strError, rPart.GetError()); }
    /// Whether these numbers may be the size of a stack; notes it.
    [[nodiscard]] bool mSetSize(std::uint64_t ulX, std::uint64_t ulY, std::uint64_t ulSections);
    /// From the highest row first to the lowest row first.
    void mTurnRows(std::span<float> fPixels) const;

    std::string m_strPath;
    ImageSize m_aSize;
    int m_iSections = 0;
    double m_dPixel = 0;

private:
    bool mCheckFinite(int iZ, int iY, std::span<const float> fPixels);

    std::string m_strError;
};

/// Opens a stack; what it is, its first bytes tell: MRC, HDF5 (Data Exchange) or TIFF. A folder
/// with TIFF files of one image each is a stack, too, in the natural order of their names: 2 comes
/// before 10.
/// \return nullptr when it cannot be read, or when the library for it was left out of this build;
///         rError begins with its name.
std::unique_ptr<CImageStack> OpenStack(const std::string& strPath, std::string& rError);

}  // namespace talven
