// Runs this build's vexlorctl, for the tests of what it reads and asks.
#pragma once

#include "CCommand.h"

// vexlorctl with `args`; as the user `asUid` where it is >= 0 (the test must be root).
inline CCommandResult vexlorctl(std::vector<std::string> args, int asUid = -1)
{
    args.insert(args.begin(), VEXLOR_TEST_VEXLORCTL);
    return runCommand(args, asUid);
}
