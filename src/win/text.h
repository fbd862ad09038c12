// text.h - texts between the wide characters of Windows and the bytes of the C runtime.

#ifndef KOR_WIN_TEXT_H
#define KOR_WIN_TEXT_H

#include <cstring>
#include <string>

namespace kor::win
{
/// A copy on the heap, to be given back with free; null for null, and without memory.
inline char* duplicate(const char* text) noexcept { return text == nullptr ? nullptr : ::_strdup(text); }

/// text in the process's code page; what that lacks becomes a question mark.
std::string narrow(const wchar_t* text);

/// The same in the code page of the calling thread.
std::string narrow_for_thread(const wchar_t* text);

/// text in the process's code page, or all of it in UTF-8 where that lacks some of its characters.
std::string narrow_or_utf8(const wchar_t* text);

/// text out of a code page.
std::wstring wide(const char* text, unsigned int code_page);

/// text out of the code page of the calling thread.
std::wstring wide_for_thread(const char* text);
} // namespace kor::win

#endif // KOR_WIN_TEXT_H
