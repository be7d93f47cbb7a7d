#include "Halves.h"

#include <filesystem>

#include "Options.h"
#include "talven/Text.h"

namespace talven
{

void CHalves::AddOption(CLI::App& rApp)
{
    const auto Parse = [this](const std::string& strText, std::string& rError)
    {
        m_bViews = strText == "even-odd";
        if (m_bViews) return true;
        const std::size_t tComma = strText.find(',');
        m_astrFrames = {strText.substr(0, tComma),
                        tComma < strText.size() ? strText.substr(tComma + 1) : ""};
        const bool bTwo = !m_astrFrames[0].empty() && !m_astrFrames[1].empty() &&
                          m_astrFrames[1].find(',') == std::string::npos;
        return bTwo || Fail(rError, "expected even-odd or two series A,B");
    };
    AddParsed(rApp, "--halves", "even-odd|A,B", Parse,
              "Two more volumes: NAME_even and NAME_odd of every second view by angle, or NAME_a "
              "and NAME_b of these two series")
        ->group("Further results");
}

bool CHalves::Check(const ReconRequest& rRequest, const ReconPlan& rPlan)
{
    std::string strError;
    ReconPlan aHalf;
    if (m_bViews)
        return MakeHalfPlan(rRequest, rPlan, 0, 0, aHalf, strError) ||
               Fail(m_strError, "--" + strError);
    for (std::size_t i = 0; i < 2 && IsWanted(); ++i)
    {
        m_apStacks[i] = OpenStack(m_astrFrames[i], m_strError);
        if (!m_apStacks[i]) return false;
        const ImageSize &rSize = m_apStacks[i]->GetSize(), &rWhole = m_rSeries.GetSize();
        if (rSize.iX != rWhole.iX || rSize.iY != rWhole.iY ||
            m_apStacks[i]->GetSections() != m_rSeries.GetViewCount())
            return Fail(m_strError,
                        Format("%s is %d x %d x %d, but %s is %d x %d x %d",
                               m_astrFrames[i].c_str(), rSize.iX, rSize.iY,
                               m_apStacks[i]->GetSections(), m_rSeries.GetPath().c_str(), rWhole.iX,
                               rWhole.iY, m_rSeries.GetViewCount()));
    }
    return true;
}

bool CHalves::Make(const ReconRequest& rRequest, const ReconPlan& rPlan, int iIterations,
                   const std::string& strOutput, const ImageSource& rInitial)
{
    constexpr std::array<const char*, 2> apcViews = {"odd", "even"}, apcFrames = {"a", "b"};
    for (const int iHalf : {0, 1})
    {
        ReconPlan aHalf;
        const bool bDone = m_bViews
                               ? mMakeViews(rRequest, rPlan, iHalf, iIterations, rInitial, aHalf)
                               : mMakeFrames(rPlan, iHalf, iIterations, rInitial, aHalf);
        if (!bDone) return false;
        if (m_rReport.IsEnough())
            return Fail(m_strError, "interrupted: the volume of all views is complete");
        const std::string strName = (m_bViews ? apcViews : apcFrames)[std::size_t(iHalf)];
        const std::string strWhat = m_bViews ? strName + " views" : "half " + strName;
        std::filesystem::path aPath = strOutput;
        aPath.replace_filename(aPath.stem().string() + "_" + strName + aPath.extension().string());
        if (!mCheck(m_rOutput.Write(aPath, aHalf.DescribeMethod() + ", " + strWhat), m_rOutput))
            return false;
        m_rReport.PrintLine(aPath.string() + Format(": %zu views", aHalf.viViews.size()));
    }
    return true;
}

/// Of views that the server has.
bool CHalves::mMakeViews(const ReconRequest& rRequest, const ReconPlan& rPlan, int iHalf,
                         int iIterations, const ImageSource& rInitial, ReconPlan& rHalf)
{
    return MakeHalfPlan(rRequest, rPlan, iHalf, iIterations, rHalf, m_strError) &&
           mCheck(m_rJob.Restart(rHalf, rInitial) && m_rJob.Run(), m_rJob);
}

/// Of views of its own.
bool CHalves::mMakeFrames(const ReconPlan& rPlan, int iHalf, int iIterations,
                          const ImageSource& rInitial, ReconPlan& rHalf)
{
    rHalf = rPlan;
    rHalf.dStopGain = rHalf.iCheckpoint = 0;
    if (iIterations > 0) rHalf.aOptions = rPlan.GetIterations(0, iIterations);
    const ImageSource Views = m_rSeries.GetViewsOf(*m_apStacks[std::size_t(iHalf)], rHalf);
    return mCheck(m_rJob.Upload(rHalf, Views, rInitial) && m_rJob.Run(), m_rJob);
}

}  // namespace talven
