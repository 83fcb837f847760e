// The baseline: an exported function of a shared library that does nothing.
extern "C" __attribute__((visibility("default"), noinline)) void vexlor_bench_empty_call(void*, void*, const char*, ...)
{
}
