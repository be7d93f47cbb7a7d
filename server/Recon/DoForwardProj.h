#pragma once

#include "server/Recon/DoReconBase.h"

/// Reprojection of the volume into the stack.
class CDoForwardProj : public CDoReconBase
{
public:
    [[nodiscard]] bool DoIt(int iStartY, int iSizeY) override;
};
