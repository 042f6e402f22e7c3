/// The named plans, and what follows from one.
#include "schedules/plan.h"

#include <algorithm>

namespace schedules {
namespace {

using standin::Shape;
using Shapes = std::vector<Shape>;

constexpr Shape kMetadata = Shape::MetadataFirst;
constexpr Shape kBuffers = Shape::BuffersFirst;
constexpr Shape kTogether = Shape::Together;
constexpr Shape kPartials = Shape::Partials;

/// Results come from outside of all callbacks.
std::vector<Plan> PlainPlans() {
    return {
        {.name = "three",
         .shows = "three requests of two results each to one session",
         .shapes = Shapes(3, kMetadata),
         .sessions = {0, 0, 0}},
        {.name = "sessions",
         .shows = "three sessions, of which each one's results come in another shape",
         .shapes = {kMetadata, kBuffers, kPartials},
         .sessions = {0, 1, 2}},
        {.name = "partials",
         .shows = "three requests of three results each, with partials, to two sessions",
         .shapes = Shapes(3, kPartials),
         .sessions = {0, 1, 0}},
        {.name = "four",
         .shows = "four requests of two results each, to two sessions",
         .shapes = {kBuffers, kMetadata, kBuffers, kMetadata},
         .sessions = {0, 0, 1, 1}},
        {.name = "one-in-call",
         .shows = "one request, whose results also come before its submission returned",
         .shapes = {kMetadata},
         .sessions = {0},
         .duringSubmissions = true},
        {.name = "three-in-calls",
         .shows = "three requests, whose results come before any submission returned, and after",
         .shapes = Shapes(3, kMetadata),
         .sessions = {0, 1, 0},
         .duringSubmissions = true},
        {.name = "partials-in-calls",
         .shows = "the same of two requests with partials",
         .shapes = Shapes(2, kPartials),
         .sessions = {0, 1},
         .duringSubmissions = true},
    };
}

std::vector<Plan> NestingPlans() {
    return {
        {.name = "in-completions",
         .shows = "four requests of one result each, also from within completions of others",
         .shapes = Shapes(4, kTogether),
         .sessions = {0, 1, 0, 1},
         .within = kCompletion},
        {.name = "in-callbacks",
         .shows = "three requests of one result each, also from within any callback for others",
         .shapes = Shapes(3, kTogether),
         .sessions = {0, 0, 1},
         .within = kAny},
        {.name = "odd-in-callbacks",
         .shows = "the same with a second block, an error and a buffer before its metadata",
         .shapes = {Shape::SecondBlock, Shape::ErrorBuffer, kBuffers},
         .sessions = {0, 0, 0},
         .within = kAny},
        {.name = "partials-in-callbacks",
         .shows = "two requests with partials, also from within any callback for the other",
         .shapes = Shapes(2, kPartials),
         .sessions = {0, 0},
         .within = kAny},
        {.name = "chained",
         .shows = "two requests of two results each, submitted from within callbacks, too",
         .shapes = {kMetadata, kBuffers},
         .sessions = {0, 1},
         .duringSubmissions = true,
         .within = kAny,
         .submitsWithin = true},
        {.name = "chained-completions",
         .shows = "three requests of one result each, submitted from within completions, too",
         .shapes = Shapes(3, kTogether),
         .sessions = {0, 0, 1},
         .duringSubmissions = true,
         .within = kCompletion,
         .submitsWithin = true},
    };
}

} // namespace

std::vector<Told> ToldOf(Shape shape, size_t result) {
    const auto results = standin::ResultsOf(shape);
    const standin::ShapeResult& its = results[result];
    std::vector<Told> all;
    if (its.metadata || its.buffer) {
        // A second block repeats the main one: docs/kept-behaviours.md.
        all.resize(its.secondBlock ? 2 : 1,
                   {kResult, its.metadata, its.buffer, its.buffer ? its.bufferStatus : 0});
    }
    if (result + 1 == results.size()) {
        all.push_back({.callback = kRelease});
        all.push_back({.callback = kCompletion, .status = its.bufferStatus != 0 ? 1U : 0U});
    }
    return all;
}

Freedom FreedomOf(const Plan& plan) {
    Freedom freedom{.callbacks = {},
                    .duringSubmissions = plan.duringSubmissions,
                    .submitsWithin = plan.submitsWithin};
    for (const Shape shape : plan.shapes) {
        auto& callbacks = freedom.callbacks.emplace_back();
        for (size_t i = 0; i < standin::ResultsOf(shape).size(); ++i) {
            const auto all = ToldOf(shape, i);
            const auto count = std::count_if(all.begin(), all.end(), [&](const Told& told) {
                return (told.callback & plan.within) != 0;
            });
            callbacks.push_back(static_cast<uint32_t>(count));
        }
    }
    return freedom;
}

std::span<const Plan> NamedPlans() {
    static const std::vector<Plan> plans = [] {
        std::vector<Plan> all = PlainPlans();
        const std::vector<Plan> nesting = NestingPlans();
        all.insert(all.end(), nesting.begin(), nesting.end());
        return all;
    }();
    return plans;
}

} // namespace schedules
