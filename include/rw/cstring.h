// rw/cstring.h - stand-in for the class library's string, over std::string.

#ifndef KOR_RW_CSTRING_H
#define KOR_RW_CSTRING_H

#include <cstddef>
#include <functional>
#include <string>
#include <utility>

/// A text passed by object through the library's interface.
///
/// Holds bytes and a terminator; a null pointer makes an empty text. Header-only, so its memory
/// belongs to whichever module built it: both sides use the same C runtime heap.
class RWCString
{
public:
    RWCString() = default;
    RWCString(const char* text) : m_text(text == nullptr ? "" : text) {}
    RWCString(const char* text, std::size_t length) : m_text(text, length) {}
    explicit RWCString(std::string text) noexcept : m_text(std::move(text)) {}

    const char* data() const noexcept { return m_text.c_str(); }
    std::size_t length() const noexcept { return m_text.size(); }
    /// Upper and lower case count as different.
    std::size_t hash() const noexcept { return std::hash<std::string>()(m_text); }
    bool isNull() const noexcept { return m_text.empty(); }
    operator const char*() const noexcept { return m_text.c_str(); }

    RWCString& operator+=(const RWCString& more)
    {
        m_text += more.m_text;
        return *this;
    }

    friend RWCString operator+(RWCString left, const RWCString& right)
    {
        left += right;
        return left;
    }
    friend bool operator==(const RWCString& a, const RWCString& b) noexcept { return a.m_text == b.m_text; }
    friend bool operator!=(const RWCString& a, const RWCString& b) noexcept { return a.m_text != b.m_text; }
    friend bool operator==(const RWCString& a, const char* b) noexcept { return a.m_text == (b == nullptr ? "" : b); }
    friend bool operator!=(const RWCString& a, const char* b) noexcept { return !(a == b); }
    friend bool operator==(const char* a, const RWCString& b) noexcept { return b == a; }
    friend bool operator!=(const char* a, const RWCString& b) noexcept { return !(b == a); }

private:
    std::string m_text;
};

#endif // KOR_RW_CSTRING_H
