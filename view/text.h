/// Events and values in words, as all views print them.
#pragma once

#include "view/serials.h"

#include <string>

namespace view {

/// A value as people read it: "session 1", "-1", "0x5f", "\"Night\"". What is only lent for a call
/// has an address that says nothing: "null", or "there".
std::string TextOf(const Value& value);

/// An event in a line: "ExecuteRequest(session 1, request {numInputs 8}) -> 0". Of the records that
/// arguments point at, it has what is not 0.
std::string LineOf(const Serials& serials, size_t event);

/// A word in hexadecimal, as in "0x5f".
std::string Hex(uint64_t word);

/// A word of a command, quoted for a shell where it needs to be.
std::string ShellWord(const std::string& word);

/// A count with its noun, as in "1 request" and "2 requests".
std::string Count(uint64_t count, const char* noun);

} // namespace view
