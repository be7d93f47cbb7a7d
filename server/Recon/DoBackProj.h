#pragma once

#include "server/Recon/DoReconBase.h"

/// Plain back projection. Weighted only when the client gave a box.
class CDoBackProj : public CDoReconBase
{
public:
    [[nodiscard]] bool DoIt(int iStartY, int iSizeY) override;
};
