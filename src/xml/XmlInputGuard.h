// Screens a received XML string before the XML library parses it.
//
// The library recurses once per element level and overflows the stack at a few tens of
// thousands of levels, and reads a few bytes past the terminator of some malformed input.
// The guard follows the library's own tokenising rules (CDATA, comments, quoted attribute
// values, UTF-8 stepping once a byte-order mark or declaration selects it), so it measures
// the nesting the library itself would build. Callers pad the text with zero bytes.
#pragma once

#include <cstddef>

// Zero bytes to append after a text's terminator before the library parses it.
constexpr size_t kXmlPadding = 16;

// True when text (len bytes before its terminator) may be handed to the library: no longer
// than maxBytes, nesting elements no deeper than maxDepth, making the library build no more
// than maxNodes nodes (elements, attributes, texts and the rest), whose memory is many times
// that of the markup that makes them, and holding no more than maxTextBytes of text between
// tags, comments and other nodes the library keeps whole (all but CDATA sections), which it
// reads a character at a time.
bool IsXmlInputAcceptable(const char* text, size_t len, size_t maxBytes, int maxDepth,
                          size_t maxNodes, size_t maxTextBytes = static_cast<size_t>(-1));

// The deepest element nesting the library would build from text (stopping where the
// library would stop with an error), or -1 for input the guard cannot follow exactly.
int MeasureXmlDepth(const char* text, int stopAbove);
