/// Results of test cases, as continuous integration reads them.
#pragma once

#include <string>
#include <vector>

namespace host {

struct Case {
    enum class Kind { Passed, Failure, Error, Skipped };
    std::string name;
    Kind kind = Kind::Passed;
    std::string status; ///< As in "timed out".
    std::string text;   ///< Why, in a line.
    std::string output; ///< What was printed. Any bytes.
    double seconds = 0;
};

/// Text that may stand in XML 1.0: markup is escaped; what may not stand there at all, control
/// characters and bytes that are no UTF-8, becomes U+FFFD.
std::string XmlText(const std::string& text);

/// A suite in JUnit's form, as a file has it.
std::string JUnitOf(const std::string& suite, const std::vector<Case>& cases);

} // namespace host
