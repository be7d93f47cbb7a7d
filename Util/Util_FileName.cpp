#include "Util/Util_FileName.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace
{
/// Takes the next run of characters other than dots off the front.
std::string NextToken(std::string_view& rText)
{
    rText.remove_prefix(std::min(rText.find_first_not_of('.'), rText.size()));
    const std::size_t tEnd = std::min(rText.find('.'), rText.size());
    std::string strToken(rText.substr(0, tEnd));
    rText.remove_prefix(tEnd);
    return strToken;
}
}  // namespace

Util_FileName::Util_FileName(const char* pcName)
{
    std::string_view strName = pcName != nullptr ? pcName : "";
    if (strName.size() > 127) return;
    m_strMainName = NextToken(strName);
    m_strExtName = NextToken(strName);
}

std::string Util_FileName::InsertSerial(int iSerial) const
{
    std::string strMain = m_strMainName;
    if (strMain.empty())
    {
        const char* pcHome = std::getenv("HOME");
        strMain = std::string(pcHome != nullptr ? pcHome : "") + "/test";
    }
    const char* pcZeros = iSerial <= 9 ? "000" : iSerial <= 99 ? "00" : iSerial <= 999 ? "0" : "";
    return mWithExt(strMain + pcZeros + std::to_string(iSerial), m_strExtName);
}

std::string Util_FileName::ReplaceExt(const char* pcExt) const
{
    return mWithExt(m_strMainName.empty() ? "~/test" : m_strMainName,
                    pcExt != nullptr ? pcExt : "");
}

std::string Util_FileName::AppendText(const char* pcText) const
{
    return mWithExt(m_strMainName + (pcText != nullptr ? pcText : ""), m_strExtName);
}

std::string Util_FileName::mWithExt(std::string strName, const std::string& strExt) const
{
    if (!strExt.empty()) strName += "." + strExt;
    return strName;
}

int Util_FileName::GetFreeDiskSpace()
{
    struct statvfs aStat = {};
    if (statvfs("/", &aStat) != 0) return 0;
    const double dKiB = static_cast<double>(aStat.f_bfree) * (aStat.f_bsize / 1024);
    return static_cast<int>(dKiB / 1048576.0);
}
