/// Where two recordings differ in what happened.
///
/// Threads are paired by their names and in their order, and compared event by event. Objects are
/// the same where they have stood for each other since they appeared; addresses of functions and
/// memory, of lent records and of what is opaque count only as null or not; times and the kernel's
/// numbers of threads do not count.
#pragma once

#include "view/story.h"

namespace view {

struct Difference {
    std::string name; ///< Of the thread.
    /// Indices of the events; none where the recording's thread has ended.
    std::optional<size_t> one, other;
    std::string path; ///< Of the field, as in "request.pInputs[0].numBuffers"; may be empty.
    std::string inOne, inOther; ///< Its values.
    std::vector<size_t> before; ///< Events of one's thread that come before, the last one last.
};

/// \returns the first difference by the order of `one`; none where there is none.
std::optional<Difference> FindDifference(const Story& one, const Story& other);

/// Prints it: the events, the field with both values, what comes before; or that there is none.
/// \param starts of each recording; none for no times.
void PrintDifference(const std::optional<Difference>& difference, const Story& one,
                     const Story& other, std::optional<std::pair<Moment, Moment>> starts);

} // namespace view
