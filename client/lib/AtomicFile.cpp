#include "talven/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "talven/Text.h"

namespace talven
{
namespace
{

std::string ResolveLinks(const std::string& strPath)
{
    char acResolved[PATH_MAX];
    return realpath(strPath.c_str(), acResolved) != nullptr ? acResolved : strPath;
}

std::string GetDirectory(const std::string& strPath)
{
    const std::size_t tSlash = strPath.rfind('/');
    return tSlash == std::string::npos ? "." : strPath.substr(0, tSlash + 1);
}

/// Mode of a new file as open() would choose it; mkstemp() makes files that nobody else may read.
mode_t GetDefaultMode()
{
    const mode_t uiMask = umask(0);
    umask(uiMask);
    return 0666 & ~uiMask;
}

}  // namespace

bool CAtomicFile::Create(const std::string& strPath, std::uint64_t ulBytes)
{
    Discard();
    m_strPath = strPath;
    m_strTarget = ResolveLinks(strPath);
    struct stat aStat
    {
    };
    const bool bExists = stat(m_strTarget.c_str(), &aStat) == 0;
    if (bExists && S_ISDIR(aStat.st_mode)) return mFail("cannot write", EISDIR);
    if (bExists && !S_ISREG(aStat.st_mode))
    {
        m_iFile = open(m_strTarget.c_str(), O_WRONLY | O_CLOEXEC);
        return m_iFile != -1 || mFail("cannot write", errno);
    }

    struct statvfs aSpace
    {
    };
    if (ulBytes > 0 && statvfs(GetDirectory(m_strTarget).c_str(), &aSpace) == 0 &&
        aSpace.f_bavail * static_cast<std::uint64_t>(aSpace.f_frsize) < ulBytes)
        return Fail(m_strError,
                    m_strPath + ": needs " + std::to_string(ulBytes >> 20) + " MiB, the disk has " +
                        std::to_string((aSpace.f_bavail * aSpace.f_frsize) >> 20) + " MiB free");

    m_strTemporary = m_strTarget + ".XXXXXX";
    m_iFile = mkostemp(m_strTemporary.data(), O_CLOEXEC);
    if (m_iFile == -1)
    {
        const int iErrno = errno;
        m_strTemporary.clear();
        return mFail("cannot write", iErrno);
    }
    if (fchmod(m_iFile, bExists ? aStat.st_mode & 0777 : GetDefaultMode()) != 0)
        return mFail("cannot set the mode", errno);
    return true;
}

bool CAtomicFile::WriteAt(std::uint64_t ulOffset, std::span<const std::byte> pData)
{
    if (m_iFile == -1) return mFail("cannot write", EBADF);
    while (!pData.empty())
    {
        const ssize_t iWritten =
            pwrite(m_iFile, pData.data(), pData.size(), static_cast<off_t>(ulOffset));
        if (iWritten < 0 && errno == EINTR) continue;
        if (iWritten <= 0) return mFail("cannot write", iWritten < 0 ? errno : ENOSPC);
        ulOffset += static_cast<std::uint64_t>(iWritten);
        pData = pData.subspan(static_cast<std::size_t>(iWritten));
    }
    return true;
}

bool CAtomicFile::Commit()
{
    if (m_iFile == -1) return mFail("cannot write", EBADF);
    const bool bInPlace = m_strTemporary.empty();
    if (!bInPlace && fsync(m_iFile) != 0) return mFail("cannot write", errno);
    const int iClosed = close(m_iFile);
    m_iFile = -1;
    if (iClosed != 0) return mFail("cannot write", errno);
    if (!bInPlace && rename(m_strTemporary.c_str(), m_strTarget.c_str()) != 0)
        return mFail("cannot rename", errno);
    m_strTemporary.clear();
    return true;
}

void CAtomicFile::Discard()
{
    if (m_iFile != -1) close(m_iFile);
    m_iFile = -1;
    if (!m_strTemporary.empty()) unlink(m_strTemporary.c_str());
    m_strTemporary.clear();
}

bool CAtomicFile::mFail(const std::string& strWhat, int iErrno)
{
    m_strError = m_strPath + ": " + strWhat + ": " + std::strerror(iErrno);
    Discard();
    return false;
}

bool WriteTextFile(const std::string& strPath, const std::string& strText, std::string& rError)
{
    CAtomicFile aFile;
    return (aFile.Create(strPath) && aFile.WriteAt(0, std::as_bytes(std::span(strText))) &&
            aFile.Commit()) ||
           Fail(rError, aFile.GetError());
}

}  // namespace talven
