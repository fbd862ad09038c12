// floor.h - the least that a DLL could do to decide about a message.

#ifndef KOR_BENCH_FLOOR_H
#define KOR_BENCH_FLOOR_H

#if defined(KOR_BENCH_BUILDING_FLOOR)
#define KOR_BENCH_FLOOR __declspec(dllexport)
#else
#define KOR_BENCH_FLOOR __declspec(dllimport)
#endif

/// The byte that both checks compare with. volatile: as another process would change it.
extern KOR_BENCH_FLOOR volatile unsigned char floor_level;

/// The check as a call across the DLL's edge.
KOR_BENCH_FLOOR int floor_is_wanted(int level);

/// The check inline, on the imported byte.
inline bool floor_is_rejected(int level) { return level > floor_level; }

#endif // KOR_BENCH_FLOOR_H
