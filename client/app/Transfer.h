#pragma once

#include <span>
#include <string>
#include <vector>

#include "Report.h"
#include "ServerLink.h"
#include "talven/MrcReader.h"

namespace talven
{

/// Sends sections of a file, by their indices in viSections, as the projections of the stack or the
/// slices of the volume; returns when the server has taken all of them.
enum class EImages
{
    eProjections,
    eSlices
};
[[nodiscard]] bool UploadImages(CMrcReader& rReader, std::span<const int> iSections,
                                EImages eImages, CServerLink& rLink, const CReport& rReport,
                                std::string& rError);

/// Receives all projections or slices of tPixels each, in order.
[[nodiscard]] bool DownloadImages(int iCount, std::size_t tPixels, EImages eImages,
                                  const CSession::Sink& rSink, CServerLink& rLink,
                                  const CReport& rReport, std::string& rError);

/// 0 ... iCount - 1.
std::vector<int> AllSections(int iCount);

}  // namespace talven
