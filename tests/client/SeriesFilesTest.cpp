// Files that come with a tilt series: good ones of each kind, and twenty kinds of broken ones.

#include <array>
#include <cmath>
#include <cstring>
#include <sstream>

#include "Support.h"
#include "talven/Angles.h"
#include "talven/HeaderAngles.h"
#include "talven/Mdoc.h"
#include "talven/MrcHeader.h"
#include "talven/TiltCommands.h"
#include "talven/ViewAlignment.h"

namespace talven::test
{
namespace
{

using Broken = std::vector<std::pair<std::string, const char*>>;  // text, part of the message

/// Every text is refused in one line that names the file and has that part.
template <class T>
void ExpectRefused(const Broken& rBroken,
                   bool (*Read)(std::istream&, const std::string&, T&, std::string&))
{
    EXPECT_GE(rBroken.size(), 20u);
    for (const auto& [strText, pcMessage] : rBroken)
    {
        SCOPED_TRACE(strText.substr(0, 200));
        std::istringstream aText(strText);
        T aResult;
        std::string strError;
        EXPECT_FALSE(Read(aText, "dir/f", aResult, strError));
        EXPECT_EQ(strError.rfind("dir/f", 0), 0u) << strError;
        EXPECT_NE(strError.find(pcMessage), std::string::npos) << strError;
        EXPECT_LT(strError.size(), 250u) << strError;
        for (const char c : strError) EXPECT_TRUE(c >= ' ' && c <= '~') << strError;
    }
}

const std::string g_strBinary(
    "\x7f"
    "ELF\x02\x01\x01\0\0\x1b[2J",
    12);

TEST(ClientSeriesFiles, BrokenAnglesAreRefused)
{
    const char* pcOne = "expected one angle";
    ExpectRefused<std::vector<float>>({{"", "no angles"},
                                       {"\n \n\r\n", "no angles"},
                                       {"# 3\n", "no angles"},
                                       {"1\n2 3\n", "line 2: expected one angle"},
                                       {"1\n\n# n\nx\n", "line 4"},
                                       {"1,5\n", pcOne},
                                       {"1.5.2\n", pcOne},
                                       {"nan\n", pcOne},
                                       {"inf\n", pcOne},
                                       {"1e99\n", pcOne},
                                       {"360.5\n", pcOne},
                                       {"-361\n", pcOne},
                                       {"0x10\n", pcOne},
                                       {"--3\n", pcOne},
                                       {"+-3\n", pcOne},
                                       {"3 deg\n", pcOne},
                                       {"\"3\"\n", pcOne},
                                       {"1;2\n", pcOne},
                                       {"\xef\xbb\xbf"
                                        "1\n",
                                        "\"???1\""},
                                       {std::string(100000, '9'), pcOne},
                                       {g_strBinary, "\"?ELF"}},
                                      ReadAngles);
}

TEST(ClientSeriesFiles, BrokenMapsAreRefused)
{
    const char *pcSix = "expected the six numbers", *pcLine = "would squeeze";
    ExpectRefused<std::vector<ViewMap>>({{"", "no maps"},
                                         {"\n\n", "no maps"},
                                         {"#1 0 0 1 0 0", "no maps"},
                                         {"1 0 0 1 0", pcSix},
                                         {"1 0 0 1 0 0\n1 0 0 1 0 0 0", "line 2: expected"},
                                         {"1 0 0 1 0 x", pcSix},
                                         {"1 0 0 1 nan 0", pcSix},
                                         {"1 0 0 1 0 -inf", pcSix},
                                         {"1 0 0 1 0 1e99", pcSix},
                                         {"1;0;0;1;0;0", pcSix},
                                         {"1,0 0,0 0,0 1,0 0,0 0,0", pcSix},
                                         {"1 0 0 1 0 0x1", pcSix},
                                         {"[1 0 0 1 0 0]", pcSix},
                                         {"1 0\n0 1\n0 0", "line 1: expected"},
                                         {"1 0 0 1 1 . 5 0", pcSix},
                                         {"0 0 0 0 0 0", pcLine},
                                         {"1 2 2 4 0 0", pcLine},
                                         {"1e-9 0 0 1 0 0", pcLine},
                                         {"1e4 0 0 1 0 0", "10000 is far"},
                                         {"1 0 0 1 0 -2e6", "-2e+06 is far"},
                                         {g_strBinary, pcSix}},
                                        ReadXf);
}

TEST(ClientSeriesFiles, BrokenMdocsAreRefused)
{
    const std::string strZ = "[ZValue = 0]\n";
    ExpectRefused<Mdoc>(
        {{"", "no sections"},
         {"PixelSpacing = 2\n", "no sections"},
         {"[T = title]\n", "no sections"},
         {"[ZValue = 0\n", "no ] at the end"},
         {"[ZValue]\n", "expected KEY = VALUE"},
         {"[ZValue = ]\n", "expected a number of a section, found \"\""},
         {"[ZValue = one]\n", "found \"one\""},
         {"[ZValue = -1]\n", "found \"-1\""},
         {"[ZValue = 1.5]\n", "found \"1.5\""},
         {"[ZValue = 4000000000]\n", "found \"4000000000\""},
         {strZ + strZ, "line 2: ZValue = 0 for the second time"},
         {"[FrameSet = 0]\n" + strZ, "line 2: ZValue = 0 for the second time"},
         {strZ + "TiltAngle 3\n", "line 2: expected KEY = VALUE, found \"TiltAngle 3\""},
         {strZ + "TiltAngle =\n", "TiltAngle: expected an angle in degrees, found \"\""},
         {strZ + "TiltAngle = 3 4\n", "TiltAngle: expected an angle in degrees, found \"3 4\""},
         {strZ + "TiltAngle = 400\n", "TiltAngle: expected"},
         {strZ + "TiltAngle = nan\n", "TiltAngle: expected"},
         {strZ + "TiltAngle = 1\nTiltAngle = 2\n", "line 3: TiltAngle for the second time"},
         {strZ + "ExposureDose = -1\n", "ExposureDose: expected a dose of 0 or more"},
         {strZ + "PriorRecordDose = 1e300\n", "PriorRecordDose: expected"},
         {"PixelSpacing = 0\n" + strZ, "PixelSpacing: expected a pixel size"},
         {strZ + "RotationAngle = x\n", "RotationAngle: expected"},
         {"[T = Tilt axis angle = east]\n" + strZ, "expected the angle of the tilt axis"},
         {"[T = Tilt axis angle = 1]\n[T = Tilt axis angle = 2]\n", "at 2 degrees here, but at 1"},
         {g_strBinary, "expected KEY = VALUE, found \"?ELF"}},
        [](std::istream& rText, const std::string& strName, Mdoc& rMdoc, std::string& rError)
        { return ReadMdoc(rText, strName, rMdoc, rError); });
}

TEST(ClientSeriesFiles, BrokenCommandsAreRefused)
{
    const std::string strT = "$tilt -StandardInput\n", strN = "$newst -StandardInput\n";
    ExpectRefused<SeriesCommands>(
        {{"", "no commands"},
         {"# THICKNESS 3\n", "no commands"},
         {"$b\nTHICKNESS 3\n", "neither a tilt.com nor a newst.com"},
         {"THICKNESS 3\n", "expected a line \"$tilt\""},
         {strT + "THICKNES 3\n", "line 2: unknown keyword \"THICKNES\""},
         {strN + "THICKNESS 3\n", "unknown keyword \"THICKNESS\""},
         {strT + "THICKNESS\n", "THICKNESS: expected a whole number of pixels above 0, found \"\""},
         {strT + "THICKNESS 0\n", "THICKNESS: expected"},
         {strT + "THICKNESS 3.5\n", "THICKNESS: expected"},
         {strT + "THICKNESS 3 4\n", "THICKNESS: expected"},
         {strT + "THICKNESS 1e30\n", "THICKNESS: expected"},
         {strT + "THICKNESS 3\nthickness 3\n", "line 3: THICKNESS: for the second time"},
         {strT + "IMAGEBINNED 0\n", "IMAGEBINNED: expected a whole number from 1 to 64"},
         {strT + "SHIFT 1 2 3\n", "SHIFT: expected one or two shifts"},
         {strT + "SHIFT nan 2\n", "SHIFT: expected"},
         {strT + "OFFSET\n", "OFFSET: expected an angle"},
         {strT + "XAXISTILT 120\n", "XAXISTILT: expected an angle up to 60"},
         {strT + "RADIAL -0.1 0\n", "RADIAL: expected a cutoff above 0"},
         {strT + "HammingLikeFilter 0.2\n", "the window begins at 0.2"},
         {strT + "EXCLUDELIST 3-1\n", "EXCLUDELIST: expected views counted from 1"},
         {strT + "EXCLUDELIST 1-2000000000\n", "EXCLUDELIST: expected views"},
         {strT + "FULLIMAGE 100\n", "FULLIMAGE: expected two extents"},
         {strT + "ANGLES 1 2 999\n", "ANGLES: expected angles within"},
         {strT + "TILTFILE\n", "TILTFILE: expected the name of a file"},
         {strT + "LOCALFILE l.xf\n", "LOCALFILE: maps that differ from place to place within"},
         {strT + "ZFACTORFILE z\n", "ZFACTORFILE: shifts of views that grow with z"},
         {strT + "LOG 0\n", "LOG: views are taken as they are; talven transform --log"},
         {strT + "SLICE 1 3\n", "SLICE: only whole volumes"},
         {strT + "REPROJECT\n", "REPROJECT: views of a volume"},
         {strT + strT, "line 2: dir/f has commands of the same kind"},
         {strT + "WIDTH 3 \\\n", "the last line goes on"},
         {strN + "BinByFactor 2.5\n", "BinByFactor: expected"},
         {strN + "SizeToOutputInXandY 3,0\n", "SizeToOutputInXandY: expected two whole"},
         {strN + "OffsetsInXandY 0,4\n", "OffsetsInXandY: only 0 can be done here, not 0,4"},
         {strN + "DistortionField d.idf\n", "DistortionField: distortions within"},
         {g_strBinary, "expected a line \"$tilt\""}},
        ReadCommands);
}

SeriesCommands Commands(const std::string& strPath, const std::string& strText)
{
    std::istringstream aText(strText);
    SeriesCommands aCommands;
    std::string strError;
    EXPECT_TRUE(ReadCommands(aText, strPath, aCommands, strError)) << strError;
    return aCommands;
}

TEST(ClientSeriesFiles, CommandsAreTaken)
{
    const TiltCommands aTilt = Commands("d/rec.com",
                                        "# from a wizard\r\n$setenv A b\r\nUNKNOWN 1\r\n"
                                        "$tilt -StandardInput\r\nInputProjections a.ali\r\n"
                                        "THICKNESS=300 # voxels\r\nwidth 200\r\nIMAGEBINNED 4\r\n"
                                        "SHIFT 1.5,-2\r\nOFFSET 3 0.5\r\nXAXISTILT -1.25\r\n"
                                        "RADIAL .35 .05\r\nFalloffIsTrueSigma 1\r\nUseGPU 0\r\n"
                                        "EXCLUDELIST2 7,1-3\r\nEXCLUDELIST 2 9, \\\r\n11 - 12\r\n"
                                        "FULLIMAGE 400 300\r\nSUBSETSTART -50 50\r\n"
                                        "TILTFILE a.tlt\r\nXTILTFILE /x/a.xtilt\r\n"
                                        "FakeSIRTiterations 20\r\nHammingLikeFilter 0\r\n"
                                        "$if (-e ./savework) ./savework\r\n")
                                   .aTilt;
    EXPECT_EQ(aTilt.strPath, "d/rec.com");
    EXPECT_EQ(aTilt.dThickness, 300);
    EXPECT_EQ(aTilt.dWidth, 200);
    EXPECT_EQ(aTilt.iBinned, 4);
    EXPECT_EQ(aTilt.adShift, (std::array<double, 2>{1.5, -2}));
    EXPECT_EQ(aTilt.adOffset, (std::array<double, 2>{3, 0.5}));
    EXPECT_EQ(aTilt.dTiltX, -1.25);
    EXPECT_NEAR(aTilt.adRadial->at(0), 0.35, 1e-6);
    EXPECT_NEAR(aTilt.adRadial->at(1), 0.05, 1e-6);
    EXPECT_TRUE(aTilt.bTrueSigma && aTilt.bHamming);
    EXPECT_EQ(aTilt.viExclude, (std::vector<int>{0, 1, 2, 6, 8, 10, 11}));
    EXPECT_EQ(aTilt.adFull, (std::array<double, 2>{400, 300}));
    EXPECT_EQ(aTilt.adStart, (std::array<double, 2>{-50, 50}));
    EXPECT_EQ(aTilt.strAngles, "d/a.tlt");
    EXPECT_EQ(aTilt.strXTilts, "/x/a.xtilt");
    EXPECT_EQ(aTilt.iSirtLike, 20);

    const StackCommands aStack = Commands("newst.com",
                                          "InputFile a.st\nTransformFile a.xf\nBinByFactor 4\n"
                                          "SizeToOutputInXandY 100,90\nOffsetsInXandY 0.0,0.0\n"
                                          "TaperAtFill 1,1\nAdjustOrigin\nImagesAreBinned 1.0\n")
                                     .aStack;
    EXPECT_EQ(aStack.strMaps, "a.xf");
    EXPECT_EQ(aStack.iBin, 4);
    EXPECT_TRUE(aStack.aSize.iX == 100 && aStack.aSize.iY == 90);
    EXPECT_EQ(Commands("tilt.com", "ANGLES 1 2,3\nANGLES 4\n").aTilt.vfAngles,
              (Floats{1, 2, 3, 4}));
}

Mdoc ParseMdoc(const std::string& strText)
{
    std::istringstream aText(strText);
    Mdoc aMdoc;
    std::string strError;
    EXPECT_TRUE(ReadMdoc(aText, "m", aMdoc, strError)) << strError;
    return aMdoc;
}

/// "angle prior+exposure", "-" for what is not known.
std::string Describe(const Mdoc& rMdoc, int iViews)
{
    MdocViews aViews;
    std::string strError;
    if (!FitToStack(rMdoc, iViews, aViews, strError)) return strError;
    std::ostringstream aText;
    for (int i = 0; i < iViews; ++i)
    {
        const auto& rAngle = aViews.vfAngles[std::size_t(i)];
        rAngle ? aText << *rAngle : aText << "-";
        if (aViews.aDoses.empty())
            aText << " -, ";
        else
            aText << " " << aViews.aDoses[std::size_t(i)].dPrior << "+"
                  << aViews.aDoses[std::size_t(i)].dExposure << ", ";
    }
    for (const int iView : aViews.viMissing) aText << "missing " << iView;
    return aText.str();
}

TEST(ClientSeriesFiles, MdocsAreTaken)
{
    const Mdoc aMdoc = ParseMdoc(
        "PixelSpacing = 2.7\r\nVoltage = 300\r\n\r\n[T = microscope: 1]\r\n"
        "[T =     Tilt axis angle = 85.3, binning = 1  spot = 8]\r\n\r\n"
        "[ZValue = 1]\r\nTiltAngle = 3.01\r\nExposureDose = 2\r\nDateTime = 05-Nov-20  15:21:38\r\n"
        "StagePosition = 1 2\r\n[ZValue = 0]\r\nTiltAngle = 0\r\nRotationAngle = -4.7\r\n"
        "ExposureDose = 1\r\nDateTime = 05-Nov-20  15:20:00\r\nSubFramePath = D:\\a b#1.tif\r\n"
        "[ZValue = 2]\r\nTiltAngle = -3\r\nExposureDose = 4\r\nDateTime = 2020-Nov-05  15:22:00\r\n"
        "[MontSection = 0]\r\nTiltAngle = 50\r\n");
    EXPECT_EQ(aMdoc.dPixel, 2.7);
    EXPECT_EQ(aMdoc.dTiltAxis, 85.3);
    EXPECT_TRUE(aMdoc.bRotation);
    EXPECT_EQ(Describe(aMdoc, 3), "0 0+1, 3.01 1+2, -3 3+4, ");
    EXPECT_EQ(Describe(aMdoc, 4), "0 -, 3.01 -, -3 -, - -, missing 3");
    EXPECT_EQ(Describe(aMdoc, 2),
              "m has 3 sections up to number 2, but the stack has 2, up to number 1");
    // The stack lacks the view that the file leaves out, or has it.
    const std::string strGap =
        "[FrameSet = 3]\ntiltangle = 6\nPixelSpacing = 1.5\nExposureDose = 2\nPriorRecordDose = 0\n"
        "[FrameSet = 0]\nTiltAngle = 0\nExposureDose = 2\nPriorRecordDose = ";
    EXPECT_EQ(ParseMdoc(strGap + "9").dPixel, 1.5);
    EXPECT_EQ(Describe(ParseMdoc(strGap + "9"), 2), "0 9+2, 6 0+2, ");
    EXPECT_EQ(Describe(ParseMdoc(strGap + "0"), 2), "0 2+2, 6 0+2, ") << "nobody counted";
    EXPECT_EQ(Describe(ParseMdoc(strGap + "9"), 4), "0 -, - -, - -, 6 -, missing 1missing 2");
    EXPECT_NE(Describe(ParseMdoc(strGap + "9"), 3).find("number 3"), std::string::npos);
    EXPECT_EQ(Describe(ParseMdoc("[ZValue = 0]\nExposureDose = 0\n"), 1), "- -, ") << "0: unknown";
}

/// An MRC file of three sections with an extended header.
struct Extended
{
    std::string strBytes;
    Extended(const char* pcKind, std::int16_t sInts, std::int16_t sReals, int iBytes)
    {
        MrcHeader aHeader;
        aHeader.iX = aHeader.iY = 1;
        aHeader.iZ = 3;
        const auto acHeader = aHeader.Format();
        strBytes.assign(reinterpret_cast<const char*>(acHeader.data()), acHeader.size());
        strBytes.resize(strBytes.size() + std::size_t(iBytes));
        Put(92, iBytes);
        strBytes.replace(104, 4, pcKind, 4);
        Put(128, sInts);
        Put(130, sReals);
    }
    template <class T>
    void Put(std::size_t tOffset, T tValue)
    {
        std::memcpy(strBytes.data() + tOffset, &tValue, sizeof(T));
    }
    /// Angles, or why there are none.
    std::string Read() const
    {
        Floats vfAngles;
        std::string strError;
        if (!ParseHeaderAngles(std::as_bytes(std::span(strBytes)), vfAngles, strError))
            return strError;
        std::ostringstream aText;
        for (const float fAngle : vfAngles) aText << fAngle << " ";
        return aText.str();
    }
};

TEST(ClientSeriesFiles, HeadersHaveAngles)
{
    Extended aFei("FEI2", 0, 0, 3 * 888);
    for (std::size_t i = 0; i < 3; ++i)
    {
        aFei.Put(1024 + i * 888, 888);
        aFei.Put(1124 + i * 888, 2.5 * double(i) - 1);
    }
    EXPECT_EQ(aFei.Read(), "-1 1.5 4 ");
    for (const std::uint32_t uiRecord : {0u, 99u, 5000u, 0xFFFFFFFFu})
    {
        aFei.Put(1024 + 888, uiRecord);
        EXPECT_EQ(aFei.Read(), "the extended header ends before section 2");
    }
    aFei.Put(1024 + 888, 888);
    aFei.Put(1124 + 888, std::nan(""));
    EXPECT_EQ(aFei.Read(), "the extended header has nan degrees for section 2");
    aFei.strBytes.resize(1024 + 300);
    EXPECT_EQ(aFei.Read(), "the extended header ends before section 1");

    for (const char* pcKind : {"SERI", "\0\0\0\0"})
    {
        Extended aSeri(pcKind, 12, 1 | 2 | 4, 36);  // angle, place in a montage, stage
        EXPECT_EQ(aSeri.Read(), "the extended header has 0 degrees for all sections");
        for (std::size_t i = 0; i < 3; ++i)
            aSeri.Put(1024 + 12 * i, std::int16_t(301 * (int(i) - 1)));
        EXPECT_EQ(aSeri.Read(), "-3.01 0 3.01 ");
    }
    EXPECT_EQ(Extended("SERI", 6, 2, 36).Read(), "the extended header has no tilt angles");
    for (const char* pcKind : {"AGAR", "\0\0\0\0"})
    {
        Extended aFloats(pcKind, 0, 32, 3 * 128);
        for (std::size_t i = 0; i < 3; ++i) aFloats.Put(1024 + 128 * i, float(i) * 2.5f);
        EXPECT_EQ(aFloats.Read(), "0 2.5 5 ");
    }
    EXPECT_EQ(Extended("ABCD", 0, 0, 100).Read(), "the extended header is of no known kind");
    EXPECT_EQ(Extended("\0\0\0\0", 0, 0, 0).Read(), "there is no extended header");
}

}  // namespace
}  // namespace talven::test
