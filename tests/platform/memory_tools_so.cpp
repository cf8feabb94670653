// Stands in for the query functions that memory-diagnostic and coverage
// tools define in the programs they instrument. Each answers its own
// number, so that a query asking the wrong function shows.
#define KT_TEST_EXPORT extern "C" __attribute__((visibility("default")))

KT_TEST_EXPORT int purify_is_running() { return 11; }
KT_TEST_EXPORT int quantify_is_running() { return 22; }
KT_TEST_EXPORT int purecov_is_running() { return 33; }
