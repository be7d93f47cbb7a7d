#include <algorithm>
#include <cctype>
#include <filesystem>

#include "StackFormats.h"
#include "TiffStack.h"
#include "talven/Text.h"

namespace talven
{
namespace
{

namespace fs = std::filesystem;

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// Whether a name comes before another one when the numbers in them count as numbers.
bool IsBefore(const std::string& strA, const std::string& strB)
{
    std::size_t a = 0, b = 0;
    while (a < strA.size() && b < strB.size())
    {
        if (!IsDigit(strA[a]) || !IsDigit(strB[b]))
        {
            if (strA[a] != strB[b]) return strA[a] < strB[b];
            ++a, ++b;
            continue;
        }
        const auto TakeNumber = [](const std::string& strText, std::size_t& rAt)
        {
            while (rAt + 1 < strText.size() && strText[rAt] == '0' && IsDigit(strText[rAt + 1]))
                ++rAt;
            const std::size_t tBegin = rAt;
            while (rAt < strText.size() && IsDigit(strText[rAt])) ++rAt;
            return strText.substr(tBegin, rAt - tBegin);
        };
        const std::string strNumberA = TakeNumber(strA, a), strNumberB = TakeNumber(strB, b);
        if (strNumberA.size() != strNumberB.size()) return strNumberA.size() < strNumberB.size();
        if (strNumberA != strNumberB) return strNumberA < strNumberB;
    }
    if (strA.size() - a != strB.size() - b) return strA.size() - a < strB.size() - b;
    return strA < strB;  // 01 and 1
}

bool IsTiffName(const fs::path& rName)
{
    std::string strEnd = rName.extension().string();
    for (char& rc : strEnd) rc = static_cast<char>(std::tolower(static_cast<unsigned char>(rc)));
    return strEnd == ".tif" || strEnd == ".tiff";
}

}  // namespace

bool CTiffFolder::Open(const std::string& strPath)
{
    m_strPath = strPath;
    std::error_code aError;
    fs::directory_iterator aEntry(strPath, aError);
    for (; !aError && aEntry != fs::directory_iterator(); aEntry.increment(aError))
        if (IsTiffName(aEntry->path())) m_vstrFiles.push_back(aEntry->path().filename().string());
    if (aError) return mFail("cannot read: " + aError.message());
    if (m_vstrFiles.empty()) return mFail("no TIFF files (.tif, .tiff) in this folder");
    std::sort(m_vstrFiles.begin(), m_vstrFiles.end(), IsBefore);
    for (int i = 0; i < static_cast<int>(m_vstrFiles.size()); ++i)
    {
        CTiffStack aFile;
        if (!mOpenFile(i, aFile)) return false;
    }
    return true;
}

bool CTiffFolder::mOpenFile(int iZ, CTiffStack& rFile)
{
    const std::string& rName = m_vstrFiles[std::size_t(iZ)];
    if (!rFile.Open((fs::path(m_strPath) / rName).string())) return mFailAs(rFile);
    const ImageSize &rSize = rFile.GetSize(), aFirst = m_aSize;
    if (rFile.GetSections() > 1)
        return mFail(Format("%s has %d images; a file of a folder has one", rName.c_str(),
                            rFile.GetSections()));
    if (m_iSections == 0) return mSetSize(rSize.iX, rSize.iY, m_vstrFiles.size());
    if (rSize.iX == aFirst.iX && rSize.iY == aFirst.iY) return true;
    return mFail(Format("%s is %d x %d, %s %d x %d", rName.c_str(), rSize.iX, rSize.iY,
                        m_vstrFiles[0].c_str(), aFirst.iX, aFirst.iY));
}

bool CTiffFolder::mRead(int iZ, std::span<float> fPixels)
{
    CTiffStack aFile;
    return mOpenFile(iZ, aFile) && (aFile.ReadSection(0, fPixels) || mFailAs(aFile));
}

std::unique_ptr<CImageStack> OpenTiffFolder(const std::string& strPath, std::string& rError)
{
    auto pStack = std::make_unique<CTiffFolder>();
    if (pStack->Open(strPath)) return pStack;
    rError = pStack->GetError();
    return nullptr;
}

}  // namespace talven
