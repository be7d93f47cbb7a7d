#pragma once

#include <cstddef>
#include <deque>
#include <span>
#include <vector>

namespace talven
{

/// Finds x with u(x) = 0 from steps x -> x + u(x) in fewer of them: the next x is the one of which
/// the last steps tell that u is smallest (Anderson, J. ACM 12, 1965).
class CAnderson
{
public:
    /// \param tDepth  how many steps back it looks
    explicit CAnderson(std::size_t tDepth) : m_tDepth(tDepth) {}
    /// The next x, from the last one and the step that it asks for.
    std::vector<double> Step(std::span<const double> dX, std::span<const double> dStep);

private:
    struct Point
    {
        std::vector<double> vdX, vdStep;
    };
    std::size_t m_tDepth;
    std::deque<Point> m_aPoints;  // the last ones, oldest first
};

}  // namespace talven
