#pragma once

#include <string>

#include "Descriptor.h"

namespace talven
{

/// The temporary folder of a private server, below TMPDIR or /tmp, which no other user may enter.
///
/// A file in it is locked for as long as the server lives. Folders of this user whose lock is free
/// are what clients left that were killed; the next folder's maker removes them.
class CPrivateFolder
{
public:
    CPrivateFolder() = default;
    ~CPrivateFolder() { Remove(); }
    CPrivateFolder(const CPrivateFolder&) = delete;
    CPrivateFolder& operator=(const CPrivateFolder&) = delete;

    [[nodiscard]] bool Make(std::string& rError);
    /// With its files, but nothing that is not ours.
    void Remove();

    const std::string& GetPath() const { return m_strPath; }  ///< absolute; empty: none
    /// A file that the server appends to.
    int GetOutput() const { return m_aOutput.Get(); }
    std::string ReadOutput() const;
    /// A listening Unix socket in this folder and a client that waits in its queue already. Nobody
    /// else can connect to it: its name is gone. \return false with errno
    [[nodiscard]] bool OpenSockets(CDescriptor& rListening, CDescriptor& rClient) const;

    /// The lock is the server's: a process forked from this one must not keep it.
    int GetLock() const { return m_aLock.Get(); }
    void ForgetLock() { m_aLock.Close(); }

private:
    std::string m_strPath;
    CDescriptor m_aFolder, m_aLock, m_aOutput;
};

}  // namespace talven
