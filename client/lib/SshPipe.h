#pragma once

#include <sys/types.h>

#include <string>

#include "talven/ServerLink.h"

namespace talven
{

/// A way to a server through the user's own ssh, which opens no port here.
///
/// Ours is one end of a socket pair; the other is the standard input and output of ssh. Keys, jump
/// hosts, questions and the rest of it are those of the user's configuration. The process ends with
/// this object, when its stream is closed, and when the thread that started it dies in whatever
/// way.
class CSshPipe
{
public:
    CSshPipe() = default;
    ~CSshPipe();
    CSshPipe(const CSshPipe&) = delete;
    CSshPipe& operator=(const CSshPipe&) = delete;

    /// \param bServe   start a private server there; else go to the port of one that runs
    /// \param rSocket  the stream, which the caller owns
    [[nodiscard]] bool Start(const ServerName& rName, bool bServe, int& rSocket);
    /// Lets ssh end by itself for a moment, after the stream was closed, then ends it.
    void Finish();

    /// Whether ssh has reached the machine and nobody listens on the port there.
    bool IsNobodyThere() const;
    /// The last line that ssh, or the program that it ran there, said; may be empty.
    std::string GetLastWords() const;
    /// Shows what it said since the last call, when standard error is a terminal.
    void PassOn();
    const std::string& GetError() const { return m_strError; }

private:
    std::string mReadWords() const;
    bool mHasEnded();

    pid_t m_iPid = -1;
    int m_iWords = -1;         // file in memory with what ssh says
    std::size_t m_tShown = 0;  // of it, bytes
    std::string m_strError;
};

}  // namespace talven
