// A series with the files that come with it: a dot comes back where it was, and files that
// disagree.

#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#include "Program.h"
#include "talven/ViewAlignment.h"

namespace talven::test
{
namespace
{

/// Where the dot is, voxels from the centre of the volume.
constexpr double g_dX = 7.3, g_dY = -4.6, g_dZ = 3.7;

class ClientSeries : public CProgramTest
{
protected:
    /// Writes raw.mrc: 60 views of a dot of Gaussian density, 3 degrees apart from -90 on, of which
    /// views 8 and 21 show nothing but a bright bar.
    /// \param iBin   raw pixels in a voxel
    /// \param rMaps  a raw pixel at r from the centre shows what lies at A r + D, raw pixels, in
    /// the
    ///               aligned view
    /// \param dAxis  place of the tilt axis, voxels from the centres of the aligned views
    void mWriteViews(const ImageSize& rRaw, int iBin, const std::vector<ViewMap>& rMaps,
                     double dAxis = 0)
    {
        std::vector<Floats> vvfViews;
        m_strAngles.clear();
        for (int i = 0; i < 60; ++i)
        {
            const double dTilt = (3 * i - 90) * std::numbers::pi / 180;
            m_strAngles += std::to_string(3 * i - 90) + "\n";
            const double dU = g_dX * std::cos(dTilt) + g_dZ * std::sin(dTilt) + dAxis;
            const ViewMap& r = rMaps[std::size_t(i) % rMaps.size()];
            Floats& rvfView = vvfViews.emplace_back(rRaw.GetPixels());
            for (std::size_t n = 0; n < rvfView.size(); ++n)
            {
                const double dX = double(n % std::size_t(rRaw.iX)) - (rRaw.iX - 1) / 2.0;
                const double dY = double(n / std::size_t(rRaw.iX)) - (rRaw.iY - 1) / 2.0;
                const double dFarX = (r.dA11 * dX + r.dA12 * dY + r.dX) / iBin - dU;
                const double dFarY = (r.dA21 * dX + r.dA22 * dY + r.dY) / iBin - g_dY;
                rvfView[n] = float(100 * std::exp(-(dFarX * dFarX + dFarY * dFarY) / 18));
                if (i == 7 || i == 20) rvfView[n] = dX > 0 ? 1000.0f : 0.0f;
            }
        }
        mWrite("raw.mrc", rRaw.iX, rRaw.iY, vvfViews);
    }
    /// Maps that differ from view to view.
    std::vector<ViewMap> mMakeMaps(const ViewMap& rLast)
    {
        std::vector<ViewMap> aMaps;
        std::string strXf;
        for (int i = 0; i < 60; ++i)
        {
            const double dTurn = 0.2 * std::sin(i);
            ViewMap r = {1.05 * std::cos(dTurn), -std::sin(dTurn),    std::sin(dTurn) + 0.05,
                         std::cos(dTurn),        5 * std::sin(2 * i), 4 * std::cos(i)};
            r = r.Then(rLast);
            aMaps.push_back(r);
            for (const double d : {r.dA11, r.dA12, r.dA21, r.dA22, r.dX, r.dY})
                strXf += std::to_string(d) + " ";
            strXf += "\n";
        }
        WriteFile(m_aDir / "raw.xf", strXf);
        return aMaps;
    }
    /// Reconstructs, and expects the dot that far from where it was, and the volume so large.
    void mExpectDot(const std::string& strArgs, const std::array<double, 3>& rMoved,
                    const std::array<int, 3>& rSize)
    {
        SCOPED_TRACE(strArgs);
        mRun("reconstruct --tilts raw.mrc --method wbp -o rec.mrc " + strArgs);
        const Floats vfVolume = mRead("rec.mrc");
        const MrcHeader& rHeader = m_aReader.GetHeader();
        ASSERT_EQ((std::array{rHeader.iX, rHeader.iY, rHeader.iZ}), rSize);
        const double adDot[3] = {g_dX + rMoved[0], g_dY + rMoved[1], g_dZ + rMoved[2]};
        double dSum = 0, adPlace[3] = {};
        for (std::size_t n = 0; n < vfVolume.size(); ++n)
        {
            const std::size_t tX = std::size_t(rHeader.iX), tY = std::size_t(rHeader.iY);
            const std::size_t atAt[3] = {n % tX, n / tX % tY, n / (tX * tY)};
            double adAt[3], dFar = 0;
            for (std::size_t i = 0; i < 3; ++i)
            {
                adAt[i] = double(atAt[i]) - (rSize[i] - 1) / 2.0;
                dFar += std::pow(adAt[i] - adDot[i], 2);
            }
            if (dFar > 100) continue;
            dSum += double(vfVolume[n]);
            for (std::size_t i = 0; i < 3; ++i) adPlace[i] += double(vfVolume[n]) * adAt[i];
        }
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(adPlace[i] / dSum, adDot[i], 0.05) << "along "
                                                           << "XYZ"[i];
    }
    std::string m_strAngles;
};

const std::string g_strTilt = "$tilt -StandardInput\nTILTFILE raw.tlt\nEXCLUDELIST 8,21\n";

TEST_F(ClientSeries, CommandFilesPutTheDotWhereTheySay)
{
    std::filesystem::create_directory(m_aDir / "s");
    mWriteViews({160, 120}, 2, mMakeMaps({}));
    std::filesystem::rename(m_aDir / "raw.xf", m_aDir / "s/raw.xf");
    WriteFile(m_aDir / "s/raw.tlt", m_strAngles);
    WriteFile(m_aDir / "s/newst.com",
              "$newst -StandardInput\nTransformFile raw.xf\nBinByFactor 2\n"
              "SizeToOutputInXandY 76,58\n");
    // Lengths are in raw pixels. The rows of a slice run against z.
    WriteFile(m_aDir / "s/tilt.com",
              g_strTilt +
                  "IMAGEBINNED 2\nTHICKNESS 83\nWIDTH 140\nSHIFT 3 -5\nFULLIMAGE 160 120\n"
                  "SUBSETSTART 4 2\n");
    mExpectDot("--from s/tilt.com,s/newst.com", {1.5, 0, 2.5}, {70, 58, 41});
    EXPECT_NE(m_strOut.find("angles from s/raw.tlt\n"), std::string::npos) << m_strOut;
    mExpectDot("--from s/newst.com,s/tilt.com --thickness 39 --width 72 --shift-z 1 --size 80,60",
               {1.5, 0, 1}, {72, 60, 39});
    mExpectDot("--from s/newst.com --thickness 39 --angles s/raw.tlt --exclude 8,21", {},
               {76, 58, 39});
    mExpectDot("--from s/tilt.com --xf s/raw.xf", {1.5, 0, 2.5}, {70, 60, 41});
    mExpectDot("--from s/tilt.com --xf s/raw.xf --tilt-axis 0 --orientation xyz", {1.5, 0, 2.5},
               {70, 60, 41});
    // Without IMAGEBINNED lengths are of the binned views.
    WriteFile(m_aDir / "s/tilt.com", g_strTilt + "THICKNESS 41\nSHIFT 3 -5\n");
    mExpectDot("--from s/tilt.com,s/newst.com", {3, 0, 5}, {76, 58, 41});

    // Aligned views that were binned before; the tilt axis is not in their middle, angles are off.
    mWriteViews({80, 60}, 1, {{}}, 2.25);
    std::string strOff;
    for (int i = 0; i < 60; ++i) strOff += std::to_string(3 * i - 92) + "\n";
    WriteFile(m_aDir / "s/raw.tlt", strOff);
    WriteFile(m_aDir / "s/tilt.com",
              g_strTilt + "IMAGEBINNED 4\nTHICKNESS 164\nOFFSET 2 9\nSHIFT -4 6\n");
    mExpectDot("--from s/tilt.com", {2.25 - 1, 0, -1.5}, {80, 60, 41});

    // Along the rows, which run against z, the specimen rises by 8 degrees towards +Y.
    mWriteViews({80, 60}, 1, {{}});
    WriteFile(m_aDir / "s/raw.tlt", m_strAngles);
    WriteFile(m_aDir / "s/raw.xtilt", "3\n3\n");
    WriteFile(m_aDir / "s/tilt.com", g_strTilt +
                                         "THICKNESS 41\nSHIFT 2 -1\nXAXISTILT 5\n"
                                         "XTILTFILE raw.xtilt\n");
    const double dRise = -8 * std::numbers::pi / 180;
    const double dFlatY = g_dY * std::cos(dRise) + g_dZ * std::sin(dRise);
    const double dFlatZ = g_dZ * std::cos(dRise) - g_dY * std::sin(dRise);
    mExpectDot("--from s/tilt.com", {2, dFlatY - g_dY, dFlatZ - g_dZ + 1}, {80, 60, 41});
    mExpectDot("--from s/tilt.com --x-tilt 0", {2, 0, 1}, {80, 60, 41});
}

TEST_F(ClientSeries, AnMdocTurnsTheViewsAndNamesThem)
{
    mWriteViews({81, 64}, 1, {Turn(-85.3)});
    std::string strMdoc = "PixelSpacing = 2.04\n[T =  Tilt axis angle = 85.3, binning = 1]\n";
    for (int i = 59; i >= 0; --i)
        if (i != 7 && i != 20)
            strMdoc += "[ZValue = " + std::to_string(i) +
                       "]\nTiltAngle = " + std::to_string(3 * i - 90) + "\n";
    WriteFile(m_aDir / "raw.mdoc", strMdoc);
    mExpectDot("--mdoc raw.mdoc --thickness 41 --size 80,60", {}, {80, 60, 41});
    EXPECT_NE(m_strOut.find("tilt axis at 85.3 degrees, from raw.mdoc; angles from raw.mdoc; left "
                            "out, not in raw.mdoc: view 8 21\n"),
              std::string::npos)
        << m_strOut;
    // Maps have the turn in them.
    mWriteViews({81, 64}, 1, mMakeMaps(Turn(-85.3)));
    mExpectDot("--mdoc raw.mdoc --xf raw.xf --thickness 41 --size 80,60", {}, {80, 60, 41});
    // What tilt.com works on is aligned.
    mWriteViews({80, 60}, 1, {{}});
    WriteFile(m_aDir / "tilt.com", "THICKNESS 41\n");
    mExpectDot("--mdoc raw.mdoc --from tilt.com", {}, {80, 60, 41});
}

TEST_F(ClientSeries, AnExtendedHeaderHasTheAngles)
{
    std::string strStack = ReadFile(m_aDir / "ph.mrc"), strRecords;
    for (int i = 0; i < 41; ++i)
    {
        const auto sAngle = std::int16_t(100 * (3 * i - 60));
        strRecords.append(reinterpret_cast<const char*>(&sAngle), sizeof sAngle);
    }
    const auto Put = [&strStack](std::size_t tOffset, auto tValue)
    { std::memcpy(strStack.data() + tOffset, &tValue, sizeof tValue); };
    Put(92, int(strRecords.size()));  // NSYMBT
    Put(128, std::int16_t(2));        // bytes in a record
    Put(130, std::int16_t(1));        // flags
    WriteFile(m_aDir / "told.mrc", strStack.insert(1024, strRecords));
    const std::string strRest = " --thickness 36 --method bp -o rec.mrc";
    mRun("reconstruct --tilts ph.mrc --angles ph.tlt" + strRest);
    const Floats vfExpected = mRead("rec.mrc");
    EXPECT_NE(mRun("reconstruct --tilts told.mrc" + strRest)
                  .find("angles from the extended header of told.mrc\n"),
              std::string::npos);
    EXPECT_EQ(mRead("rec.mrc"), vfExpected);
}

TEST_F(ClientSeries, FilesThatDisagreeAreRefusedWithBothValues)
{
    const auto Mdoc = [&](const char* pcName, const std::string& strTop, int iViews, double dStep)
    {
        std::string strText = strTop;
        for (int i = 0; i < iViews; ++i)
            strText += "[ZValue = " + std::to_string(i) +
                       "]\nTiltAngle = " + std::to_string(dStep * i - 60) + "\n";
        WriteFile(m_aDir / pcName, strText);
    };
    Mdoc("good.mdoc", "PixelSpacing = 7\n", 41, 3);
    Mdoc("long.mdoc", "", 42, 3);
    Mdoc("steep.mdoc", "", 41, 3.2);
    Mdoc("fine.mdoc", "PixelSpacing = 3.5\n", 41, 3);
    Mdoc("turn.mdoc", "[ZValue = 40]\nRotationAngle = 5\nTiltAngle = 60\n", 40, 3);
    WriteFile(m_aDir / "blind.mdoc", "[ZValue = 0]\nTiltAngle = 3\n[ZValue = 1]\nStage = 1\n");
    WriteFile(m_aDir / "few.tlt", "1\n2\n");
    WriteFile(m_aDir / "few.xf", "1 0 0 1 0 0\n");
    WriteFile(m_aDir / "same.xtilt", "1\n1\n");
    WriteFile(m_aDir / "mixed.xtilt", "1\n1.5\n");
    const auto Commands = [&](const std::string& strName, const std::string& strText)
    { WriteFile(m_aDir / strName, strText + "\n"); };
    Commands("tilt-few.com", "TILTFILE few.tlt");
    Commands("tilt-list.com", "EXCLUDELIST 3,42");
    Commands("tilt-bin.com", "IMAGEBINNED 2");
    Commands("tilt-sub.com", "FULLIMAGE 90 43\nSUBSETSTART 10 0");
    Commands("tilt-mixed.com", "XTILTFILE mixed.xtilt");
    Commands("tilt-none.com", "XTILTFILE none.xtilt");
    Commands("newst.com", "BinByFactor 4");
    Commands("newst-few.com", "TransformFile few.xf");
    const std::string strBare = "reconstruct --tilts ph.mrc -o rec.mrc ";
    const std::string strAll = strBare + "--angles ph.tlt --thickness 36 ";
    const std::pair<std::string, const char*> aRefused[] = {
        {strBare + "--angles ph.tlt", "--thickness is required where no file has it"},
        {strBare + "--thickness 3",
         "--angles is required where no other file has them; ph.mrc: "
         "there is no extended header"},
        {strAll + "--mdoc long.mdoc",
         "long.mdoc has 42 sections up to number 41, but the stack has 41, up to number 40"},
        {strAll + "--mdoc steep.mdoc",
         "view 27 is tilted by 18 degrees in ph.tlt, but by 23.2 in steep.mdoc"},
        {strAll + "--mdoc fine.mdoc", "fine.mdoc has pixels of 3.5 Angstrom, but ph.mrc of 7"},
        {strAll + "--mdoc turn.mdoc", "turn.mdoc: no title has a tilt axis angle"},
        {strBare + "--thickness 3 --mdoc blind.mdoc", "blind.mdoc: no TiltAngle for view 2"},
        {strBare + "--thickness 3 --from tilt-few.com", "few.tlt has 2 angles, but ph.mrc has 41"},
        {strAll + "--from tilt-list.com", "tilt-list.com lists view 42, but ph.mrc has 41"},
        {strAll + "--from tilt-bin.com,newst.com",
         "tilt-bin.com has IMAGEBINNED 2, but newst.com has BinByFactor 4"},
        {strAll + "--from newst-few.com", "few.xf has 1 maps, but ph.mrc has 41 sections"},
        {strAll + "--from tilt-sub.com",
         "FULLIMAGE 90 and SUBSETSTART 10 have their middle at pixel 35 of the aligned views along "
         "X, but these are 90 wide"},
        {strAll + "--from tilt-mixed.com", "mixed.xtilt: views turned about X by 1 to 1.5 degrees"},
        {strAll + "--from tilt-none.com", "none.xtilt: cannot read: No such file"},
        {strAll + "--from newst.com,newst.com", "newst.com has commands of the same kind"},
        {strAll + "--mdoc tmp", "tmp: cannot read"}};
    for (const auto& [strArgs, pcReason] : aRefused)
    {
        SCOPED_TRACE(strArgs);
        mExpectFailure(mStart(strArgs), pcReason);
    }
    // Within the limits: what was given wins.
    mRun(strAll + "--mdoc good.mdoc --method bp --from tilt-list.com --exclude 1");
}

}  // namespace
}  // namespace talven::test
