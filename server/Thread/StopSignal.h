#pragma once

/// The signals of the process. SIGPIPE and SIGXFSZ are ignored: a console or a client that has gone
/// and a full disk are failures of one write.
///
/// SIGTERM ends the server with exit code 0; SIGINT and SIGHUP end it the way they end any program.
/// A thread of its own waits for them, so that neither a silent client nor a job delays the end:
/// the line that is being logged is finished, all else is abandoned, since nothing that the server
/// holds outlives it.
class CStopSignal
{
public:
    /// Before any other thread starts: all threads inherit the signal mask. A signal that was
    /// ignored already stays ignored (nohup, background jobs of a shell).
    static void Start();
};
