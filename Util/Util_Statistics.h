#pragma once

#include <cmath>
#include <type_traits>

/// Mean, extremes and population standard deviation of an array, as doubles. n is at least 1.
class Util_Statistics
{
public:
    template <class T>
    static double Mean(const T* pData, int n)
    {
        const double dScale = 1.0 / n;
        double dSum = 0.0;
        for (int i = 0; i < n; ++i) dSum += static_cast<double>(pData[i]) * dScale;
        return dSum;
    }
    template <class T>
    static double Max(const T* pData, int n)
    {
        double dMax = static_cast<double>(pData[0]);
        for (int i = 0; i < n; ++i)
            if (static_cast<double>(pData[i]) > dMax) dMax = static_cast<double>(pData[i]);
        return dMax;
    }
    template <class T>
    static double Min(const T* pData, int n)
    {
        double dMin = static_cast<double>(pData[0]);
        for (int i = 0; i < n; ++i)
            if (static_cast<double>(pData[i]) < dMin) dMin = static_cast<double>(pData[i]);
        return dMin;
    }
    /// From the mean of the squares; squares are formed in the element's own arithmetic, so those
    /// of 32-bit integers wrap.
    template <class T>
    static double Std(const T* pData, int n)
    {
        const double dScale = 1.0 / n;
        double dSquares = 0.0;
        for (int i = 0; i < n; ++i) dSquares += static_cast<double>(mSquare(pData[i])) * dScale;
        const double dMean = Mean(pData, n);
        return std::sqrt(dSquares - dMean * dMean);
    }

    // The same by pixel mode: 0 unsigned char, 1 short, 2 float, 6 unsigned short; else 0.
    static double Mean(const void* pvData, int n, int iMode);
    static double Max(const void* pvData, int n, int iMode);
    static double Min(const void* pvData, int n, int iMode);
    static double Std(const void* pvData, int n, int iMode);

private:
    template <class T>
    static auto mSquare(T tValue)
    {
        if constexpr (std::is_floating_point_v<T>)
            return tValue * tValue;
        else if constexpr (sizeof(T) < sizeof(int))
            return static_cast<int>(static_cast<unsigned int>(tValue) *
                                    static_cast<unsigned int>(tValue));
        else
            return static_cast<T>(static_cast<unsigned int>(tValue) *
                                  static_cast<unsigned int>(tValue));
    }
};
