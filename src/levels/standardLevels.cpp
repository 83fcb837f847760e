// The standard level objects, built while the library loads. They live until it is unloaded.
#include "levels/levelStore.h"

vexlor_level* VX_EMERG = vx::createLevel(0);
vexlor_level* VX_ALERT = vx::createLevel(1);
vexlor_level* VX_CRIT = vx::createLevel(2);
vexlor_level* VX_ERR = vx::createLevel(3);
vexlor_level* VX_ERROR = VX_ERR;
vexlor_level* VX_WARNING = vx::createLevel(4);
vexlor_level* VX_WARN = VX_WARNING;
vexlor_level* VX_NOTICE = vx::createLevel(5);
vexlor_level* VX_INFO = vx::createLevel(6);
vexlor_level* VX_DEBUG = vx::createLevel(7);
vexlor_level* VX_ENTERLEAVE = vx::createLevel(8);
// The only level with more than one mask bit; not expressible through vexlor_level_create.
vexlor_level* VX_ALL = vx::allocLevel(32, 0xFFFFFFFFu);
