#pragma once

#include <span>
#include <vector>

struct CTextures;

/// Computes the two box weights of a job and puts them on the device.
///
/// Projection weight: 1 / (path length of a pixel's ray through the whole cross-section of the
/// volume). Pre-weight: that length / (path length through the weight box).
class CCalcWeights
{
public:
    void SetSart() { m_fDefault = 0; }
    void SetEm() { m_fDefault = 1; }
    void SetVolSize(int iVolX, int iVolZ);
    /// \param fAngles  degrees, one per projection
    void SetProjs(int iProjX, int iProjs, std::span<const float> fAngles);
    void SetTextures(CTextures* pTextures) { m_pTextures = pTextures; }
    /// \param pfOrig  centre (x, z) of the weight box, pixels from the volume's centre
    /// \param pfDim   half size (x, z); a box of size 0 is taken when either is null. A half width
    ///                of more than ten detector widths stands for an endless slab.
    void SetWeightBox(const float* pfOrig, const float* pfDim);
    [[nodiscard]] bool DoIt();

private:
    std::vector<float> mCalcPreWeight() const;
    std::vector<float> mCalcPrjWeight() const;

    int m_iVolSize[2] = {0, 0};
    int m_iPrjSize[2] = {0, 0};
    std::span<const float> m_fAngles;
    float m_fDefault = 0;  // set, but no weight depends on it
    const float* m_pfOrig = nullptr;
    const float* m_pfDim = nullptr;
    CTextures* m_pTextures = nullptr;
};
