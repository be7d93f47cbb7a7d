// Back projection of one set and forward projection of the next in one pass over the slice, which
// comes from memory once and not twice. Included inside the namespace of an instruction set.
//
// The strips are those of the forward projection. Before the rays of a window are sent, the tiles
// are updated that they may touch:
//
//     strip  | updated | updated |  tiles  |  not yet  |
//                 | rays of a window |

static_assert(g_iBackTile == g_iStripRows && g_iBackTile % g_iBackRun == 0);

template <EUpdate UPDATE, int LANES, bool ALONG_X>
static void BackForwardSlice(const BackParams& rBack, const BackView* pBack, int iBack,
                             const ForwardParams& rForward, const ForwardView* pForward,
                             Share aForward)
{
    ParkedTile<LANES> aParked;
    const int iRows = ALONG_X ? rBack.iVolX : rBack.iVolZ;
    const int iColumns = ALONG_X ? rBack.iVolZ : rBack.iVolX;
    for (int iRow = 0; iRow < iRows; iRow += g_iStripRows)
    {
        int iDone = 0;
        const auto Update = [&](int iEnd)
        {
            for (; iDone < iEnd && iDone < iColumns; iDone += g_iBackTile)
                for (int i = 0; i < g_iBackTile; i += g_iBackRun)
                {
                    const int iX = ALONG_X ? iRow + i : iDone + i, iZ = ALONG_X ? iDone : iRow;
                    if (iX < rBack.iVolX)
                        BackTile<UPDATE, LANES>(rBack, pBack, iBack, iX, iZ, aParked);
                }
        };
        CrossStrip<LANES, ALONG_X>(rForward, pForward, aForward, iRow + 1, Update);
    }
}

/// All views of the forward projection have the same steep axis.
template <int LANES>
static void BackForwardLanes(const BackParams& rBack, const BackView* pBack, int iBack,
                             const ForwardParams& rForward, const ForwardView* pForward,
                             Share aForward)
{
    ClearSums<LANES>(rForward, pForward, aForward);
    const bool bAlongX = MakeCourse(pForward[aForward.iFirst].aRays).bAlongX;
    if (rBack.eUpdate == EUpdate::eSart)
        bAlongX ? BackForwardSlice<EUpdate::eSart, LANES, true>(rBack, pBack, iBack, rForward,
                                                                pForward, aForward)
                : BackForwardSlice<EUpdate::eSart, LANES, false>(rBack, pBack, iBack, rForward,
                                                                 pForward, aForward);
    else
        bAlongX ? BackForwardSlice<EUpdate::eEm, LANES, true>(rBack, pBack, iBack, rForward,
                                                              pForward, aForward)
                : BackForwardSlice<EUpdate::eEm, LANES, false>(rBack, pBack, iBack, rForward,
                                                               pForward, aForward);
}
