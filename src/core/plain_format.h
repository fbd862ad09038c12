// plain_format.h - the conversions that nearly all messages consist of, several times as fast as the C runtime.

#ifndef KOR_CORE_PLAIN_FORMAT_H
#define KOR_CORE_PLAIN_FORMAT_H

#include <cstdarg>
#include <cstddef>

namespace kor::core
{
/// The format has something else in it; what the buffer holds is then worth nothing.
constexpr int NOT_PLAIN = -2;

/// Formats when the format has no conversions but %d, %i, %u, those with l or ll, %c, %s and %%, without
/// flags, width or precision. Writes at most size characters and a terminator behind them. Returns the
/// length, -1 when the text has more than size characters, or NOT_PLAIN. A null text becomes "(null)".
///
/// Owns nothing while it reads the arguments, so that a fault may end it anywhere.
int format_plain(char* buffer, std::size_t size, const char* format, std::va_list args) noexcept;
} // namespace kor::core

#endif // KOR_CORE_PLAIN_FORMAT_H
