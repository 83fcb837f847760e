// Level masks as an operator writes and reads them (vexlorctl, vexlor-check).
#pragma once

#include <string>

// "0x1f" (hex), "000011111" (a bit string as in the configuration: highest level first, blanks
// ignored), or a list of level names and numbers separated by commas or blanks ("warn,debug,8",
// "emerg-warn", "all"). False, with `error` set, for anything else.
bool parseLevels(const std::string& text, unsigned int& mask, std::string& error);
// "EMERG ALERT ... TRACE 9 ...", "none" for 0, "all" for every bit.
std::string levelNames(unsigned int mask);
