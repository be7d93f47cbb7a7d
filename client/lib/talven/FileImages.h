#pragma once

#include <span>

#include "talven/ImageStack.h"
#include "talven/MrcWriter.h"
#include "talven/RowRange.h"
#include "talven/ServerJob.h"
#include "talven/VolumeFile.h"

namespace talven
{

/// The sections of a stack as the images of a job: image i is section iSections[i], or section i
/// when there are none. Both are borrowed.
ImageSource ReadFrom(CImageStack& rFile, std::span<const int> iSections = {});
/// Some of their rows.
ImageSource ReadFrom(CImageStack& rFile, std::span<const int> iSections, const RowRange& rRows);
/// A file that takes the images of a job as its next sections. Borrowed.
ImageSink WriteTo(CMrcWriter& rFile);
/// A volume in its form that takes slices. Borrowed.
ImageSink WriteTo(CVolumeFile& rFile);

}  // namespace talven
