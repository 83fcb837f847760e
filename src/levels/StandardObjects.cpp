// The objects the library builds while it loads, in this order: the fallback component, then the
// standard level objects. They live until the library is unloaded.
#include "core/CVexlor.h"
#include "levels/LevelDescriptionParser.h"
#include "levels/LevelStore.h"

namespace {

vexlor_component makeFallbackComponent()
{
    vexlor_component component{"OOM-Ohno!", 0xFFFFFFFFu, {}};
    vx::parseLevelDescriptions(component, std::string());
    return component;
}

}  // namespace

vexlor_component CVexlor::ms_OOMFallbackComp = makeFallbackComponent();

vexlor_level* VX_EMERG = vexlor_level_create(0);
vexlor_level* VX_ALERT = vexlor_level_create(1);
vexlor_level* VX_CRIT = vexlor_level_create(2);
vexlor_level* VX_ERR = vexlor_level_create(3);
vexlor_level* VX_ERROR = VX_ERR;
vexlor_level* VX_WARNING = vexlor_level_create(4);
vexlor_level* VX_WARN = VX_WARNING;
vexlor_level* VX_NOTICE = vexlor_level_create(5);
vexlor_level* VX_INFO = vexlor_level_create(6);
vexlor_level* VX_DEBUG = vexlor_level_create(7);
vexlor_level* VX_ENTERLEAVE = vexlor_level_create(8);
// The only level with more than one mask bit; not expressible through vexlor_level_create.
vexlor_level* VX_ALL = vx::allocLevel(32, 0xFFFFFFFFu);
