#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "talven/Alignment.h"
#include "talven/Mdoc.h"
#include "talven/ServerJob.h"

namespace talven
{

/// Weighs the frequencies of views by what the beam has left of them.
///
/// A frequency k has exp(-N / (2 Nc(k))) of its amplitude after N electrons per square Angstrom,
/// Nc(k) = 0.24499 k^-1.6649 + 2.8141 at 300 kV, k in 1 / Angstrom (Grant & Grigorieff, eLife 2015,
/// 4:e06980). N is the dose at the middle of a view's exposure: to the second
/// order in the dose of one view that is the mean over the exposure, the signal that the view
/// holds.
class CDoseFilter
{
public:
    /// \param dPixel     Angstrom per pixel, above 0
    /// \param dKilovolts of the microscope, above 0
    CDoseFilter(const ImageSize& rSize, double dPixel, double dKilovolts);
    ~CDoseFilter();
    CDoseFilter(const CDoseFilter&) = delete;
    CDoseFilter& operator=(const CDoseFilter&) = delete;

    /// In place, shape [y][x]. The mean stays, and missing pixels stay missing: the filter sees
    /// lines between their neighbours in x, and a mirror image beyond the edges.
    void Run(std::span<float> fPixels, const ViewDose& rDose);

    /// Nc, electrons per square Angstrom. The curve was measured at 300 kV, and at 200 kV it is
    /// 0.8 of that; at other voltages it goes with the square of the electrons' speed, as those do.
    static double GetCriticalDose(double dFrequency, double dKilovolts);

private:
    class CWorker;
    struct Spectrum;

    void mFillMissing(std::span<const float> fPixels);
    void mPad();
    template <class F>
    void mShare(int iCount, const F& Work);

    ImageSize m_aSize, m_aPadded;
    std::vector<float> m_vfRates;  // 1 / (2 Nc) at [ky][kx], up to the highest frequencies
    std::vector<float> m_vfImage;  // padded, [y][x]
    std::unique_ptr<Spectrum> m_pSpectrum;
    std::vector<std::unique_ptr<CWorker>> m_vpWorkers;  // one for each thread
};

/// The views of a source, filtered; image i has dose i. The doses are copied, the source, too.
ImageSource WeighByDose(const ImageSource& rViews, const ImageSize& rSize, double dPixel,
                        double dKilovolts, std::span<const ViewDose> aDoses);

}  // namespace talven
