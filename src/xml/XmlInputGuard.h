// Screens a received XML string before the XML library parses it.
//
// The library recurses once per element level and overflows the stack at a few tens of
// thousands of levels, and reads a few bytes past the terminator of some malformed input.
// The guard follows the library's own tokenising rules (CDATA, comments, quoted attribute
// values, UTF-8 stepping once a byte-order mark or declaration selects it), so it measures
// the nesting the library itself would build, and hands the library a zero-padded copy.
#pragma once

#include <cstddef>
#include <string>

// Returns a zero-padded copy of text in padded and a pointer to it, or null when the text
// is longer than maxBytes or nests elements deeper than maxDepth.
const char* GuardXmlInput(const char* text, size_t maxBytes, int maxDepth, std::string& padded);

// The deepest element nesting the library would build from text (stopping where the
// library would stop with an error), or -1 for input the guard cannot follow exactly.
int MeasureXmlDepth(const char* text, int stopAbove);
