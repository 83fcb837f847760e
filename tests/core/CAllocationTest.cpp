// An emitted record allocates nothing once the thread has logged before: its texts reach the
// targets through the thread's kept strings. Counted, not timed: malloc of the test thread is
// counted while a switch is on.
#include <atomic>
#include <dlfcn.h>
#include <string>

#include "CMainInstanceTest.h"

namespace {

thread_local bool counting = false;
std::atomic<long> allocations{0};

}  // namespace

// Every malloc of the process comes here first (operator new included), and goes on to the next
// definition: the C library's, or a sanitizer's in front of it.
extern "C" void* malloc(std::size_t size)
{
    static auto* const next = reinterpret_cast<void* (*)(std::size_t)>(dlsym(RTLD_NEXT, "malloc"));
    if (counting) {
        allocations.fetch_add(1, std::memory_order_relaxed);
    }
    return next(size);
}

namespace {

using CAllocationTest = CMainInstanceTest;

TEST_F(CAllocationTest, RecordsAfterTheFirstOfAThreadAllocateNothing)
{
    m_paths.writeDefaultConfig(targetLine(testpaths::recorder(), "name=quiet, quiet=1"));
    vexlor_component* app = vexlor_create_component("app", VX_ALL, "");
    vexlor_init(app, "a thread name longer than the small-string buffer");
    vexlor_enter_function(app, "aFunctionNameLongerThanTheSmallStringBuffer");
    const std::string text(200, 'x');
    const std::string tooLong(3000, 'y');
    vexlor(app, VX_INFO, "%s", text.c_str());

    counting = true;
    for (int i = 0; i < 10000; ++i) {
        vexlor(app, VX_INFO, "%s %d", text.c_str(), i);
    }
    vexlor(app, VX_INFO, "%s", tooLong.c_str());  // cut to 2047
    counting = false;
    EXPECT_EQ(0, allocations.load());
}

}  // namespace
