#include "StackFormats.h"

namespace talven
{

std::unique_ptr<CImageStack> OpenHdf5(const std::string& strPath, std::string& rError)
{
    rError = strPath + ": an HDF5 file, which this build of talven cannot read (TALVEN_HDF5)";
    return nullptr;
}

}  // namespace talven
