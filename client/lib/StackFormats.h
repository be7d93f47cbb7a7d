#pragma once

#include <memory>
#include <string>

#include "talven/ImageStack.h"

namespace talven
{

/// What OpenStack() opens stacks with. Where the library behind one was left out of the build, it
/// says so.
std::unique_ptr<CImageStack> OpenHdf5(const std::string& strPath, std::string& rError);
std::unique_ptr<CImageStack> OpenTiff(const std::string& strPath, std::string& rError);
std::unique_ptr<CImageStack> OpenTiffFolder(const std::string& strPath, std::string& rError);

}  // namespace talven
