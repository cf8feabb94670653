// The pure parts of the clocks, for their tests.
#ifndef KT_TIMING_CLOCKS_H
#define KT_TIMING_CLOCKS_H

namespace kt::internal {

// ktRealtime for the local time `fields` (as ktWallClock fills them):
// seconds since 2004-03-01 00:00:00 with only the every-fourth-year leap rule.
double RealtimeFromLocal(const double fields[6]);

}  // namespace kt::internal

#endif  // KT_TIMING_CLOCKS_H
