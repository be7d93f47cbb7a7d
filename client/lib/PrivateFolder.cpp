#include "PrivateFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "talven/Text.h"

namespace talven
{
namespace
{

constexpr std::string_view g_strPrefix = "talven-private-";
constexpr const char *g_pcOutput = "output.txt", *g_pcSocket = "socket", *g_pcLock = "lock",
                     *g_pcNewLock = "lock.new";

std::string GetTemporary()
{
    const char* pcNamed = std::getenv("TMPDIR");
    const char* pcFolder = pcNamed != nullptr && *pcNamed != 0 ? pcNamed : "/tmp";
    const std::unique_ptr<char, decltype(&std::free)> pcFull(realpath(pcFolder, nullptr),
                                                             &std::free);
    return pcFull ? pcFull.get() : pcFolder;
}

void RemoveFiles(const CDescriptor& rFolder)
{
    // The lock goes last: until then nobody else takes the folder for its own.
    for (const char* pcName : {g_pcOutput, g_pcSocket, g_pcNewLock, g_pcLock})
        unlinkat(rFolder.Get(), pcName, 0);
}

CDescriptor OpenFolder(int iWhere, const char* pcName)
{
    return CDescriptor(openat(iWhere, pcName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Ours, of our making and left by everybody. One without a lock is being made, or it cannot be
/// said whether anybody uses it.
bool IsLeft(const CDescriptor& rFolder, CDescriptor& rLock)
{
    struct stat aStat
    {
    };
    if (fstat(rFolder.Get(), &aStat) != 0 || aStat.st_uid != geteuid() ||
        (aStat.st_mode & 0077) != 0)
        return false;
    rLock =
        CDescriptor(openat(rFolder.Get(), g_pcLock, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return rLock.IsOpen() && flock(rLock.Get(), LOCK_EX | LOCK_NB) == 0;
}

/// Removes what killed clients of this user left.
void Sweep(const std::string& strWhere)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> pWhere(opendir(strWhere.c_str()), &closedir);
    while (const dirent* pEntry = pWhere ? readdir(pWhere.get()) : nullptr)
    {
        if (!std::string_view(pEntry->d_name).starts_with(g_strPrefix)) continue;
        const CDescriptor aFolder = OpenFolder(dirfd(pWhere.get()), pEntry->d_name);
        CDescriptor aLock;
        if (!aFolder.IsOpen() || !IsLeft(aFolder, aLock)) continue;
        RemoveFiles(aFolder);
        unlinkat(dirfd(pWhere.get()), pEntry->d_name, AT_REMOVEDIR);
    }
}

/// The file appears under its name with the lock on it, so that no sweep can come between. Without
/// a lock, where the file system has none, the folder works but is never swept.
CDescriptor Lock(const CDescriptor& rFolder)
{
    CDescriptor aLock(
        openat(rFolder.Get(), g_pcNewLock, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!aLock.IsOpen() || flock(aLock.Get(), LOCK_EX | LOCK_NB) != 0 ||
        renameat(rFolder.Get(), g_pcNewLock, rFolder.Get(), g_pcLock) != 0)
        return CDescriptor();
    return aLock;
}

/// The address of the socket; through the folder's descriptor where the path is too long for one.
sockaddr_un MakeAddress(const std::string& strFolder, int iFolder)
{
    sockaddr_un aAddress{};
    aAddress.sun_family = AF_UNIX;
    std::string strPath = strFolder + "/" + g_pcSocket;
    if (strPath.size() >= sizeof(aAddress.sun_path))
        strPath = Format("/proc/self/fd/%d/%s", iFolder, g_pcSocket);
    std::memcpy(aAddress.sun_path, strPath.c_str(), strPath.size() + 1);
    return aAddress;
}

CDescriptor MakeSocket()
{
    return CDescriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

}  // namespace

bool CPrivateFolder::Make(std::string& rError)
{
    Remove();
    const std::string strWhere = GetTemporary();
    Sweep(strWhere);
    std::string strPath = strWhere + "/" + std::string(g_strPrefix) + "XXXXXX";
    if (mkdtemp(strPath.data()) == nullptr)
        return Fail(rError, strPath + ": cannot make a directory: " + std::strerror(errno));
    m_strPath = strPath;
    m_aFolder = OpenFolder(AT_FDCWD, strPath.c_str());
    if (!m_aFolder.IsOpen())
        return Fail(rError, strPath + ": cannot open: " + std::strerror(errno));
    m_aLock = Lock(m_aFolder);
    m_aOutput = CDescriptor(openat(m_aFolder.Get(), g_pcOutput,
                                   O_RDWR | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
    return m_aOutput.IsOpen() ||
           Fail(rError, strPath + "/" + g_pcOutput + ": cannot write: " + std::strerror(errno));
}

void CPrivateFolder::Remove()
{
    if (m_strPath.empty()) return;
    RemoveFiles(m_aFolder);
    rmdir(m_strPath.c_str());
    m_strPath.clear();
    m_aFolder.Close();
    m_aLock.Close();
    m_aOutput.Close();
}

std::string CPrivateFolder::ReadOutput() const
{
    std::string strAll;
    std::array<char, 4096> acPart{};
    ssize_t tRead = 0;
    do
    {
        strAll.append(acPart.data(), static_cast<std::size_t>(tRead));
        tRead =
            pread(m_aOutput.Get(), acPart.data(), acPart.size(), static_cast<off_t>(strAll.size()));
    } while (tRead > 0);
    return strAll;
}

bool CPrivateFolder::OpenSockets(CDescriptor& rListening, CDescriptor& rClient) const
{
    const sockaddr_un aAddress = MakeAddress(m_strPath, m_aFolder.Get());
    const auto* pAddress = reinterpret_cast<const sockaddr*>(&aAddress);
    rListening = MakeSocket();
    rClient = MakeSocket();
    const bool bDone = rListening.IsOpen() && rClient.IsOpen() &&
                       bind(rListening.Get(), pAddress, sizeof(aAddress)) == 0 &&
                       listen(rListening.Get(), 1) == 0 &&
                       connect(rClient.Get(), pAddress, sizeof(aAddress)) == 0;
    const int iError = errno;
    unlinkat(m_aFolder.Get(), g_pcSocket, 0);
    errno = iError;
    return bDone;
}

}  // namespace talven
