#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "talven/AtomicFile.h"
#include "talven/MrcHeader.h"

namespace talven
{

/// How a value is stored: value * gain + offset, rounded and limited where the mode has whole
/// numbers.
struct MrcStorage
{
    EMrcMode eMode = EMrcMode::eFloat32;
    double dGain = 1, dOffset = 0;
};

/// Writes an MRC2014 file, section by section in order, or rows in any order.
///
/// The file appears under its name with Finish(), with the statistics of all sections in its
/// header; without Finish() it never does. Missing pixels, below -1e15, do not count in them.
class CMrcWriter
{
public:
    /// \param dPixel    Angstrom per pixel, 0: unknown
    /// \param bVolume   a volume, or a stack of images
    /// \param strLabel  see MrcHeader
    /// \return false when the file cannot be created or the disk is too small for it.
    [[nodiscard]] bool Create(const std::string& strPath, int iX, int iY, int iZ, double dPixel,
                              bool bVolume, const std::string& strLabel,
                              const MrcStorage& rStorage = {});
    /// Appends one section, shape [y][x].
    [[nodiscard]] bool WriteSection(std::span<const float> fPixels);
    /// Writes whole rows from row iY of section iZ on, each once.
    [[nodiscard]] bool WriteRows(int iZ, int iY, std::span<const float> fPixels);
    /// \return false when rows are missing or the disk refused something; no file then.
    [[nodiscard]] bool Finish();

    const MrcHeader& GetHeader() const { return m_aHeader; }
    const std::string& GetError() const { return m_strError; }

private:
    void mStore(std::span<float> fPixels);
    void mAddSection(std::span<const float> fPixels);

    CAtomicFile m_aFile;
    MrcHeader m_aHeader;
    MrcStorage m_aStorage;
    std::uint64_t m_ulWritten = 0;    // pixels
    std::vector<std::byte> m_vcRows;  // as stored, in modes other than 2
    double m_dCount = 0;              // pixels so far that are not missing
    double m_dMean = 0;               // of these
    double m_dSquares = 0;            // sum of their squared distances from that mean
    std::string m_strError;
};

}  // namespace talven
