#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "Mrcfile/SaveMrc.h"
#include "talven/MrcReader.h"

// The files open elsewhere. Pixel x, y of section z is 20 z + 10 y + x: below 128, since readers
// disagree about the sign of bytes.

namespace
{
constexpr int g_iX = 6, g_iY = 5, g_iZ = 4;

class Readers : public testing::Test
{
protected:
    Readers()
    {
        char acDir[] = "/tmp/talven-readers-XXXXXX";
        m_aDir = mkdtemp(acDir);
    }
    ~Readers() override { std::filesystem::remove_all(m_aDir); }

    template <class T>
    std::string mWrite(int iMode) const
    {
        const std::string strPath = (m_aDir / ("mode" + std::to_string(iMode) + ".mrc")).string();
        CSaveMrc aSave;
        aSave.SetMode(iMode);
        aSave.SetImageSize(g_iX, g_iY);
        aSave.SetPixelSize(2.5f);
        aSave.SetNthLabel(0, "test");
        EXPECT_TRUE(aSave.OpenFile(strPath.c_str())) << aSave.GetError();
        for (int z = 0; z < g_iZ; ++z)
        {
            std::vector<T> vImage;
            for (int y = 0; y < g_iY; ++y)
                for (int x = 0; x < g_iX; ++x) vImage.push_back(T(20 * z + 10 * y + x));
            aSave.SetImage(vImage.data());
            EXPECT_TRUE(aSave.DoIt());
        }
        return strPath;
    }
    std::filesystem::path m_aDir;
};

int RunPython(const std::filesystem::path& rScript, const std::string& strPath)
{
    return std::system(("/usr/bin/python3 " + rScript.string() + " " + strPath).c_str());
}
}  // namespace

TEST_F(Readers, ClientLibrary)
{
    for (const std::string& strPath :
         {mWrite<float>(2), mWrite<short>(1), mWrite<unsigned short>(6), mWrite<unsigned char>(0)})
    {
        SCOPED_TRACE(strPath);
        talven::CMrcReader aReader;
        ASSERT_TRUE(aReader.Open(strPath)) << aReader.GetError();
        std::vector<float> vfSection(g_iX * g_iY);
        for (int z = 0; z < g_iZ; ++z)
        {
            ASSERT_TRUE(aReader.ReadSection(z, vfSection)) << aReader.GetError();
            for (int i = 0; i < g_iX * g_iY; ++i)
                ASSERT_EQ(vfSection[i], float(20 * z + 10 * (i / g_iX) + i % g_iX));
        }
    }
}

TEST_F(Readers, PythonMrcfile)
{
    const std::filesystem::path aProbe = m_aDir / "probe.py", aScript = m_aDir / "read.py";
    std::ofstream(aProbe) << "import importlib.util, sys\n"
                             "sys.exit(importlib.util.find_spec('mrcfile') is None)\n";
    if (RunPython(aProbe, "") != 0) GTEST_SKIP() << "no /usr/bin/python3 with mrcfile";
    std::ofstream(aScript) << R"(
import sys, warnings, mrcfile, numpy
warnings.simplefilter('ignore')
with mrcfile.open(sys.argv[1], permissive=True) as mrc:
    z, y, x = numpy.indices((4, 5, 6))
    good = mrc.data.shape == (4, 5, 6) and (mrc.data == 20 * z + 10 * y + x).all()
    good = good and mrc.header.dmax == 105 and mrc.extended_header.nbytes == 131072
sys.exit(not good)
)";
    EXPECT_EQ(RunPython(aScript, mWrite<float>(2)), 0);
    EXPECT_EQ(RunPython(aScript, mWrite<short>(1)), 0);
    EXPECT_EQ(RunPython(aScript, mWrite<unsigned short>(6)), 0);
    std::filesystem::resize_file(mWrite<float>(2), 132096 + 100);
    EXPECT_NE(RunPython(aScript, (m_aDir / "mode2.mrc").string()), 0);  // the script can fail
}
