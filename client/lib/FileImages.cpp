#include "talven/FileImages.h"

namespace talven
{

ImageSource ReadFrom(CMrcReader& rFile, std::span<const int> iSections)
{
    return [&rFile, iSections](int iIndex, std::span<float> fPixels, std::string& rError)
    {
        const int iSection = iSections.empty() ? iIndex : iSections[std::size_t(iIndex)];
        if (rFile.ReadSection(iSection, fPixels)) return true;
        rError = rFile.GetError();
        return false;
    };
}

ImageSink WriteTo(CMrcWriter& rFile)
{
    return [&rFile](int, std::span<const float> fPixels, std::string& rError)
    {
        if (rFile.WriteSection(fPixels)) return true;
        rError = rFile.GetError();
        return false;
    };
}

}  // namespace talven
