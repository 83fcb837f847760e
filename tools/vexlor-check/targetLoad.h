// --load: each target created as a program would create it, then handed back.
#pragma once

#include "CFileCheck.h"

// Adds to `check` each target's name, or why its library or factory refuses it.
void loadTargets(CFileCheck& check);
