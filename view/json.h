/// Events as JSON, one a line, for jq and the like.
#pragma once

#include "view/story.h"

#include <cstdio>

namespace view {

/// Writes for each event an object with its number, time (in microseconds since the start), thread,
/// side, phase, entry, what it is about (camera, session, request), its arguments and its result.
///
/// An object is there as its serial and its value, as in {"session": 1, "value": "0x7f"}; a lent
/// record as an object, records and plain values in a row as an array; what was not recorded
/// behind an address as that address. A record behind an object is its "record".
/// \returns false where that cannot be written.
bool WriteJson(FILE* out, const Story& story, Moment start);

/// The line of one event, by its index.
std::string JsonOf(const Story& story, size_t event, Moment start);

} // namespace view
