#include "Util/Util_Statistics.h"

namespace
{
template <class Fn>
double ByMode(const void* pvData, int iMode, Fn&& fnTyped)
{
    switch (iMode)
    {
    case 0:
        return fnTyped(static_cast<const unsigned char*>(pvData));
    case 1:
        return fnTyped(static_cast<const short*>(pvData));
    case 2:
        return fnTyped(static_cast<const float*>(pvData));
    case 6:
        return fnTyped(static_cast<const unsigned short*>(pvData));
    default:
        return 0.0;
    }
}
}  // namespace

double Util_Statistics::Mean(const void* pvData, int n, int iMode)
{
    return ByMode(pvData, iMode, [n](const auto* p) { return Mean(p, n); });
}

double Util_Statistics::Max(const void* pvData, int n, int iMode)
{
    return ByMode(pvData, iMode, [n](const auto* p) { return Max(p, n); });
}

double Util_Statistics::Min(const void* pvData, int n, int iMode)
{
    return ByMode(pvData, iMode, [n](const auto* p) { return Min(p, n); });
}

double Util_Statistics::Std(const void* pvData, int n, int iMode)
{
    return ByMode(pvData, iMode, [n](const auto* p) { return Std(p, n); });
}
