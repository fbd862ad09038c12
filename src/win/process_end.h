// process_end.h - whether the process is past the point where it has threads.

#ifndef KOR_WIN_PROCESS_END_H
#define KOR_WIN_PROCESS_END_H

namespace kor::win
{
/// True once the system has ended all threads but the calling one and takes the process down. What those threads
/// held then stays held for good: locks of this library are taken over, others, such as the one that questions for
/// the time zone take under Wine, must not be asked for any more.
bool process_is_ending() noexcept;
} // namespace kor::win

#endif // KOR_WIN_PROCESS_END_H
