#include <stdlib.h>

#include <cmath>
#include <filesystem>
#include <optional>

#include "Balls.h"
#include "Command.h"
#include "Lists.h"
#include "Options.h"
#include "VolumeOutput.h"
#include "talven/Reconstruction.h"

namespace talven
{
namespace
{

constexpr int g_iViews = 60;          // 3 degrees apart, around the half circle
constexpr int g_iLeast = 32;          // voxels along each axis that the balls need
constexpr double g_dMargin = 6;       // voxels from their middles to what cuts them
constexpr double g_dAllowed = 0.1;    // voxels that a ball may lie from its place
constexpr double g_dRounding = 2e-5;  // of a voxel's projection

/// A folder for one run.
class CScratchFolder
{
public:
    ~CScratchFolder()
    {
        std::error_code aIgnored;
        if (!m_strPath.empty()) std::filesystem::remove_all(m_strPath, aIgnored);
    }
    [[nodiscard]] bool Make(std::string& rError)
    {
        std::error_code aFailed;
        const std::filesystem::path aWhere = std::filesystem::temp_directory_path(aFailed);
        m_strPath = (aWhere / "talven-XXXXXX").string();
        if (!aFailed && mkdtemp(m_strPath.data()) != nullptr) return true;
        rError = m_strPath + ": cannot make a directory";
        m_strPath.clear();
        return false;
    }
    std::string operator/(const char* pcName) const { return m_strPath + "/" + pcName; }

private:
    std::string m_strPath;
};

/// `talven check-geometry`.
class CCheckGeometryCommand : public CCommand
{
public:
    void AddOptions(CLI::App& rApp) override;
    bool Run() override;

private:
    bool mMakePlan();
    bool mPlaceBalls(const ImageSize& rAligned);
    Camera mGetCamera(int iView) const;
    ImageSize mFindRawSize() const;
    bool mCheckVoxels();
    bool mCheckVoxels(int iX, int iZ);
    bool mReconstruct(const std::string& strPath);
    bool mCheckBalls(const std::string& strPath);
    void mTell() const;
    Json mMakeJson() const;

    std::string m_strXf;
    ImageSize m_aRawSize;
    ReconRequest m_aRequest;
    VolumeForm m_aForm;

    std::vector<float> m_vfAngles;  // as a file would give them, degrees
    std::array<Ball, 4> m_aBalls;
    ReconPlan m_aPlan;
    CReconstruction m_aJob{m_aLink, m_aReport};
    CVolumeOutput m_aOutput{m_aJob};

    double m_dWorstPixel = 0, m_dWorstBall = 0;
    std::vector<Place> m_aExpected, m_aFound;
    Place m_aFileSize{};
    FileFrame m_aFrame;
};

void CCheckGeometryCommand::AddOptions(CLI::App& rApp)
{
    AddParsed(rApp, "--raw-size", "X,Y", m_aRawSize, ParseSize,
              "Of the raw views, pixels [96 x 80 times --bin, or what the maps need]");
    rApp.add_option("--thickness", m_aRequest.iThickness, "Extent of the volume along Z, voxels")
        ->check(CLI::Range(g_iLeast, 1000))
        ->default_val(48);
    rApp.add_option("--width", m_aRequest.iWidth, "Extent along X, voxels [the detector's]")
        ->check(CLI::Range(g_iLeast, 1000));
    AddMethodName(rApp, m_aRequest);
    AddAlignment(rApp, m_aRequest.aAlign, m_strXf);
    AddTilting(rApp, m_aRequest);
    AddForm(rApp, m_aForm);
    mAddServerOptions(rApp);
    mAddReportOptions(rApp);
}

bool CCheckGeometryCommand::Run()
{
    CScratchFolder aFolder;
    if (!mMakePlan() || !mConnect() || !mCheckVoxels() || !aFolder.Make(m_strError) ||
        !mReconstruct(aFolder / "volume.mrc") || !mCheckBalls(aFolder / "volume.mrc"))
        return false;
    mTell();
    return true;
}

/// The balls must be in all raw views. Where the options do not say how large these are, they are
/// made so, and the aligned ones stay as they are.
bool CCheckGeometryCommand::mMakePlan()
{
    AlignRequest& rAlign = m_aRequest.aAlign;
    if (!m_strXf.empty() && !ReadXf(m_strXf, rAlign.aMaps, m_strError)) return false;
    const int iViews = rAlign.aMaps.empty() ? g_iViews : static_cast<int>(rAlign.aMaps.size());
    for (int i = 0; i < iViews; ++i)
        m_vfAngles.push_back(float(180.0 * i / iViews - 90 - m_aRequest.dAngleOffset));
    const bool bOwnSize = m_aRawSize.iX == 0;
    if (bOwnSize) m_aRawSize = {96 * rAlign.iBin, 80 * rAlign.iBin};
    std::string strError;
    if (!MakeReconPlan(m_aRequest, m_aRawSize, m_vfAngles, m_aPlan, strError) ||
        !CheckForm(m_aForm, m_aPlan.GetResultSize(), strError))
        return mFail("--" + strError);
    if (!mPlaceBalls(m_aPlan.aAlignment.aAligned)) return false;
    const ImageSize aNeeded = mFindRawSize();
    if (aNeeded.iX > m_aRawSize.iX || aNeeded.iY > m_aRawSize.iY)
    {
        const std::string strNeeded =
            Format("the balls need raw views of %d x %d pixels", aNeeded.iX, aNeeded.iY);
        if (!bOwnSize) return mFail("--raw-size: " + strNeeded);
        if (std::max(aNeeded.iX, aNeeded.iY) > 16384) return mFail(strNeeded);
        m_aRawSize = {std::max(aNeeded.iX, m_aRawSize.iX), std::max(aNeeded.iY, m_aRawSize.iY)};
        rAlign.aSize = m_aPlan.aAlignment.aAligned;
        if (!MakeReconPlan(m_aRequest, m_aRawSize, m_vfAngles, m_aPlan, strError))
            return mFail("--" + strError);
    }
    return mCheckSize(m_aPlan.aSize);
}

bool CCheckGeometryCommand::mPlaceBalls(const ImageSize& rAligned)
{
    const JobSize rSize = m_aPlan.GetResultSize();
    const std::array<int, 3> aiWhole = {std::min(rSize.iVolX, rAligned.iX), rSize.iProjY,
                                        rSize.iVolZ};
    Place aHalf;
    for (std::size_t i = 0; i < 3; ++i)
    {
        const int iKept =
            m_aForm.aiSize[i] > 0 ? std::min(m_aForm.aiSize[i], aiWhole[i]) : aiWhole[i];
        aHalf[i] = 0.5 * iKept - g_dMargin;
        if (iKept < g_iLeast)
            return mFail(
                Format("the balls need %d voxels along %c, not %d", g_iLeast, "XYZ"[i], iKept));
    }
    m_aBalls = PlaceBalls(aHalf, m_aRequest.aAlign.dTiltX);
    return true;
}

Camera CCheckGeometryCommand::mGetCamera(int iView) const
{
    const AlignRequest& rAlign = m_aRequest.aAlign;
    const auto tView = static_cast<std::size_t>(iView);
    return {m_aRawSize,
            rAlign.iBin,
            rAlign.dTiltAxis,
            rAlign.aMaps.empty() ? ViewMap() : rAlign.aMaps[tView],
            double(m_vfAngles[tView]) + m_aRequest.dAngleOffset,
            rAlign.dShiftZ,
            rAlign.dTiltX};
}

ImageSize CCheckGeometryCommand::mFindRawSize() const
{
    double adReach[2] = {};
    for (int i = 0; i < int(m_vfAngles.size()); ++i)
        for (const Ball& rBall : m_aBalls)
            for (int k = 0; k < 2; ++k)
                adReach[k] =
                    std::max(adReach[k], std::fabs(mGetCamera(i).GetSpot(rBall)[std::size_t(k)]));
    const auto Size = [this](double dReach)
    { return int(std::ceil(2 * std::min(dReach + g_dBallReach * m_aRequest.aAlign.iBin, 1e6))); };
    return {Size(adReach[0]), Size(adReach[1])};
}

/// At 0, 90 and -90 degrees the places of voxels are whole pixels: for sizes of the volume that are
/// both odd or both even, and so in the middle of the same pixel.
bool CCheckGeometryCommand::mCheckVoxels()
{
    return mCheckVoxels(33, 21) && mCheckVoxels(32, 20) && mCheckVoxels(24, 30);
}

bool CCheckGeometryCommand::mCheckVoxels(int iX, int iZ)
{
    struct Voxel
    {
        int iX, iZ;
    };
    const std::array<Voxel, 3> aVoxels = {{{3, iZ - 5}, {iX - 6, iZ - 3}, {iX / 2 + 2, 4}}};
    const auto iY = static_cast<int>(aVoxels.size());  // a row has one voxel
    const float afAngles[] = {0, 90, -90};
    const auto GiveSlice = [&](int z, std::span<float> fSlice, std::string&)
    {
        std::ranges::fill(fSlice, 0.0f);
        for (int y = 0; y < iY; ++y)
            if (aVoxels[std::size_t(y)].iZ == z)
                fSlice[std::size_t(y * iX + aVoxels[std::size_t(y)].iX)] = 1;
        return true;
    };
    const auto TakeView = [&](int iView, std::span<const float> fView, std::string& rError)
    {
        for (int i = 0; i < int(fView.size()); ++i)
        {
            const Voxel& rVoxel = aVoxels[std::size_t(i / iX)];
            const int iFromAxis = 2 * rVoxel.iZ - (iZ - 1);  // half voxels
            const int iColumn = iView == 0   ? rVoxel.iX
                                : iView == 1 ? (iX - 1 + iFromAxis) / 2
                                             : (iX - 1 - iFromAxis) / 2;
            const double dError =
                std::fabs(double(fView[std::size_t(i)]) - (i % iX == iColumn ? 1 : 0));
            m_dWorstPixel = std::max(m_dWorstPixel, dError);
            if (dError > g_dRounding)
                return Fail(rError,
                            Format("the voxel at column %d and slice %d of %d x %d is not seen on "
                                   "pixel %d alone at %g degrees",
                                   rVoxel.iX, rVoxel.iZ, iX, iZ, iColumn, double(afAngles[iView])));
        }
        return true;
    };
    CReprojection aJob(m_aLink, m_aReport);
    return mCheck(aJob.Run({iX, iY, 3, iX, iZ}, afAngles, GiveSlice, TakeView), aJob);
}

bool CCheckGeometryCommand::mReconstruct(const std::string& strPath)
{
    const auto GiveView = [this](int i, std::span<float> fRaw, std::string&)
    {
        mGetCamera(i).Record(m_aBalls, fRaw);
        return true;
    };
    m_aOutput.SetUp(m_aForm, m_aPlan.GetResultSize(), 0);
    return mCheck(m_aJob.Upload(m_aPlan, GiveView) && m_aJob.Run(), m_aJob) &&
           mCheck(m_aOutput.Write(strPath, m_aPlan.DescribeMethod()), m_aOutput);
}

bool CCheckGeometryCommand::mCheckBalls(const std::string& strPath)
{
    CMrcReader aFile;
    if (!mCheck(aFile.Open(strPath), aFile) ||
        !FindBalls(aFile, int(m_aBalls.size()), m_aFound, m_strError))
        return false;
    const MrcHeader& rHeader = aFile.GetHeader();
    m_aFileSize = {double(rHeader.iX), double(rHeader.iY), double(rHeader.iZ)};
    for (const Ball& rBall : m_aBalls)
        m_aExpected.push_back(GetPlaceInFile(rBall.aPlace, m_aForm, m_aPlan.GetResultSize()));
    m_aFrame = FileFrame::Measure(m_aBalls, m_aFound);
    return ComparePlaces(m_aExpected, m_aFound, m_aFileSize, g_dAllowed, m_dWorstBall, m_strError);
}

/// What was measured, and what no projection tells: a specimen and its mirror image in Z have the
/// same ones at angles of opposite sign.
void CCheckGeometryCommand::mTell() const
{
    const Place& rN = m_aFileSize;
    mReport(mMakeJson(),
            Format("The geometry is right: %zu balls came through raw views of %d x %d to within "
                   "%.3f voxels of their places in a file of %g x %g x %g; single voxels fall on "
                   "their pixels at 0, 90 and -90 degrees, to %.0e",
                   m_aBalls.size(), m_aRawSize.iX, m_aRawSize.iY, m_dWorstBall, rN[0], rN[1], rN[2],
                   m_dWorstPixel));
    const std::array<std::string, 3> astrAxes = {m_aFrame.GetDirection(0), m_aFrame.GetDirection(1),
                                                 m_aFrame.GetDirection(2)};
    m_aReport.PrintLine(
        "Axes: of aligned views +X is to the right, +Y up along the tilt axis, +Z "
        "towards the eye. Columns of the file run along " +
        astrAxes[0] + ", rows along " + astrAxes[1] + ", sections along " + astrAxes[2] + ".");
    m_aReport.PrintLine(
        "Turn: a positive angle turns the near side, +Z, to the right, +X; seen from the +Y end of "
        "the tilt axis that is counterclockwise.");
    const bool bNear = astrAxes[m_aForm.bXzy ? 1 : 2] == "-Z";
    m_aReport.PrintLine(Format(
        "Beam: %s is the %s side, of the %s z. Where views show the specimen as seen from "
        "the source of the beam, the beam %s there; where as seen from the detector, it %s "
        "there.",
        m_aForm.bXzy ? "row 0 of every section" : "slice 0", bNear ? "near" : "far",
        bNear ? "highest" : "lowest", bNear ? "enters" : "leaves", bNear ? "leaves" : "enters"));
    m_aReport.PrintLine(
        std::string("Hand: with columns to the right, rows upwards and sections towards the eye "
                    "the file shows the specimen ") +
        (m_aFrame.IsMirrored() ? "as its mirror image." : "as it is, not mirrored."));
    m_aReport.PrintLine(
        "No projection tells how a stage turns: if its positive angles turn the near side to the "
        "left, side and hand are the other ones, and the other choice of --flip-z exchanges both.");
    m_aReport.PrintLine(
        Format("Centre: (%.2f, %.2f, %.2f) in the file, counted from 0; of n voxels it is at "
               "(n - 1) / 2. Programs that put it at n / 2 are half a voxel away where n is even.",
               m_aFrame.aOrigin[0], m_aFrame.aOrigin[1], m_aFrame.aOrigin[2]));
}

Json CCheckGeometryCommand::mMakeJson() const
{
    Json aBalls = Json::array();
    for (std::size_t i = 0; i < m_aFound.size(); ++i)
        aBalls.push_back({{"expected", m_aExpected[i]}, {"found", m_aFound[i]}});
    return {
        {"command", "check-geometry"},
        {"raw_size", {m_aRawSize.iX, m_aRawSize.iY}},
        {"file_size", m_aFileSize},
        {"balls", aBalls},
        {"worst_ball", m_dWorstBall},
        {"worst_pixel", m_dWorstPixel},
        {"axes", {m_aFrame.GetDirection(0), m_aFrame.GetDirection(1), m_aFrame.GetDirection(2)}},
        {"centre", m_aFrame.aOrigin},
        {"mirrored", m_aFrame.IsMirrored()},
        {"seconds", {{"total", m_aTotal.GetSeconds()}}}};
}

}  // namespace

std::unique_ptr<CCommand> MakeCheckGeometry()
{
    return std::make_unique<CCheckGeometryCommand>();
}

}  // namespace talven
