// Hides a helper member of an exported class, so that only the published interface is exported.
#pragma once

#define VEXLOR_LOCAL __attribute__((visibility("hidden")))
