#include "talven/FileImages.h"

#include "talven/Text.h"

namespace talven
{

ImageSource ReadFrom(CImageStack& rFile, std::span<const int> iSections)
{
    return [&rFile, iSections](int iIndex, std::span<float> fPixels, std::string& rError)
    {
        const int iSection = iSections.empty() ? iIndex : iSections[std::size_t(iIndex)];
        return rFile.ReadSection(iSection, fPixels) || Fail(rError, rFile.GetError());
    };
}

ImageSource ReadFrom(CImageStack& rFile, std::span<const int> iSections, const RowRange& rRows)
{
    return [&rFile, iSections, rRows](int iIndex, std::span<float> fPixels, std::string& rError)
    {
        const int iSection = iSections.empty() ? iIndex : iSections[std::size_t(iIndex)];
        return rFile.ReadRows(iSection, rRows.iFirst, fPixels) || Fail(rError, rFile.GetError());
    };
}

ImageSink WriteTo(CMrcWriter& rFile)
{
    return [&rFile](int, std::span<const float> fPixels, std::string& rError)
    { return rFile.WriteSection(fPixels) || Fail(rError, rFile.GetError()); };
}

ImageSink WriteTo(CVolumeFile& rFile)
{
    return [&rFile](int iZ, std::span<const float> fSlice, std::string& rError)
    { return rFile.WriteSlice(iZ, fSlice) || Fail(rError, rFile.GetError()); };
}

}  // namespace talven
