#include "server/Thread/BandSplit.h"

void CBandSplit::Calculate(int iRows, int iBands)
{
    m_viStart.clear();
    if (iBands < 1) return;
    for (int i = 0; i < iBands; ++i) m_viStart.push_back(iRows / iBands * i);
    m_viStart.push_back(iRows);
}
