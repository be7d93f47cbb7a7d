#pragma once

/// A listening socket that whoever started this process has opened: the convention of systemd's
/// socket activation (sd_listen_fds(3)).
class Util_Activation
{
public:
    /// Takes the socket over when the environment hands one to this process: descriptor 3, the
    /// first of LISTEN_FDS. What was handed over closes on exec, and the variables are unset, so
    /// that no child takes them for its own. Before other threads run. \return -1 when there is
    /// none
    static int Take();
    /// Whether clients can connect to a descriptor: a listening stream socket, Unix or IP.
    static bool IsListening(int iSocket);
};
