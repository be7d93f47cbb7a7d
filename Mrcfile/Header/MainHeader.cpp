#include "Mrcfile/Header/MainHeader.h"

#include "Util/Util_SwapByte.h"

namespace
{
template <class... T>
void Reverse(T&... rFields)
{
    ((rFields = Util_SwapByte::DoIt(rFields)), ...);
}
}  // namespace

void CMainHeader::SwapByte()
{
    Reverse(nx, ny, nz, mode, nxstart, nystart, nzstart, mx, my, mz);
    Reverse(xlen, ylen, zlen, alpha, beta, gamma, mapc, mapr, maps, amin, amax, amean);
    Reverse(ispg, nsymbt, dvid, nblank, itst, numintegers, numfloats, sub, zfac);
    Reverse(min2, max2, min3, max3, min4, max4, type, lensnum, nd1, nd2, vd1, vd2, min5, max5);
    Reverse(numtimes, imgseq, xtilt, ytilt, ztilt);
    Reverse(numwaves, wave1, wave2, wave3, wave4, wave5, z0, x0, y0, nlabl);
}
