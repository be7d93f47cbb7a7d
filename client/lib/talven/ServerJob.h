#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>

#include "talven/Monitor.h"
#include "talven/ServerLink.h"
#include "talven/Text.h"

namespace talven
{

/// Gives image iIndex of a stack or volume, shape [y][x]; false: rError says why it cannot.
using ImageSource = std::function<bool(int iIndex, std::span<float> fPixels, std::string& rError)>;
/// Takes image iIndex; false: rError says why it cannot.
using ImageSink =
    std::function<bool(int iIndex, std::span<const float> fPixels, std::string& rError)>;

/// What all jobs share: the connected server, the monitor, images on their way, one error.
///
/// Every step of a job returns false when it failed, and GetError() then says why in one line.
class CServerJob
{
public:
    /// Both outlive the job.
    CServerJob(CServerLink& rLink, CMonitor& rMonitor) : m_rLink(rLink), m_rMonitor(rMonitor) {}
    const std::string& GetError() const { return m_strError; }

protected:
    enum class EImages
    {
        eProjections,
        eSlices
    };

    CServerLink& mGetLink() { return m_rLink; }
    CSession& mGetSession() { return m_rLink.GetSession(); }
    CMonitor& mGetMonitor() const { return m_rMonitor; }
    bool mFail(const std::string& strError) { return Fail(m_strError, strError); }
    /// Passes on whether an operation of the session was done, and notes why not.
    bool mServer(bool bDone) { return bDone || mFail(m_rLink.Explain()); }
    /// False when the monitor wants the end.
    bool mGoOn() { return !m_rMonitor.IsStopped() || mFail("interrupted"); }
    /// Sends iCount images; returns when the server has taken all of them.
    bool mUpload(EImages eImages, int iCount, std::size_t tPixels, const ImageSource& rSource);
    /// The same with images that Send() hands to the server, each after it was read.
    bool mSendEach(int iCount, std::size_t tPixels, const ImageSource& rSource,
                   const ImageSink& Send);
    /// Receives images 0 to iCount - 1 in order.
    bool mDownload(EImages eImages, int iCount, std::size_t tPixels, const ImageSink& rSink);

private:
    CServerLink& m_rLink;
    CMonitor& m_rMonitor;
    std::string m_strError;
};

}  // namespace talven
