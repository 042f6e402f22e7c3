/// Figures for machines, beside what a program prints for people.
///
/// Where the environment variable FIGURES names a file, each line of it is a figure, a finding, or
/// a file that was measured; tools/figures.py makes the report of them, and tools/figures.sh is for
/// scripts what this is for programs. Where there is no such variable nothing happens.
///
/// For one thread of a process at a time. What cannot be written is thrown as a std::runtime_error.
#pragma once

#include <limits>
#include <string>

namespace kit {

/// What a figure is held against: it must lie between the two, both included.
struct Bar {
    double least = -std::numeric_limits<double>::infinity();
    double most = std::numeric_limits<double>::infinity();
};

/// \param unit as in "ns"; empty for a mere number
void NoteFigure(const std::string& name, double value, const std::string& unit,
                const Bar& bar = {});

/// Something that is wrong, in words.
void NoteFinding(const std::string& text);

/// The file whose figures these are: the report says which build it is.
void NoteBuild(const std::string& file);

} // namespace kit
