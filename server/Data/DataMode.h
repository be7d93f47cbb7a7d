#pragma once

/// Pixel modes of data blocks, numbered as in MRC files.
class CDataMode
{
public:
    static constexpr short MODE_NONE = -1;
    static constexpr short MODE_UCHAR = 0;
    static constexpr short MODE_SHORT = 1;
    static constexpr short MODE_FLOAT = 2;
    static constexpr short MODE_USHORT = 6;
    static constexpr short MODE_INT = 7;
    static constexpr short MODE_UINT = 8;

    /// Bytes of one pixel, 0 for any other mode.
    static int GetBytes(short sMode)
    {
        switch (sMode)
        {
        case MODE_UCHAR:
            return 1;
        case MODE_SHORT:
        case MODE_USHORT:
            return 2;
        case MODE_FLOAT:
        case MODE_INT:
        case MODE_UINT:
            return 4;
        default:
            return 0;
        }
    }
};
