// plain_format.h - the conversions that nearly all messages consist of, several times as fast as the C runtime.

#ifndef KOR_CORE_PLAIN_FORMAT_H
#define KOR_CORE_PLAIN_FORMAT_H

#include <cstdarg>
#include <cstddef>

namespace kor::core
{
/// The format has something else in it; what the buffer holds is then worth nothing.
constexpr int NOT_PLAIN = -2;

/// Formats when the format has no conversions but these, for which the result is that of any C runtime to the byte:
///
///     %d %i           with - 0 + blank, a width, and h, l, ll, I, I32 or I64
///     %u %x %X        the same without + and blank
///     %p              alone: sixteen capital digits on 64-bit Windows
///     %f              with - 0 + blank, a width, and a precision of 9 at most
///     %s %c           with - and a width; %s with a precision
///     %%
///
/// Width and precision may be *. A number of %f that a runtime might round in another way is not plain: one near the
/// middle between two results, one with more than 14 digits, one that is none. decimal_point: the runtime's, asked
/// for once it is needed.
///
/// Writes at most size characters and a terminator behind them. Returns the length, -1 when the text has more than
/// size characters, or NOT_PLAIN. A null text becomes "(null)".
///
/// Owns nothing while it reads the arguments, so that a fault may end it anywhere.
int format_plain(
    char* buffer, std::size_t size, const char* format, std::va_list args, char (*decimal_point)()) noexcept;
} // namespace kor::core

#endif // KOR_CORE_PLAIN_FORMAT_H
