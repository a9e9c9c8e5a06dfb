// Line-ending conversion between the panel's LF text, the client's and the files' CR LF text and
// the lone CR that older peers and pasted text bring, plus file path splitting.
// All functions work on byte strings (UTF-8 or any ASCII-compatible encoding); only CR (13) and
// LF (10) are special, and each conversion ignores its input from the first zero byte on.
// The std::string functions throw std::bad_alloc when memory runs out, as std::string does.
// Plain functions without state; callable from any thread.
#pragma once

#include <stddef.h>

#include <string>

// Replaces occurrences of from by to in text, in place; always returns true.
// After a replacement at position p the search resumes at p + from.size() of the changed text,
// not after the inserted to: a shortening replacement skips bytes, so CR LF -> LF on
// "CR LF CR LF" gives "LF CR LF". Callers rely on this.
// REQUIRES: from is not empty (an empty from leaves text unchanged).
// Where the resumed search would match again entirely inside the bytes just inserted (only
// possible when to is longer than from), the replacing would never end; it stops there.
bool strReplaceRow(std::string& text, const std::string& from, const std::string& to);

// CR LF -> LF; a lone CR stays. An empty in leaves out untouched (the Win conversions below
// empty it); otherwise out becomes in, up to its first zero byte, converted. in and out may be
// the same object.
void ConvertToMacText(const std::string& in, std::string& out);

// Lone CR -> CR LF; CR LF and lone LF stay. out becomes the converted text, "" for an empty in.
// When in has a zero byte and its very last byte is CR, the text after the last lone CR before
// the zero byte is dropped as well (the conversion only ever flushes up to a lone CR).
// in and out may be the same object.
void ConvertToWinText(const std::string& in, std::string& out);

// Lone LF and lone CR -> CR LF; CR LF stays. out becomes the converted text, "" for an empty
// in. in and out may be the same object.
void ConvertToWinText2(const std::string& in, std::string& out);

// Lone LF, lone CR and CR LF -> CR LF, into a new zero-terminated array that the caller frees
// with delete[]. Returns null for a null or empty in, and when memory runs out.
char* ConvertToWinText3(const char* in);

// Splits path into its directory (through the last '/', slash included), its name (after the
// last '/', extension included) and its extension (from the last '.' of the whole path, dot
// included, so "/a.b/c" gives ".b/c"). Each output may be null, then it is not written.
// A part that is absent is written as "". Does nothing for a null path.
// REQUIRES: each non-null output holds at least strlen(path) + 1 bytes, which is always enough;
// the outputs carry no size, so nothing else can be checked.
void SplitPath(const char* path, char* dir, char* name, char* ext);

// The same with the size of each output buffer (ignored for a null output). A part longer than
// its buffer is cut to size - 1 bytes, short of a split UTF-8 sequence; a size of 0 leaves that
// output untouched.
void SplitPath(const char* path, char* dir, size_t dirSize, char* name, size_t nameSize,
               char* ext, size_t extSize);
