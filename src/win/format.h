// format.h - printf formats with arguments that may not fit them.

#ifndef KOR_WIN_FORMAT_H
#define KOR_WIN_FORMAT_H

#include <cstddef>
#include <cstdio>
#include <string>

namespace kor::win
{
enum class FormatResult
{
    WHOLE,
    CUT,   ///< the text has more characters than fit
    MISFIT ///< the arguments do not fit the format, a wild pointer among them
};

/// True when a text has more characters than that; false also for a wild pointer.
bool is_longer(const char* text, std::size_t most) noexcept;

/// Formats into buffer and terminates it. args: a va_list. size: of the buffer, at least that of
/// core::FORMAT_ERROR, which, without its newline, takes the place of a text that does not fit its format.
FormatResult format_text(char* buffer, std::size_t size, const char* format, char* args) noexcept;

/// The same for wide text, without an end. size: of the buffer, in characters. Returns the length of the text,
/// which is cut when it does not fit.
std::size_t format_wide_text(wchar_t* buffer, std::size_t size, const wchar_t* format, char* args) noexcept;

/// Formats into buffer (core::MESSAGE_SIZE bytes) and terminates it. args: a va_list. Returns the
/// length, -1 when the text was cut at core::MAX_MESSAGE. Arguments that do not fit the format, a wild
/// pointer included, give core::FORMAT_ERROR. whole, unless null, is set to the length of a text that was cut.
int format_message(char* buffer, const char* format, char* args, std::size_t* whole = nullptr) noexcept;

/// Prints to a stream in one piece, however long the text is.
void print(std::FILE* stream, const char* format, char* args) noexcept;

/// The system's text for an error code, empty when it has none. for_format: each percent sign is
/// doubled, so that the text can become part of a format.
std::string system_text(unsigned int error, bool for_format);
} // namespace kor::win

#endif // KOR_WIN_FORMAT_H
