#include "StackFormats.h"

namespace talven
{

std::unique_ptr<CImageStack> OpenTiff(const std::string& strPath, std::string& rError)
{
    rError = strPath + ": TIFF, which this build of talven cannot read (TALVEN_TIFF)";
    return nullptr;
}

std::unique_ptr<CImageStack> OpenTiffFolder(const std::string& strPath, std::string& rError)
{
    rError =
        strPath + ": a folder, as for TIFF, which this build of talven cannot read (TALVEN_TIFF)";
    return nullptr;
}

}  // namespace talven
