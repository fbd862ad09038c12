// c_texts.h - what all functions for C share: they let nothing out, and take texts by their length.

#ifndef KOR_C_TEXTS_H
#define KOR_C_TEXTS_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "lumlog.h"
#include "win/kept_errors.h"
#include "win/utf8.h"

namespace kor::c
{
/// Runs body and returns its result; what it throws ends here. The thread's errors stay as they were.
template <class Result, class Body>
Result contained(Result result_of_failure, Body body) noexcept
{
    const win::KeptErrors kept;
    try
    {
        return body();
    }
    catch (...) // a lack of memory: the log's own code throws nothing else
    {
        return result_of_failure;
    }
}

/// The same for a body without a result.
template <class Body>
void contained(Body body) noexcept
{
    const auto with_result = [&body]
    {
        body();
        return 0;
    };
    contained(0, with_result);
}

/// A text of the caller's. length: LUM_ZT for one that ends at its terminator.
inline std::string_view text_of(const char* text, std::size_t length) noexcept
{
    if (text == nullptr)
        return {};
    return {text, length == LUM_ZT ? std::strlen(text) : length};
}

inline std::string_view name_of(const char* name) noexcept { return text_of(name, LUM_ZT); }

/// A name for members that take a terminated text of the process's code page, null for null.
class NarrowName
{
public:
    explicit NarrowName(const char* utf8) : m_is_null(utf8 == nullptr), m_text(win::narrow_of_utf8(name_of(utf8))) {}

    const char* get() const noexcept { return m_is_null ? nullptr : m_text.c_str(); }

private:
    bool m_is_null;
    std::string m_text;
};

/// The same for wide texts.
class WideName
{
public:
    explicit WideName(const char* utf8) : m_is_null(utf8 == nullptr), m_text(win::wide_of_utf8(name_of(utf8))) {}

    const wchar_t* get() const noexcept { return m_is_null ? nullptr : m_text.c_str(); }

private:
    bool m_is_null;
    std::wstring m_text;
};

/// Writes text into a caller's buffer, cut between two characters, and returns its whole length.
inline std::size_t give(std::string_view text, char* buffer, std::size_t size) noexcept
{
    if (buffer == nullptr || size == 0)
        return text.size();
    std::size_t length = std::min(text.size(), size - 1);
    const auto continues = [&](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80; };
    if (length < text.size())
        for (int back = 0; back < 3 && length > 0 && continues(length); ++back)
            --length;
    if (length != 0) // an empty text may have no address, which memcpy must not be given
        std::memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return text.size();
}

/// A finished message as the log wants it: ending in a newline and a terminator, without zero bytes. Ordinary ones need
/// no memory but the object itself; one for which there is none is cut.
class FinishedText
{
public:
    explicit FinishedText(std::string_view text) noexcept
    {
        std::size_t length = text.size();
        if (length > MOST)
            m_large.reset(new (std::nothrow) char[length + 2]);
        m_text = m_large ? m_large.get() : m_small;
        if (!m_large)
            length = std::min(length, MOST);
        if (length != 0)
            std::memcpy(m_text, text.data(), length);
        if (length != 0 && std::memchr(m_text, '\0', length) != nullptr)
            std::replace(m_text, m_text + length, '\0', ' ');
        if (length == 0 || m_text[length - 1] != '\n')
            m_text[length++] = '\n';
        m_text[length] = '\0';
        m_length = static_cast<int>(length);
    }
    FinishedText(const FinishedText&) = delete;
    FinishedText& operator=(const FinishedText&) = delete;

    char* text() noexcept { return m_text; }
    int length() const noexcept { return m_length; }

private:
    static constexpr std::size_t MOST = 2046;

    char m_small[MOST + 2];
    std::unique_ptr<char[]> m_large;
    char* m_text;
    int m_length;
};
} // namespace kor::c

#endif // KOR_C_TEXTS_H
