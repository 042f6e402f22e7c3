/// The contract, rule by rule: V is what the vendor is handed and gets back, H what the host
/// receives, R what the vendor itself does. docs/contract.md states each rule in a sentence, and
/// says where it is watched.
#pragma once

#include "contract/entries.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

// clang-format off
/// RULE(name, number, what holds)
#define CONTRACT_RULES(RULE) \
    RULE(OpenArguments, V1, "interface opened with null and version 512") \
    RULE(LoggerOperations, V2, "logger operations filled") \
    RULE(SessionRecord, V3, "session opened with a name and three callbacks") \
    RULE(SessionOpen, V4, "session open") \
    RULE(SessionClosed, V5, "session closed exactly once") \
    RULE(SessionCloser, V6, "session closed from a thread that is not its own") \
    RULE(Configuration, V7, "configuration record and its streams there") \
    RULE(StreamTypes, V8, "streams typed as inputs, then the output") \
    RULE(StreamWords, V9, "listed stream's words 0 and -1") \
    RULE(RequestRecord, V10, "request record whole") \
    RULE(RequestSession, V11, "request's session configured") \
    RULE(FramePreset, V12, "offline frame preset to -1") \
    RULE(InputRecord, V13, "input's size 208, type 2, status 0") \
    RULE(InputStream, V14, "input's stream an input of the session") \
    RULE(InputManager, V15, "input's manager the buffer's owner") \
    RULE(InputFormat, V16, "format record for raw inputs, and right") \
    RULE(FilterPattern, V17, "filter pattern as the vendor wrote it") \
    RULE(Output, V18, "one output, for the session's output stream") \
    RULE(Memory, V19, "memory as the stream's images need it") \
    RULE(Translation, V20, "translation from and to a buffer") \
    RULE(MetadataWords, V21, "fixed words of metadata calls") \
    RULE(MetadataAlive, V22, "metadata alive") \
    RULE(MetadataDestroyed, V23, "metadata destroyed exactly once") \
    RULE(AndroidMetadataReleased, V24, "Android metadata released exactly once") \
    RULE(ManagerRecord, V25, "buffer manager's record whole") \
    RULE(ManagerAlive, V26, "buffer manager alive") \
    RULE(ManagerDestroyed, V27, "buffer manager destroyed exactly once") \
    RULE(ImageAlive, V28, "image buffer alive") \
    RULE(ImageReleased, V29, "image buffer released exactly once, before its manager") \
    RULE(TableOpen, V30, "operation table open, and closed exactly once") \
    RULE(SetMetadata, V31, "metadata of its own for each set, in order, and for the output") \
    RULE(SessionSettings, V32, "session settings there") \
    RULE(ResultFrame, H1, "result's frame number the request's") \
    RULE(ResultPartial, H2, "result's partial number that of its metadata") \
    RULE(ResultContent, H3, "result with metadata, one buffer, or both") \
    RULE(ResultBuffer, H4, "result's buffer the request's own") \
    RULE(Reports, H5, "metadata and buffer reported as often as expected") \
    RULE(LateResult, H6, "no result after the completion") \
    RULE(Release, H7, "release exactly once, before the completion") \
    RULE(Completion, H8, "completion exactly once") \
    RULE(CompletionStatus, H9, "completion's status that of the last buffer") \
    RULE(Refusal, H10, "nothing for a refused submission") \
    RULE(AfterClose, H11, "nothing after the camera was destroyed") \
    RULE(NewSession, R1, "session's handle a new one") \
    RULE(NewObject, R2, "object's handle a new one") \
    RULE(StreamsKept, R3, "configured streams keep type, size and format") \
    RULE(FrameWritten, R4, "frame number of an accepted request written") \
    RULE(CallbackSession, R5, "callbacks of an open session, with its own record") \
    RULE(ResultRequest, R6, "result for a request of the session") \
    RULE(RefusedRequest, R7, "nothing for a refused request") \
    RULE(ResultAfterLast, R8, "no result after the last one") \
    RULE(ResultNumber, R9, "result's frame number that of its execution") \
    RULE(PartialsFall, R10, "fewer partials to come, or as many") \
    RULE(ResultOutput, R11, "result's buffer the request's output, or one that was lent") \
    RULE(BufferCount, R12, "as many buffers as the request has outputs") \
    RULE(BufferQuery, R13, "framework's buffers for the session's output alone")
// clang-format on

namespace contract {

#define CONTRACT_RULE(name, number, text) name,
enum class Rule : uint32_t { CONTRACT_RULES(CONTRACT_RULE) };
#undef CONTRACT_RULE

struct RuleText {
    const char* number;
    const char* name;
};

/// Indexed by Rule.
#define CONTRACT_RULE(name, number, text) RuleText{#number, text},
inline constexpr std::array kRules{CONTRACT_RULES(CONTRACT_RULE)};
#undef CONTRACT_RULE

inline constexpr const RuleText& TextOf(Rule rule) { return kRules[static_cast<size_t>(rule)]; }

/// On which of the adapter's sides it is watched.
inline constexpr Side SideOf(Rule rule) {
    return rule >= Rule::ResultFrame && rule <= Rule::AfterClose ? Side::Host : Side::Vendor;
}

/// Where a rule is stated, as in "docs/contract.md#v12".
inline std::string LinkOf(Rule rule) {
    std::string link = TextOf(rule).number;
    link[0] = static_cast<char>(link[0] - 'A' + 'a');
    return "docs/contract.md#" + link;
}

} // namespace contract
