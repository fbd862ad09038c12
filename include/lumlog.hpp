// lumlog.hpp - the log for C++17 programs of any compiler: header only, over the functions of lumlog.h.
//
//     LUM_LOG(LUM_WARNING, 310, "only %d of %d images fit into memory", 12, 17);
//     LUM_LOG_FORMAT(LUM_WARNING, 310, "{} is read from {}", title, path); // std::format, or fmt
//     LUM_LOG_TEXT(LUM_WARNING, 310, text);                                // any kind of text, nothing in it is a format
//     LUM_LOG_HEX(LUM_DEBUG, 310, "header", bytes);                        // any contiguous range
//
// None of them evaluates its arguments when nobody wants the message, and messages of a level above LUM_LOG_FLOOR are
// left out by the compiler. Behind each name but the last may stand one of
//
//     _ONCE(level, ...)  _FIRST_N(n, level, ...)  _EVERY_N(n, level, ...)  _EVERY_T(duration, level, ...)
//
// which write at this place once, the first n times, every n-th time beginning with the first, and at most once in a
// duration of std::chrono. Only messages that somebody wants are counted.
//
// All of this is compiled into the program, by its own compiler and with its own standard library. Texts of every kind
// are UTF-8 in the file. Nothing here throws, but for what says otherwise. Any thread, at any time.

#ifndef LUMLOG_HPP
#define LUMLOG_HPP

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#if __has_include(<version>)
#include <version>
#endif

#include "lumlog.h"

// LUM_NO_FORMAT: for programs that have neither, or want neither of them looked at.
#if defined(LUM_NO_FORMAT)
#elif defined(__cpp_lib_format)
#include <format>
#define LUM_FORMAT_NAMESPACE std
#elif __has_include(<fmt/format.h>)
#include <fmt/format.h>
#define LUM_FORMAT_NAMESPACE fmt
#endif

#if defined(__cpp_exceptions) || defined(_CPPUNWIND)
#define LUM_TRY try
#define LUM_CATCH(declaration) catch (declaration)
#else
#define LUM_TRY if (true)
#define LUM_CATCH(declaration) else
#endif

namespace lum
{
// Texts ------------------------------------------------------------------------------------------------------------
namespace detail
{
template <class Text, class Character, class = void>
struct IsText : std::false_type
{
};
template <class Text, class Character>
struct IsText<Text, Character, std::enable_if_t<std::is_convertible_v<const Text&, std::basic_string_view<Character>>>>
    : std::true_type
{
};

/// Of std::filesystem::path, whose header would be dear for who does not use it.
template <class Text, class = void>
struct IsPath : std::false_type
{
};
template <class Text>
struct IsPath<Text, std::void_t<typename Text::string_type, decltype(std::declval<const Text&>().parent_path())>>
    : std::true_type
{
};

inline void append_code_point(std::string& to, std::uint32_t point)
{
    const auto add = [&to](std::uint32_t byte) { to += static_cast<char>(static_cast<unsigned char>(byte)); };
    const auto add_rest = [&](int shift) { add(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80)
        return add(point);
    if (point < 0x800)
        add(0xC0 | (point >> 6));
    else
    {
        if (point < 0x10000)
            add(0xE0 | (point >> 12));
        else
        {
            add(0xF0 | (point >> 18));
            add_rest(12);
        }
        add_rest(6);
    }
    add_rest(0);
}

/// UTF-16, or UTF-32 where wchar_t is that. What is none becomes U+FFFD.
template <class Character>
std::string utf8_of_wide(std::basic_string_view<Character> text)
{
    constexpr std::uint32_t REPLACEMENT = 0xFFFD;
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        auto point = static_cast<std::uint32_t>(text[i]);
        const auto low = i + 1 < text.size() ? static_cast<std::uint32_t>(text[i + 1]) : 0;
        if (point >= 0xD800 && point < 0xDC00 && low >= 0xDC00 && low < 0xE000)
        {
            point = 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00);
            ++i;
        }
        else if ((point >= 0xD800 && point < 0xE000) || point > 0x10FFFF)
            point = REPLACEMENT;
        append_code_point(bytes, point);
    }
    return bytes;
}
} // namespace detail

/// Any text as UTF-8: std::string, std::string_view, const char*, which are taken to be that already; wide texts;
/// texts of char8_t; paths. May throw std::bad_alloc.
///
///     LUM_LOG(LUM_ERROR, 310, "cannot read %s", lum::utf8(path).c_str());
template <class Text>
std::string utf8(const Text& text)
{
    if constexpr (detail::IsPath<Text>::value)
        return utf8(text.native());
    else if constexpr (std::is_pointer_v<std::decay_t<const Text&>>) // a literal is one, too
    {
        using Character = std::remove_cv_t<std::remove_pointer_t<std::decay_t<const Text&>>>;
        const Character* const pointer = text;
        return pointer == nullptr ? std::string("(null)") : utf8(std::basic_string_view<Character>(pointer));
    }
    else if constexpr (detail::IsText<Text, char>::value)
        return std::string(std::string_view(text));
#if defined(__cpp_char8_t)
    else if constexpr (detail::IsText<Text, char8_t>::value)
    {
        const std::u8string_view view(text);
        return std::string(view.begin(), view.end());
    }
#endif
    else if constexpr (detail::IsText<Text, char16_t>::value)
        return detail::utf8_of_wide(std::u16string_view(text));
    else
    {
        static_assert(detail::IsText<Text, wchar_t>::value, "this type is no text");
        return detail::utf8_of_wide(std::wstring_view(text));
    }
}

// Writing ------------------------------------------------------------------------------------------------------------
namespace detail
{
template <class Text>
constexpr bool is_utf8_already = IsText<Text, char>::value && !IsPath<Text>::value;

template <class Text>
void write_text(const lum_site* site, int level, int package, const Text& text) noexcept
{
    LUM_TRY
    {
        if constexpr (is_utf8_already<Text> && !std::is_pointer_v<std::decay_t<Text>>)
        {
            const std::string_view view(text);
            ::lum_write(site, level, package, view.data(), view.size());
        }
        else
        {
            const std::string bytes = utf8(text);
            ::lum_write(site, level, package, bytes.data(), bytes.size());
        }
    }
    LUM_CATCH(const std::exception&) { ::lum_write(site, level, package, "no memory for the text", LUM_ZT); }
}

template <class Text>
void write_error(const lum_site* site, int level, int package, unsigned long error, const Text& text) noexcept
{
    LUM_TRY
    {
        const std::string bytes = utf8(text);
        ::lum_write_error(site, level, package, static_cast<unsigned int>(error), bytes.data(), bytes.size());
    }
    LUM_CATCH(const std::exception&)
    {
        ::lum_write_error(site, level, package, static_cast<unsigned int>(error), "", 0);
    }
}

/// Appends lines of 16 bytes: offset, hexadecimal, and what is printable.
inline void append_hex(std::string& to, const unsigned char* bytes, std::size_t size)
{
    constexpr std::size_t ROW = 16;
    const auto digit = [&to](std::size_t value) { to += "0123456789abcdef"[value & 15]; };
    for (std::size_t row = 0; row < size; row += ROW)
    {
        to += "\n    ";
        for (int shift = 12; shift >= 0; shift -= 4)
            digit(row >> shift);
        to += ' ';
        for (std::size_t i = row; i < row + ROW; ++i)
        {
            to += i == row + ROW / 2 ? "  " : " ";
            if (i < size)
            {
                digit(static_cast<std::size_t>(bytes[i]) >> 4);
                digit(bytes[i]);
            }
            else
                to += "  ";
        }
        to += "  ";
        for (std::size_t i = row; i < row + ROW && i < size; ++i)
            to += bytes[i] >= ' ' && bytes[i] < 127 ? static_cast<char>(bytes[i]) : '.';
    }
}

/// So much of a range is written.
constexpr std::size_t MOST_HEX = 4096;

template <class Title>
void write_hex(
    const lum_site* site, int level, int package, const Title& title, const void* data, std::size_t size) noexcept
{
    LUM_TRY
    {
        std::string text = utf8(title);
        text += " (" + std::to_string(size) + " bytes)";
        const std::size_t shown = size < MOST_HEX ? size : MOST_HEX;
        append_hex(text, static_cast<const unsigned char*>(data), shown);
        if (shown < size)
            text += "\n    ... " + std::to_string(size - shown) + " more";
        ::lum_write(site, level, package, text.data(), text.size());
    }
    LUM_CATCH(const std::exception&) { ::lum_write(site, level, package, "no memory for the text", LUM_ZT); }
}

template <class Title, class Range>
void write_hex(const lum_site* site, int level, int package, const Title& title, const Range& range) noexcept
{
    using Element = std::remove_reference_t<decltype(*std::data(range))>;
    static_assert(std::is_trivially_copyable_v<Element>, "the bytes of such an element tell nothing");
    write_hex(site, level, package, title, std::data(range), std::size(range) * sizeof(Element));
}

#if defined(LUM_FORMAT_NAMESPACE)

/// What a formatter is given for an argument: kinds of text that it does not know as UTF-8, others as they are.
template <class Argument>
decltype(auto) formattable(const Argument& argument)
{
    if constexpr (IsPath<Argument>::value || IsText<Argument, wchar_t>::value || IsText<Argument, char16_t>::value)
        return utf8(argument);
#if defined(__cpp_char8_t)
    else if constexpr (IsText<Argument, char8_t>::value)
        return utf8(argument);
#endif
    else
        return (argument);
}

/// A reference, also to what was made for the call: as such it is formatted, and the format is checked for the same type.
template <class Argument>
using Formattable = const std::remove_reference_t<decltype(formattable(std::declval<const Argument&>()))>&;

template <class... Arguments>
void format_converted(
    const lum_site* site, int level, int package, LUM_FORMAT_NAMESPACE::format_string<Arguments...> format,
    Arguments... arguments)
{
    char small[1024];
    const auto result = LUM_FORMAT_NAMESPACE::format_to_n(small, sizeof small, format, arguments...);
    const auto size = static_cast<std::size_t>(result.size);
    if (size <= sizeof small)
        return ::lum_write(site, level, package, small, size);
    const std::string large = LUM_FORMAT_NAMESPACE::format(format, arguments...);
    ::lum_write(site, level, package, large.data(), large.size());
}

/// What a formatter throws becomes the line.
template <class... Arguments>
void write_format(
    const lum_site* site, int level, int package,
    LUM_FORMAT_NAMESPACE::format_string<Formattable<std::remove_cv_t<std::remove_reference_t<Arguments>>>...> format,
    Arguments&&... arguments) noexcept
{
    LUM_TRY
    {
        format_converted<Formattable<std::remove_cv_t<std::remove_reference_t<Arguments>>>...>(
            site, level, package, format, formattable(arguments)...);
    }
    LUM_CATCH(const std::exception& error)
    {
#if defined(__cpp_exceptions) || defined(_CPPUNWIND)
        ::lum_writef(site, level, package, "!!! ERROR !!! Cannot format this message: %s", error.what());
#endif
    }
}

#endif // LUM_FORMAT_NAMESPACE

// Limits of one place ------------------------------------------------------------------------------------------------
class FirstN
{
public:
    bool passes(std::uint64_t n) noexcept
    {
        return m_count.load(std::memory_order_relaxed) < n && m_count.fetch_add(1, std::memory_order_relaxed) < n;
    }

private:
    std::atomic<std::uint64_t> m_count{0};
};

class EveryN
{
public:
    bool passes(std::uint64_t n) noexcept
    {
        return m_count.fetch_add(1, std::memory_order_relaxed) % (n == 0 ? 1 : n) == 0;
    }

private:
    std::atomic<std::uint64_t> m_count{0};
};

class EveryT
{
public:
    bool passes(std::chrono::nanoseconds duration) noexcept
    {
        const std::int64_t now = std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
        std::int64_t next = m_next.load(std::memory_order_relaxed);
        return now >= next && m_next.compare_exchange_strong(next, now + duration.count(), std::memory_order_relaxed);
    }

private:
    std::atomic<std::int64_t> m_next{INT64_MIN};
};
} // namespace detail

// Scopes -----------------------------------------------------------------------------------------------------------------

/// Names the client that the process serves, and its session, until the end of the scope, and then those before. Client
/// and session belong to the process: for one that serves one at a time. Else: ClientScope.
class ProcessClient
{
public:
    /// client: null for none. May throw std::bad_alloc.
    explicit ProcessClient(const char* client, int session = 0)
    {
        char before[256];
        const std::size_t length = ::lum_client(before, sizeof before, &m_session);
        m_client.assign(before, length < sizeof before ? length : sizeof before - 1);
        ::lum_set_client(client, session);
    }
    ProcessClient(const ProcessClient&) = delete;
    ProcessClient& operator=(const ProcessClient&) = delete;
    ~ProcessClient() { ::lum_set_client(m_client.empty() ? nullptr : m_client.c_str(), m_session); }

private:
    std::string m_client;
    int m_session = 0;
};

/// Whom a thread works for, for a task to take along; as constructed by default: the process's client. Copies share it.
class Client
{
public:
    Client() = default;
    Client(const Client&) = default;
    Client& operator=(const Client&) = default;

    /// The calling thread's. May throw std::bad_alloc.
    static Client current()
    {
        Client client;
        if (lum_client_ref* const held = ::lum_client_current())
            client.m_held.reset(held, &::lum_client_ref_free);
        return client;
    }

    const lum_client_ref* get() const noexcept { return m_held.get(); }

private:
    std::shared_ptr<lum_client_ref> m_held;
};

/// The calling thread works for a client and session until the end of the scope, in its headlines and for the rules of the
/// levels; scopes nest. A scope ends on the thread that made it.
class ClientScope
{
public:
    /// client: an address or a name; null: none, also where the process has one. Without memory the thread goes on for
    /// whom it did.
    explicit ClientScope(const char* client, int session = 0) noexcept : m_entry(::lum_client_enter(client, session)) {}
    explicit ClientScope(const std::string& client, int session = 0) noexcept : ClientScope(client.c_str(), session) {}

    /// For whom was taken along.
    explicit ClientScope(const Client& client) noexcept : m_entry(::lum_client_enter_ref(client.get())) {}

    ClientScope(const ClientScope&) = delete;
    ClientScope& operator=(const ClientScope&) = delete;
    ~ClientScope() { ::lum_client_leave(m_entry); }

private:
    lum_uint64 m_entry;
};

/// Names the thread until the end of the scope, and then as before. May throw std::bad_alloc.
class ThreadName
{
public:
    template <class Text>
    explicit ThreadName(const Text& name)
    {
        char before[256];
        const std::size_t length = ::lum_thread_name(before, sizeof before);
        m_before.assign(before, length < sizeof before ? length : sizeof before - 1);
        ::lum_set_thread_name(utf8(name).c_str());
    }
    ThreadName(const ThreadName&) = delete;
    ThreadName& operator=(const ThreadName&) = delete;
    ~ThreadName() { ::lum_set_thread_name(m_before.empty() ? nullptr : m_before.c_str()); }

private:
    std::string m_before;
};

/// Times a scope: "T=title,ms=..." in the performance-monitor log, when package 109 writes that level. Next to nothing
/// otherwise.
class Timer
{
public:
    explicit Timer(const char* title, int level = LUM_NOTICE) noexcept
        : m_timer(::lum_rejected(&::lum_process_gate, level, 109) ? nullptr : ::lum_timer_begin(title, level))
    {
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    Timer(Timer&& other) noexcept : m_timer(std::exchange(other.m_timer, nullptr)) {}
    Timer& operator=(Timer&& other) noexcept
    {
        if (this != &other)
        {
            stop();
            m_timer = std::exchange(other.m_timer, nullptr);
        }
        return *this;
    }
    ~Timer() { stop(); }

    /// Ends the measurement and writes the line. Returns the milliseconds, or -1 when nothing is measured.
    std::int64_t stop() noexcept { return m_timer == nullptr ? -1 : ::lum_timer_end(std::exchange(m_timer, nullptr)); }

private:
    lum_timer* m_timer;
};

/// A span of a session report: begins with the object, ends with it. type, subject: must live as long.
class Span
{
public:
    explicit Span(const char* type, const char* subject = nullptr, unsigned int weight = 1) noexcept
        : m_type(type), m_subject(subject), m_weight(weight)
    {
        ::lum_session_event(type, subject, LUM_EVENT_BEGIN | LUM_EVENT_COUNTED, weight, nullptr, 0);
    }
    Span(const Span&) = delete;
    Span& operator=(const Span&) = delete;
    ~Span() { ::lum_session_event(m_type, m_subject, LUM_EVENT_END | LUM_EVENT_COUNTED, m_weight, nullptr, 0); }

private:
    const char* m_type;
    const char* m_subject;
    unsigned int m_weight;
};

// Destinations ---------------------------------------------------------------------------------------------------------

/// Has a callable receive each written message, until the object goes.
///
///     lum::Destination count([&](const lum_message& message) { characters += message.length; });
///
/// Called on the thread that writes, one call at a time. What it throws becomes a line of the log. The object must not
/// go while its callable runs on another thread of which it waits for something.
template <class Receive>
class Destination
{
public:
    explicit Destination(Receive receive)
        : m_receive(std::move(receive)), m_handle(::lum_add_destination(&Destination::call, this))
    {
    }
    Destination(const Destination&) = delete;
    Destination& operator=(const Destination&) = delete;
    ~Destination() { ::lum_remove_destination(m_handle); }

    /// False when there was no memory for it.
    bool added() const noexcept { return m_handle != nullptr; }

private:
    static int LUM_CALL call(void* self, const lum_message* message) noexcept
    {
        LUM_TRY
        {
            static_cast<Destination*>(self)->m_receive(*message);
            return LUM_OK;
        }
#if defined(__cpp_exceptions) || defined(_CPPUNWIND)
        catch (const std::exception& error) { ::lum_destination_failed(error.what()); }
        catch (...) { ::lum_destination_failed("of a type that is not known"); }
#endif
        return LUM_FAILED;
    }

    Receive m_receive;
    lum_destination* m_handle;
};
template <class Receive>
Destination(Receive) -> Destination<Receive>;
} // namespace lum

#undef LUM_TRY
#undef LUM_CATCH

// Macros -----------------------------------------------------------------------------------------------------------------

/// Each takes level and package first, and evaluates both once.
#define LUM_LOG_TEXT(level, package, text) LUM_LOG_WITH(::lum::detail::write_text, level, package, text)
/// error: of Windows; its text follows.
#define LUM_LOG_ERROR(level, package, error, text) LUM_LOG_WITH(::lum::detail::write_error, level, package, error, text)
/// title, and a range, or a pointer and a size in bytes; 4096 bytes of it.
#define LUM_LOG_HEX(level, package, ...) LUM_LOG_WITH(::lum::detail::write_hex, level, package, __VA_ARGS__)
#if defined(LUM_FORMAT_NAMESPACE)
#define LUM_LOG_FORMAT(level, package, ...) LUM_LOG_WITH(::lum::detail::write_format, level, package, __VA_ARGS__)
#endif

/// LUM_LOG_WITH for a place with a limit, which counts only what is wanted.
#define LUM_LOG_LIMITED_WITH(kind, limit, function, level, package, ...)                                     \
    do                                                                                                       \
    {                                                                                                        \
        const int lum_level_ = (level);                                                                      \
        const int lum_package_ = (package);                                                                  \
        if (lum_level_ <= LUM_LOG_FLOOR && !::lum_rejected(&::lum_process_gate, lum_level_, lum_package_) && \
            ::lum_wants(lum_level_, lum_package_) != 0)                                                      \
        {                                                                                                    \
            static ::lum::detail::kind lum_limit_;                                                           \
            static const lum_site lum_site_ = LUM_SITE;                                                      \
            if (lum_limit_.passes(limit))                                                                    \
                function(&lum_site_, lum_level_, lum_package_, __VA_ARGS__);                                 \
        }                                                                                                    \
    } while (0)

#define LUM_LOG_ONCE(level, package, ...) LUM_LOG_LIMITED_WITH(FirstN, 1, ::lum_writef, level, package, __VA_ARGS__)
#define LUM_LOG_FIRST_N(n, level, package, ...) \
    LUM_LOG_LIMITED_WITH(FirstN, n, ::lum_writef, level, package, __VA_ARGS__)
#define LUM_LOG_EVERY_N(n, level, package, ...) \
    LUM_LOG_LIMITED_WITH(EveryN, n, ::lum_writef, level, package, __VA_ARGS__)
#define LUM_LOG_EVERY_T(duration, level, package, ...) \
    LUM_LOG_LIMITED_WITH(EveryT, duration, ::lum_writef, level, package, __VA_ARGS__)

#define LUM_LOG_TEXT_ONCE(level, package, text) \
    LUM_LOG_LIMITED_WITH(FirstN, 1, ::lum::detail::write_text, level, package, text)
#define LUM_LOG_TEXT_FIRST_N(n, level, package, text) \
    LUM_LOG_LIMITED_WITH(FirstN, n, ::lum::detail::write_text, level, package, text)
#define LUM_LOG_TEXT_EVERY_N(n, level, package, text) \
    LUM_LOG_LIMITED_WITH(EveryN, n, ::lum::detail::write_text, level, package, text)
#define LUM_LOG_TEXT_EVERY_T(duration, level, package, text) \
    LUM_LOG_LIMITED_WITH(EveryT, duration, ::lum::detail::write_text, level, package, text)

#if defined(LUM_FORMAT_NAMESPACE)
#define LUM_LOG_FORMAT_ONCE(level, package, ...) \
    LUM_LOG_LIMITED_WITH(FirstN, 1, ::lum::detail::write_format, level, package, __VA_ARGS__)
#define LUM_LOG_FORMAT_FIRST_N(n, level, package, ...) \
    LUM_LOG_LIMITED_WITH(FirstN, n, ::lum::detail::write_format, level, package, __VA_ARGS__)
#define LUM_LOG_FORMAT_EVERY_N(n, level, package, ...) \
    LUM_LOG_LIMITED_WITH(EveryN, n, ::lum::detail::write_format, level, package, __VA_ARGS__)
#define LUM_LOG_FORMAT_EVERY_T(duration, level, package, ...) \
    LUM_LOG_LIMITED_WITH(EveryT, duration, ::lum::detail::write_format, level, package, __VA_ARGS__)
#endif

#endif // LUMLOG_HPP
