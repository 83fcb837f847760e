// What another program says, made safe to print on an operator's terminal.
#pragma once

#include <string>

// `text` with every control character escaped: C0 bytes and DEL as \n, \r, \t or \xHH, and the
// C1 controls and any byte that is not part of valid UTF-8 as \xHH per byte. Valid UTF-8 text
// otherwise stays as it is, so names in any script print as they are.
std::string printable(const std::string& text);
// The length of the valid UTF-8 sequence at `text[i]` that is no control character, or 0.
std::size_t sequenceLength(const std::string& text, std::size_t i);
