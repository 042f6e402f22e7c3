/// Lines of the file that FIGURES names. Their fields have tabs in between.
#include "kit/figures.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace kit {
namespace {

/// The shortest text that is the same number again; empty for a bar that there is not.
std::string NumberText(double value) {
    char text[32];
    const auto end = std::to_chars(std::begin(text), std::end(text), value).ptr;
    return std::isinf(value) ? "" : std::string(text, end);
}

std::string Flat(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\t' || c == '\n'; }, ' ');
    return text;
}

void Note(const std::string& line) {
    const char* const file = std::getenv("FIGURES");
    if (file != nullptr && !(std::ofstream(file, std::ios::app) << line << std::endl)) {
        throw std::runtime_error(std::string(file) + ": a figure cannot be noted there");
    }
}

} // namespace

void NoteFigure(const std::string& name, double value, const std::string& unit, const Bar& bar) {
    Note("figure\t" + Flat(name) + '\t' + NumberText(value) + '\t' + unit + '\t' +
         NumberText(bar.least) + '\t' + NumberText(bar.most));
}

void NoteFinding(const std::string& text) { Note("finding\t" + Flat(text)); }

void NoteBuild(const std::string& file) { Note("build\t" + file); }

} // namespace kit
