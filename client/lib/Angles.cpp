#include "talven/Angles.h"

#include <cmath>
#include <cstdlib>

#include "talven/AtomicFile.h"
#include "talven/Text.h"

namespace talven
{

bool ReadAngles(const std::string& strPath, std::vector<float>& rAngles, std::string& rError)
{
    std::ifstream aFile;
    return OpenText(strPath, aFile, rError) && ReadAngles(aFile, strPath, rAngles, rError);
}

bool ReadAngles(std::istream& rText, const std::string& strName, std::vector<float>& rAngles,
                std::string& rError)
{
    std::vector<float> vfAngles;
    const auto Take = [&vfAngles](std::string_view strLine, std::string& rReason)
    {
        float fAngle = 0;
        if (ParseNumbers(strLine, " \t", std::span(&fAngle, 1)) && std::fabs(fAngle) <= 360)
        {
            vfAngles.push_back(fAngle);
            return true;
        }
        return Fail(rReason, "expected one angle in degrees, found \"" + Show(strLine) + "\"");
    };
    if (!ReadLines(rText, strName, "angles", Take, rError)) return false;
    rAngles = std::move(vfAngles);
    return true;
}

bool WriteAngles(const std::string& strPath, std::span<const float> fAngles, std::string& rError)
{
    std::string strText;
    for (const float fAngle : fAngles)
    {
        std::string strLine = Format("%.2f", double(fAngle));
        if (std::strtof(strLine.c_str(), nullptr) != fAngle)
            strLine = Format("%.9g", double(fAngle));
        strText += strLine + "\n";
    }
    return WriteTextFile(strPath, strText, rError);
}

}  // namespace talven
