#include "Lists.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "talven/Text.h"

namespace talven
{
namespace
{

template <class T>
bool ParseNumber(std::string_view strText, T& rValue)
{
    const char* pcEnd = strText.data() + strText.size();
    const auto [pcStop, eError] = std::from_chars(strText.data(), pcEnd, rValue);
    return eError == std::errc() && pcStop == pcEnd;
}

std::vector<std::string_view> Split(std::string_view strText, char cAt)
{
    std::vector<std::string_view> vstrParts;
    while (true)
    {
        const std::size_t tEnd = strText.find(cAt);
        vstrParts.push_back(strText.substr(0, tEnd));
        if (tEnd == std::string_view::npos) return vstrParts;
        strText.remove_prefix(tEnd + 1);
    }
}

bool Reject(std::string& rError, const char* pcExpected, std::string_view strFound)
{
    return Fail(rError, std::string("expected ") + pcExpected + ", found \"" +
                            std::string(strFound) + "\"");
}

}  // namespace

bool ParseSizes(const std::string& strText, std::vector<std::uint32_t>& rSizes, std::string& rError)
{
    rSizes.clear();
    for (const std::string_view strPart : Split(strText, ','))
    {
        std::uint32_t uiSize = 0;
        if (!ParseNumber(strPart, uiSize) || uiSize == 0)
            return Reject(rError, "positive whole numbers such as 21,20,20", strPart);
        rSizes.push_back(uiSize);
    }
    return true;
}

bool ParseSize(const std::string& strText, ImageSize& rSize, std::string& rError)
{
    constexpr std::uint32_t uiMost = 1u << 24;  // as in the files that we read
    std::vector<std::uint32_t> vuiSize;
    if (!ParseSizes(strText, vuiSize, rError) || vuiSize.size() != 2 ||
        std::max(vuiSize[0], vuiSize[1]) > uiMost)
        return Reject(rError, "X,Y, such as 1024,768", strText);
    rSize = {static_cast<int>(vuiSize[0]), static_cast<int>(vuiSize[1])};
    return true;
}

bool ParseNumbers(const std::string& strText, std::size_t tCount, std::vector<double>& rNumbers,
                  std::string& rError)
{
    rNumbers.clear();
    for (const std::string_view strPart : Split(strText, ','))
    {
        double dValue = 0;
        if (!ParseNumber(strPart, dValue) || !std::isfinite(dValue))
            return Reject(rError, "numbers with commas between them", strPart);
        rNumbers.push_back(dValue);
    }
    return rNumbers.size() == tCount ||
           Fail(rError, Format("expected %zu numbers with commas between them, found %zu", tCount,
                               rNumbers.size()));
}

bool ParseSmoothing(const std::string& strText, double& rSigma, int& rInterval, std::string& rError)
{
    constexpr double dMost = 20;  // a kernel of 121 x 121 x 121
    const std::vector<std::string_view> vstrParts = Split(strText, ',');
    rInterval = 1;
    if (vstrParts.size() <= 2 && ParseNumber(vstrParts.front(), rSigma) && rSigma > 0 &&
        rSigma <= dMost &&
        (vstrParts.size() == 1 || (ParseNumber(vstrParts.back(), rInterval) && rInterval > 0)))
        return true;
    return Reject(rError, "SIGMA or SIGMA,INTERVAL, such as 0.8 or 0.8,5 (at most 20 voxels)",
                  strText);
}

bool ParseRelaxation(const std::string& strText, Relaxation& rRelax, std::string& rError)
{
    const auto ParseFactor = [](std::string_view strPart, double& rFactor)
    { return ParseNumber(strPart, rFactor) && std::isfinite(rFactor) && rFactor >= 0; };
    const std::vector<std::string_view> vstrDecay = Split(strText, ':');
    rRelax = {{}, 1.0};
    bool bGood = vstrDecay.size() <= 2;
    if (vstrDecay.size() == 2) bGood = ParseFactor(vstrDecay[1], rRelax.dDecay);
    for (const std::string_view strPart : Split(vstrDecay[0], ','))
        bGood = ParseFactor(strPart, rRelax.vdFactors.emplace_back()) && bGood;
    bGood = bGood && (vstrDecay.size() == 1 || rRelax.vdFactors.size() == 1);
    return bGood || Reject(rError, "R, R1,R2,... or START:DECAY, none negative", strText);
}

}  // namespace talven
