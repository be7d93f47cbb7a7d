#pragma once

#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <random>
#include <vector>

/// Random choices of one session: the same for the same seed and session, with any library.
class CRandom
{
public:
    CRandom(std::uint64_t ulSeed, std::uint64_t ulSession)
    {
        std::seed_seq aSeed{ulSeed, ulSeed >> 32, ulSession, ulSession >> 32};
        m_aEngine.seed(aSeed);
    }
    /// Both ends included.
    int Int(int iFirst, int iLast)
    {
        return iFirst + static_cast<int>(m_aEngine() % static_cast<unsigned>(iLast - iFirst + 1));
    }
    std::uint32_t Word() { return static_cast<std::uint32_t>(m_aEngine() >> 32); }
    float Real(float fFirst, float fEnd)
    {
        return fFirst + (fEnd - fFirst) * static_cast<float>(m_aEngine() >> 40) * 0x1p-24f;
    }
    /// Every order of magnitude is as likely.
    int Magnitude(int iFirst, int iLast)
    {
        return static_cast<int>(
            std::exp(Real(std::log(static_cast<float>(iFirst)), std::log(iLast + 0.5f))));
    }
    bool Chance(float fProbability) { return Real(0, 1) < fProbability; }
    template <class T>
    T Pick(std::initializer_list<T> aValues)
    {
        return aValues.begin()[Int(0, static_cast<int>(aValues.size()) - 1)];
    }
    std::vector<float> Reals(std::size_t tCount, float fFirst, float fEnd)
    {
        std::vector<float> vf(tCount);
        for (float& rfValue : vf) rfValue = Real(fFirst, fEnd);
        return vf;
    }

private:
    std::mt19937_64 m_aEngine;
};
