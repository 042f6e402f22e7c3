/// Feeds the rules' engine.
#include "view/check.h"

#include "view/report.h"

#include <set>

namespace view {

using contract::Violation;

std::vector<Violation> FindViolations(const std::vector<contract::Event>& events) {
    std::vector<Violation> found;
    contract::Engine engine([&](const Violation& violation) { found.push_back(violation); });
    for (const contract::Event& event : events) {
        engine.Take(event);
    }
    return found;
}

void PrintViolations(const std::vector<Violation>& violations, const Story& story, Moment start) {
    std::set<contract::Rule> rules;
    for (const Violation& violation : violations) {
        rules.insert(violation.rule);
        PrintFact("violation", Painted(Colour::Bad, contract::LineOf(violation)));
        const uint64_t first = story.Events().empty() ? 0 : story.Events().front().Number();
        const size_t index = static_cast<size_t>(violation.event - first);
        if (violation.event >= first && index < story.Events().size()) {
            const std::string thread = story.Threads()[story.Serials().ThreadOf(index) - 1].name;
            PrintFact("", "event " + std::to_string(violation.event) + " at " +
                              Milliseconds(start, story.Events()[index].Time()) + " ms, " + thread);
        }
    }
    for (const contract::Rule rule : rules) {
        PrintFact("rule", contract::LinkOf(rule));
    }
}

} // namespace view
