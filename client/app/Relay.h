#pragma once

namespace talven
{

/// Passes bytes on, in both directions, until one side has ended or iStop becomes readable. Then
/// what one side still says is not heard: a session ends with its client or its server.
/// \param iIn, iOut  of a client
/// \param iServer    stream socket; all three are made non-blocking
/// \return whether the server has said anything
bool Relay(int iIn, int iOut, int iServer, int iStop);

}  // namespace talven
