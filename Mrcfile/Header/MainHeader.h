#pragma once

#include <cstddef>
#include <cstdint>

/// The 1024-byte main header of an MRC file, as it lies in the file.
///
/// Fields keep the names of the format. Word numbers in comments count 32-bit words from 1.
struct CMainHeader
{
    std::int32_t nx, ny, nz;                 // 1-3: pixels, sections
    std::int32_t mode;                       // 4
    std::int32_t nxstart, nystart, nzstart;  // 5-7
    std::int32_t mx, my, mz;                 // 8-10: grid
    float xlen, ylen, zlen;                  // 11-13
    float alpha, beta, gamma;                // 14-16: cell angles, degrees
    std::int32_t mapc, mapr, maps;           // 17-19: axis order
    float amin, amax, amean;                 // 20-22
    std::int32_t ispg;                       // 23
    std::int32_t nsymbt;                     // 24: bytes of the extended header
    std::int16_t dvid, nblank;               // 25
    std::int32_t itst;                       // 26
    char blank[24];                          // 27-32
    std::int16_t numintegers, numfloats;     // 33: values per section in the extended header
    std::int16_t sub, zfac;                  // 34
    float min2, max2, min3, max3, min4, max4;
    std::int16_t type;
    std::int16_t lensnum, nd1, nd2, vd1, vd2;
    float min5, max5;
    std::int16_t numtimes, imgseq;
    float xtilt, ytilt, ztilt;  // degrees
    std::int16_t numwaves, wave1, wave2, wave3, wave4, wave5;
    float z0, x0, y0;
    std::int32_t nlabl;  // 56: label writes
    char data[10][80];   // labels

    static constexpr int GetSize() { return 1024; }
    /// Reverses the bytes of every numeric field; labels and blank stay.
    void SwapByte();
};

static_assert(sizeof(CMainHeader) == 1024);
static_assert(offsetof(CMainHeader, dvid) == 96 && offsetof(CMainHeader, numintegers) == 128);
static_assert(offsetof(CMainHeader, type) == 160 && offsetof(CMainHeader, min5) == 172);
static_assert(offsetof(CMainHeader, xtilt) == 184 && offsetof(CMainHeader, nlabl) == 220);
