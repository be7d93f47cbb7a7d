#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "Command.h"
#include "batch/InputStamp.h"
#include "talven/RowRange.h"

namespace talven
{

/// A volume of a batch: what it is made of, and what it will be.
struct BatchVolume
{
    std::string strOutput;
    Json aOptions;  ///< of `talven reconstruct`, by name: a text, true, or a list of texts
    std::vector<InputStamp> aInputs;
    std::string strAngles;                  ///< hash of the angles of all views
    std::array<int, 3> aiSize = {0, 0, 0};  ///< X, Y, Z
    double dPixel = 0;                      ///< Angstrom per voxel; 0: not known
    std::string strMethod;                  ///< "SART, 10 iterations, 4 subsets"
};

/// A volume of a batch, or some of its rows: what one attempt makes.
struct BatchTask
{
    std::size_t tVolume = 0;
    RowRange aRows;
    std::string strOutput;
    int iCores = 0;              ///< it was planned for
    std::uint64_t ulMemory = 0;  ///< bytes that the server needs for it
};

/// The plan of a batch, in a file that never changes: volumes and the tasks that make them.
class CBatchManifest
{
public:
    /// \return false when the file cannot be read, is no manifest, or is another version's
    [[nodiscard]] bool Read(const std::string& strPath);
    /// Fails when there is a file already.
    [[nodiscard]] bool Write(const std::string& strPath);

    std::vector<BatchVolume> aVolumes;
    std::vector<BatchTask> aTasks;

    const BatchVolume& GetVolume(const BatchTask& rTask) const { return aVolumes[rTask.tVolume]; }
    /// Whether a task makes some rows of its volume only.
    bool IsPart(const BatchTask& rTask) const
    {
        return rTask.aRows.GetCount() < GetVolume(rTask).aiSize[1];
    }
    /// "rec.mrc", "rows 0:128 of rec.mrc"
    std::string Describe(const BatchTask& rTask) const;
    const std::string& GetPath() const { return m_strPath; }
    /// Tells this manifest from every other.
    const std::string& GetHash() const { return m_strHash; }
    const std::string& GetError() const { return m_strError; }

private:
    void mTake(const Json& rJson);
    bool mIsComplete() const;

    std::string m_strPath, m_strHash, m_strError;
};

/// 2026-02-28T13:05:07Z
std::string GetTimeNow();

}  // namespace talven
