// Text lengths in UTF-16 units over UTF-8 byte strings: the panel's limits and committed length
// count what the toolkits' strings count, while the panel's text travels as UTF-8.
// A byte that starts no valid UTF-8 sequence counts as one unit, as its replacement character
// would. Plain functions without state.
#pragma once

#include <cstddef>
#include <string>

// The number of UTF-16 units of utf8.
unsigned Utf16Length(const std::string& utf8);

// The byte length of the longest prefix of utf8 that holds at most units UTF-16 units; a
// character that would be cut in half (a surrogate pair at the limit) is left out whole.
size_t Utf8PrefixBytes(const std::string& utf8, unsigned units);
