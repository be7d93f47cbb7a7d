#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Reconstruct.h"
#include "talven/MrcReader.h"
#include "talven/Session.h"

namespace talven
{

/// What a reconstruction will do: the options checked against the files, before any server is
/// asked.
class CReconstructPlan
{
public:
    /// Opens the stack and the other inputs; false: GetError().
    [[nodiscard]] bool Make(const ReconstructArgs& rArgs);

    CMrcReader& GetStack() { return m_aStack; }
    const JobSize& GetSize() const { return m_aSize; }
    std::span<const int> GetViews() const { return m_viViews; }      ///< sections that take part
    std::span<const float> GetAngles() const { return m_vfAngles; }  ///< of those sections
    /// The order of subsets, indices into GetViews().
    std::span<const std::uint32_t> GetOrder() const { return m_vuiOrder; }
    const ReconOptions& GetOptions() const { return m_aOptions; }
    /// Iterations between smoothings, 0: none; the kernel then is GetSmoothKernel().
    int GetSmoothInterval() const { return m_iSmoothInterval; }
    const GaussianKernel& GetSmoothKernel() const { return m_aSmoothKernel; }
    const WeightBox* GetWeightBox() const { return m_aBox ? &*m_aBox : nullptr; }

    /// One line for the user: stack, angles, volume, method, memory.
    std::string Describe(const ReconstructArgs& rArgs) const;
    /// "SART, 10 iterations, 4 subsets".
    std::string DescribeMethod() const;
    const std::string& GetError() const { return m_strError; }

private:
    bool mSelectViews(const ReconstructArgs& rArgs);
    bool mChooseMethod(const ReconstructArgs& rArgs);
    bool mChooseSubsets(const ReconstructArgs& rArgs);
    bool mChooseSmoothing(const ReconstructArgs& rArgs);
    bool mFail(const std::string& strError);

    CMrcReader m_aStack;
    JobSize m_aSize{};
    std::vector<int> m_viViews;
    std::vector<float> m_vfAngles;
    std::vector<std::uint32_t> m_vuiOrder;
    ReconOptions m_aOptions;
    int m_iSmoothInterval = 0;
    GaussianKernel m_aSmoothKernel;
    std::optional<WeightBox> m_aBox;
    std::string m_strError;
};

}  // namespace talven
