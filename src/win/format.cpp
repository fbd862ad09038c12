#include "win/format.h"
#include "win/console.h"

#include <algorithm>
#include <climits>
#include <clocale>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <string_view>

#include "core/conversion.h"
#include "core/message.h"
#include "core/plain_format.h"
#include "win/guarded_call.h"
#include "win/owned.h"

#if defined(_UCRT) && defined(__MINGW32__) // whose headers may lack it
extern "C" _CRTIMP
    _invalid_parameter_handler __cdecl _set_thread_local_invalid_parameter_handler(_invalid_parameter_handler handler);
#endif

namespace kor::win
{
using core::Conversion;
using core::FORMAT_ERROR;
using core::MAX_MESSAGE;
using core::MESSAGE_SIZE;

namespace
{
constexpr int TOO_LONG = -1;

/// While it is there, a runtime that takes a format amiss says so by its result. The universal one would otherwise call a
/// handler, which ends the process; msvcrt has none.
class QuietRuntime
{
public:
    QuietRuntime(const QuietRuntime&) = delete;
    QuietRuntime& operator=(const QuietRuntime&) = delete;
#if defined(_UCRT) || defined(_MSC_VER)
    QuietRuntime() noexcept : m_before(::_set_thread_local_invalid_parameter_handler(&go_on)) {}
    ~QuietRuntime() { ::_set_thread_local_invalid_parameter_handler(m_before); }

private:
    static void go_on(const wchar_t*, const wchar_t*, const wchar_t*, unsigned int, std::uintptr_t) {}

    _invalid_parameter_handler m_before;
#else
    QuietRuntime() noexcept = default;
#endif
};

struct FormatJob
{
    char* buffer; // size + 1 bytes
    std::size_t size;
    const char* format;
    char* args;
    int length; // of what is in the buffer, or TOO_LONG
    int whole;  // of a text that was cut
    bool failed;
};

/// The runtime's, as %f writes it; 0 when that is more than one character.
char decimal_point()
{
    const char* const point = std::localeconv()->decimal_point;
    return point[0] != '\0' && point[1] == '\0' ? point[0] : '\0';
}

/// The end of a buffer that takes as much of a text as fits, and counts the rest.
class Output
{
public:
    Output(char* buffer, std::size_t size) noexcept : m_at(buffer), m_room(size) {}

    void add(const char* bytes, std::size_t count) noexcept
    {
        const std::size_t shown = std::min(count, m_room);
        std::memcpy(m_at, bytes, shown);
        advance(shown, count);
    }

    void add_repeated(char byte, std::size_t count) noexcept
    {
        const std::size_t shown = std::min(count, m_room);
        std::memset(m_at, byte, shown);
        advance(shown, count);
    }

    /// What the runtime makes of a format with one conversion; false when it can't.
    bool add_formatted(const char* format, char* args) noexcept
    {
        const int whole = ::_vscprintf(format, args);
        if (whole < 0)
            return false;
        int length = m_room == 0 ? -1 : ::_vsnprintf(m_at, m_room, format, args);
        if (length < 0 && static_cast<std::size_t>(whole) <= m_room && m_room != 0)
            return false;
        if (length < 0 || static_cast<std::size_t>(length) > m_room)
            length = static_cast<int>(m_room);
        advance(static_cast<std::size_t>(length), static_cast<std::size_t>(std::max(length, whole)));
        return true;
    }

    std::size_t whole() const noexcept { return m_whole; }

private:
    void advance(std::size_t shown, std::size_t count) noexcept
    {
        m_at += shown;
        m_room -= shown;
        m_whole += count;
    }

    char* m_at;
    std::size_t m_room;
    std::size_t m_whole = 0;
};

/// A number of a conversion's field, from the arguments where the format says so.
int field_number(int number, va_list& args) noexcept
{
    return number == Conversion::ARGUMENT ? va_arg(args, int) : number;
}

std::size_t magnitude(int number) noexcept
{
    const auto bits = static_cast<unsigned int>(number);
    return number < 0 ? 0 - bits : bits;
}

/// A wide text in its field, in UTF-8.
void add_wide(Output& output, const Conversion& conversion, va_list args) noexcept
{
    const int width = field_number(conversion.width, args);
    const int precision = field_number(conversion.precision, args);
    wchar_t one[2] = {};
    const wchar_t* text = one;
    if (conversion.kind == Conversion::WIDE_CHARACTER)
        one[0] = static_cast<wchar_t>(va_arg(args, int));
    else
        text = va_arg(args, const wchar_t*);
    const bool is_limited = conversion.kind == Conversion::WIDE_TEXT && precision >= 0;
    const std::size_t most = is_limited ? static_cast<std::size_t>(precision) : SIZE_MAX;

    std::size_t size = 0;
    core::Utf8 character;
    for (core::WideText counted(text, most); counted.next(character);)
        size += character.size;
    const bool left = conversion.left || width < Conversion::UNSET;
    const std::size_t columns = width == Conversion::UNSET ? 0 : magnitude(width);
    const std::size_t padding = columns > size ? columns - size : 0;
    if (!left)
        output.add_repeated(conversion.zeros ? '0' : ' ', padding);
    for (core::WideText shown(text, most); shown.next(character);)
        output.add(character.bytes, character.size);
    if (left)
        output.add_repeated(' ', padding);
}

/// For a wide character that it cannot convert the runtime writes nothing, and does not say so.
bool is_lost_character(const Conversion& conversion, va_list args) noexcept
{
    if (conversion.kind != Conversion::WIDE_CHARACTER)
        return false;
    field_number(conversion.width, args);
    field_number(conversion.precision, args);
    const auto character = static_cast<wchar_t>(va_arg(args, int));
    char bytes[MB_LEN_MAX];
    return character != L'\0' && std::wctomb(bytes, character) < 0;
}

/// What a format has that is not for the runtime alone.
struct Special
{
    bool wide_character = false;
    bool count = false; ///< %n, which writes into the program's memory; Windows refuses it, others do it
};

Special special_in(const char* format) noexcept
{
    Special special;
    for (const char* at = format; (at = std::strchr(at, '%')) != nullptr;)
    {
        const Conversion conversion = core::read_conversion(at);
        special.wide_character |= conversion.kind == Conversion::WIDE_CHARACTER;
        at += conversion.size;
        special.count |= at[-1] == 'n';
    }
    return special;
}

/// Leaves args behind the arguments of a conversion: 8 bytes for each, whatever it is.
void skip_arguments(const Conversion& conversion, va_list& args) noexcept
{
    field_number(conversion.width, args);
    field_number(conversion.precision, args);
    if (conversion.kind != Conversion::NONE)
        static_cast<void>(va_arg(args, std::int64_t));
}

/// Formats conversion by conversion, so that of all the runtime cannot convert the wide texts come in UTF-8. False
/// when there is something else that it cannot.
bool format_pieces(FormatJob& job)
{
    constexpr std::size_t LONGEST_CONVERSION = 100;
    Output output(job.buffer, job.size);
    va_list args = job.args;
    for (const char* at = job.format; *at != '\0';)
    {
        const std::size_t literal = std::strcspn(at, "%");
        output.add(at, literal);
        at += literal;
        if (*at == '\0')
            break;
        const Conversion conversion = core::read_conversion(at);
        if (conversion.size > LONGEST_CONVERSION)
            return false;
        char one[LONGEST_CONVERSION + 1];
        *std::copy_n(at, conversion.size, one) = '\0';
        const bool is_wide = conversion.kind == Conversion::WIDE_TEXT || conversion.kind == Conversion::WIDE_CHARACTER;
        if (is_lost_character(conversion, args) || !output.add_formatted(one, args))
        {
            if (!is_wide)
                return false;
            add_wide(output, conversion, args);
        }
        skip_arguments(conversion, args);
        at += conversion.size;
    }
    job.whole = static_cast<int>(std::min<std::size_t>(output.whole(), INT_MAX));
    job.length = output.whole() <= job.size ? job.whole : TOO_LONG;
    return true;
}

/// The runtime's formatter is used as it is several times faster than the compiler's own, and scales with threads.
void format_unguarded(FormatJob& job)
{
    job.length = core::format_plain(job.buffer, job.size, job.format, job.args, &decimal_point);
    const Special special = job.length == core::NOT_PLAIN ? special_in(job.format) : Special();
    if (special.count || special.wide_character)
    {
        job.failed = special.count || !format_pieces(job);
        return;
    }
    if (job.length == core::NOT_PLAIN)
        job.length = ::_vsnprintf(job.buffer, job.size, job.format, job.args);
    if (job.length >= 0)
        return;
    // The formatter also returns -1, and leaves what it likes, when it cannot convert an argument.
    job.whole = ::_vscprintf(job.format, job.args);
    if (job.whole < static_cast<int>(job.size))
        job.failed = !format_pieces(job);
}

/// Runs guarded: owns nothing and works in the job's buffer.
void run_format(void* argument)
{
    auto& job = *static_cast<FormatJob*>(argument);
    try
    {
        format_unguarded(job);
    }
    catch (...) // whatever it is, it must not reach the host
    {
        job.failed = true;
    }
}

/// Formats into the job's buffer and terminates the text.
FormatResult format_into(FormatJob& job) noexcept
{
    [[maybe_unused]] const QuietRuntime quiet;
    if (job.format == nullptr || kor_guarded_call(&run_format, &job) != 0 || job.failed)
        return FormatResult::MISFIT;
    job.buffer[job.size] = '\0'; // the formatter sets no end to a text that fills its room
    if (job.length == TOO_LONG)
        return FormatResult::CUT;
    job.buffer[job.length] = '\0';
    return FormatResult::WHOLE;
}

struct WideFormatJob
{
    wchar_t* buffer;
    std::size_t size;
    const wchar_t* format;
    char* args;
    int length; // -1: cut, or the arguments do not fit
    int whole_length;
};

/// Runs guarded.
void run_wide_format(void* argument)
{
    auto& job = *static_cast<WideFormatJob*>(argument);
    const std::size_t literal = ::wcsnlen(job.format, job.size);
    if (std::wmemchr(job.format, L'%', literal) == nullptr) // as most are
    {
        std::wmemcpy(job.buffer, job.format, literal);
        job.length = static_cast<int>(literal);
        return;
    }
    job.length = ::_vsnwprintf(job.buffer, job.size, job.format, job.args);
    // What the buffer holds means nothing when an argument could not be converted.
    job.whole_length = job.length < 0 ? ::_vscwprintf(job.format, job.args) : job.length;
}

struct LengthJob
{
    const char* text;
    std::size_t most;
    bool longer;
};

/// Runs guarded.
void run_length(void* argument)
{
    auto& job = *static_cast<LengthJob*>(argument);
    job.longer = ::strnlen(job.text, job.most + 1) > job.most;
}

int put(char* buffer, std::string_view text) noexcept
{
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    return static_cast<int>(text.size());
}
} // namespace

bool is_longer(const char* text, std::size_t most) noexcept
{
    LengthJob job{text, most, false};
    return text != nullptr && kor_guarded_call(&run_length, &job) == 0 && job.longer;
}

FormatResult format_text(char* buffer, std::size_t size, const char* format, char* args) noexcept
{
    FormatJob job{buffer, size - 1, format, args, 0, 0, false};
    const FormatResult result = format_into(job);
    if (result == FormatResult::MISFIT)
        put(buffer, FORMAT_ERROR.substr(0, FORMAT_ERROR.size() - 1));
    return result;
}

std::size_t format_wide_text(wchar_t* buffer, std::size_t size, const wchar_t* format, char* args) noexcept
{
    WideFormatJob job{buffer, size, format, args, 0, 0};
    [[maybe_unused]] const QuietRuntime quiet;
    const bool converted = kor_guarded_call(&run_wide_format, &job) == 0;
    if (converted && job.length >= 0)
        return static_cast<std::size_t>(job.length);
    if (converted && job.whole_length > static_cast<int>(size))
        return size;
    const std::string_view error = FORMAT_ERROR.substr(0, std::min(size, FORMAT_ERROR.size() - 1));
    std::copy(error.begin(), error.end(), buffer);
    return error.size();
}

int format_message(char* buffer, const char* format, char* args, std::size_t* whole) noexcept
{
    FormatJob job{buffer, MAX_MESSAGE, format, args, 0, 0, false};
    const FormatResult result = format_into(job);
    if (whole != nullptr && result == FormatResult::CUT)
        *whole = static_cast<std::size_t>(job.whole);
    return result == FormatResult::MISFIT ? put(buffer, FORMAT_ERROR) : job.length;
}

void print(std::FILE* stream, const char* format, char* args) noexcept
{
    char buffer[MESSAGE_SIZE];
    FormatJob job{buffer, MAX_MESSAGE, format, args, 0, 0, false};
    const FormatResult result = format_into(job);
    std::string_view text = FORMAT_ERROR;
    std::unique_ptr<char[]> large;
    if (result == FormatResult::WHOLE)
        text = {buffer, static_cast<std::size_t>(job.length)};
    else if (result == FormatResult::CUT)
    {
        text = {buffer, static_cast<std::size_t>(MAX_MESSAGE)};
        const auto size = static_cast<std::size_t>(job.whole);
        large.reset(new (std::nothrow) char[size + 1]);
        FormatJob again{large.get(), size, format, args, 0, 0, false};
        // Another thread may have changed a text meanwhile: then what there is of it.
        if (large && format_into(again) != FormatResult::MISFIT)
            text = {large.get(), again.length == TOO_LONG ? size : static_cast<std::size_t>(again.length)};
    }
    if (stream == stdout || stream == stderr)
        begin_line();
    std::fwrite(text.data(), 1, text.size(), stream);
}

std::string system_text(unsigned int error, bool for_format)
{
    void* raw = nullptr;
    const DWORD length = ::FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
            FORMAT_MESSAGE_MAX_WIDTH_MASK,
        nullptr, error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char*>(&raw), 0, nullptr);
    const OwnedLocalMemory owner(raw);
    std::string text;
    for (DWORD i = 0; i < length && raw != nullptr; ++i)
        text.append(for_format && static_cast<char*>(raw)[i] == '%' ? 2 : 1, static_cast<char*>(raw)[i]);
    return text;
}
} // namespace kor::win
